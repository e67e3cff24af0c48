#include "core/line_file.h"

#include "base/format.h"
#include "platform/files.h"

namespace kestrelon {
namespace {

void RotateIfLarge(const std::wstring& path, std::uint64_t rotate_above) {
  platform::FileInformation information;
  if (platform::QueryFileInformation(path, information) != platform::kSuccess) return;
  if (information.size <= rotate_above) return;
  (void)platform::RenameFile(path, path + L".old", platform::kReplaceExisting);
}

}  // namespace

Guard LogGuard("LogGuard", GuardRank::kLeaf);

std::wstring TimeStamp(const std::optional<platform::CalendarTime>& time) {
  if (!time) return {};
  return Format(L"%04u-%02u-%02u %02u:%02u:%02u", time->year, time->month, time->day, time->hour,
                time->minute, time->second);
}

std::wstring OneLine(std::wstring text) {
  for (wchar_t& c : text) {
    if (c < 0x20 || (c >= 0x7F && c < 0xA0)) c = L' ';
  }
  return text;
}

void AppendToLineFile(const std::wstring& path, std::uint64_t rotate_above, std::string_view text) {
  RotateIfLarge(path, rotate_above);
  platform::File file;
  if (platform::OpenFile(path, platform::kAppendData, platform::kShareRead, platform::kOpenAlways,
                         platform::kNormalFile, file) != platform::kSuccess) {
    return;
  }
  std::uint32_t written = 0;
  (void)platform::WriteFileBytes(file, text.data(), static_cast<std::uint32_t>(text.size()),
                                 written);
}

}  // namespace kestrelon
