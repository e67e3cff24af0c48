#include "config/config_file.h"

#include "base/format.h"
#include "base/text.h"
#include "config/atomic_write.h"
#include "core/error_text.h"
#include "platform/files.h"

namespace kestrelon {
namespace {

constexpr std::uint64_t kFileTooLarge = 0x4000000;  // 64 MiB; no configuration comes near
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// Reads a whole file below the size limit. A file that is too large, or that ends early, fails
// with the code of success: the platform reported none.
bool ReadWholeFile(const std::wstring& path, std::string& bytes, platform::Code& code) {
  platform::File file;
  code = platform::OpenFile(path, platform::kGenericRead, platform::kShareRead,
                            platform::kOpenExisting, platform::kNormalFile, file);
  if (code != platform::kSuccess) return false;
  std::uint64_t size = 0;
  code = platform::FileSize(file, size);
  if (code != platform::kSuccess || size >= kFileTooLarge) return false;
  bytes.resize(static_cast<std::size_t>(size));
  std::uint32_t read = 0;
  code = platform::ReadFileBytes(file, bytes.data(), static_cast<std::uint32_t>(size), read);
  return code == platform::kSuccess && read == size;
}

}  // namespace

bool LoadConfigFile(const std::wstring& path, Config& config, std::wstring& error) {
  std::string bytes;
  platform::Code code = platform::kSuccess;
  if (!ReadWholeFile(path, bytes, code)) {
    error = Format(L"cannot read %s: %s", path, ErrorText(code));
    return false;
  }
  std::string_view text = bytes;
  if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
  Json document;
  std::string reason;
  if (!Json::Parse(text, document, &reason)) {
    error = Format(L"invalid JSON in %s: %s", path, WideFromUtf8(reason));
    return false;
  }
  return ConfigFromJson(document, config, error);
}

std::string ConfigText(const Config& config) {
  return ConfigToJson(config).Dump(true) + "\n";
}

bool SaveConfigFile(const std::wstring& path, const Config& config, std::wstring& error) {
  return AtomicWriteText(path, ConfigText(config), error);
}

}  // namespace kestrelon
