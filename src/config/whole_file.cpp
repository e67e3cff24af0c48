#include "config/whole_file.h"

#include <utility>

#include "platform/files.h"

namespace kestrelon {

bool ReadWholeFile(const std::wstring& path, std::uint32_t too_large, std::string& bytes,
                   platform::Code& code) {
  platform::File file;
  code = platform::OpenFile(path, platform::kGenericRead, platform::kShareRead,
                            platform::kOpenExisting, platform::kNormalFile, file);
  if (code != platform::kSuccess) return false;
  std::uint64_t size = 0;
  code = platform::FileSize(file, size);
  if (code != platform::kSuccess || size >= too_large) return false;
  std::string content(static_cast<std::size_t>(size), '\0');
  std::uint32_t read = 0;
  code = platform::ReadFileBytes(file, content.data(), static_cast<std::uint32_t>(size), read);
  if (code != platform::kSuccess || read != size) return false;
  bytes = std::move(content);
  return true;
}

}  // namespace kestrelon
