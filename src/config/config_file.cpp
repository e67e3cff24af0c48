#include "config/config_file.h"

#include "base/format.h"
#include "base/text.h"
#include "config/atomic_write.h"
#include "config/whole_file.h"
#include "core/error_text.h"

namespace kestrelon {
namespace {

constexpr std::uint32_t kFileTooLarge = 0x4000000;  // 64 MiB; no configuration comes near
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

}  // namespace

bool LoadConfigFile(const std::wstring& path, Config& config, std::wstring& error) {
  std::string bytes;
  platform::Code code = platform::kSuccess;
  if (!ReadWholeFile(path, kFileTooLarge, bytes, code)) {
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
