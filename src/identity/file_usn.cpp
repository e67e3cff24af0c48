#include "identity/file_usn.h"

#include "platform/files.h"

namespace kestrelon {
namespace {

constexpr std::int64_t kUnknown = -1;

// Where USN_RECORD_V2 and V3 hold what is read here; the fixed part is rounded up to whole 8 bytes.
constexpr std::size_t kMajorVersionAt = 4;
constexpr std::size_t kUsnAtV2 = 24;
constexpr std::size_t kLeastSizeV2 = 64;
constexpr std::size_t kUsnAtV3 = 40;
constexpr std::size_t kLeastSizeV3 = 80;

std::uint64_t LittleEndianAt(const std::vector<std::uint8_t>& bytes, std::size_t at,
                             std::size_t size) {
  std::uint64_t value = 0;
  for (std::size_t i = size; i > 0; --i) value = value << 8 | bytes[at + i - 1];
  return value;
}

}  // namespace

std::int64_t UsnOfRecord(const std::vector<std::uint8_t>& record) {
  if (record.size() < kLeastSizeV2) return kUnknown;
  const std::uint64_t version = LittleEndianAt(record, kMajorVersionAt, 2);
  if (version == 2) return static_cast<std::int64_t>(LittleEndianAt(record, kUsnAtV2, 8));
  if (version == 3 && record.size() >= kLeastSizeV3) {
    return static_cast<std::int64_t>(LittleEndianAt(record, kUsnAtV3, 8));
  }
  return kUnknown;
}

std::int64_t FileUsn(const std::wstring& path) {
  platform::File file;
  if (platform::OpenFile(path, platform::kReadAttributes, platform::kShareAll,
                         platform::kOpenExisting, platform::kNormalFile,
                         file) != platform::kSuccess) {
    return kUnknown;
  }
  std::vector<std::uint8_t> record;
  if (platform::ReadUsnRecord(file, record) != platform::kSuccess) return kUnknown;
  return UsnOfRecord(record);
}

}  // namespace kestrelon
