// The calls on open files.
#include <algorithm>
#include <cstring>

#include "base/text.h"
#include "simulation/machine/file_system.h"

namespace simulation {

using kestrelon::platform::kAccessDenied;
using kestrelon::platform::kAppendData;
using kestrelon::platform::kAttributeDirectory;
using kestrelon::platform::kAttributeReadOnly;
using kestrelon::platform::kBackupSemantics;
using kestrelon::platform::kCreateAlways;
using kestrelon::platform::kDiskFull;
using kestrelon::platform::kFileNotFound;
using kestrelon::platform::kGenericRead;
using kestrelon::platform::kGenericWrite;
using kestrelon::platform::kInvalidHandle;
using kestrelon::platform::kNotSupported;
using kestrelon::platform::kOpenExisting;
using kestrelon::platform::kShareDelete;
using kestrelon::platform::kShareRead;
using kestrelon::platform::kSharingViolation;
using kestrelon::platform::kSuccess;

namespace {

constexpr Code kNotADirectory = 267;

constexpr std::uint32_t kAttributeArchive = 0x20;
constexpr std::uint32_t kWriteAccess = kGenericWrite | kAppendData;
constexpr std::size_t kJournalNameOffset = 60;

void Append(std::vector<std::uint8_t>& out, std::uint64_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

// USN_RECORD_V2 as the volume answers for one file: without time, reason and source.
std::vector<std::uint8_t> JournalRecord(const FileNode& node) {
  std::vector<std::uint8_t> name = kestrelon::Utf16BytesWithNull(node.name);
  name.resize(name.size() - 2);
  const std::size_t size = (kJournalNameOffset + name.size() + 7) / 8 * 8;
  const std::shared_ptr<FileNode> parent = node.parent.lock();
  std::vector<std::uint8_t> record;
  Append(record, size, 4);
  Append(record, 2, 4);  // major version 2, minor version 0
  Append(record, node.id, 8);
  Append(record, parent ? parent->id : node.id, 8);
  Append(record, static_cast<std::uint64_t>(node.change_number), 8);
  Append(record, 0, 8);  // time
  Append(record, 0, 8);  // reason, source
  Append(record, 0, 4);  // security id
  Append(record, node.attributes, 4);
  Append(record, name.size(), 2);
  Append(record, kJournalNameOffset, 2);
  record.insert(record.end(), name.begin(), name.end());
  record.resize(size);
  return record;
}

}  // namespace

Code FileSystem::CheckOpen(const Place& place, std::uint32_t access, std::uint32_t share,
                           std::uint32_t disposition, std::uint32_t flags) const {
  if (!place.node) return disposition == kOpenExisting ? kFileNotFound : kSuccess;
  const bool empties = disposition == kCreateAlways;
  if (place.node->is_directory()) {
    return empties || (flags & kBackupSemantics) == 0 ? kAccessDenied : kSuccess;
  }
  const bool writes = empties || (access & kWriteAccess) != 0;
  if (writes && place.node->is_read_only()) return kAccessDenied;
  return SharingAllows(*place.node, access, share) ? kSuccess : kSharingViolation;
}

Code FileSystem::Open(const std::wstring& path, std::uint32_t access, std::uint32_t share,
                      std::uint32_t disposition, std::uint32_t flags, std::uintptr_t& handle) {
  const std::lock_guard lock(mutex_);
  Place place;
  if (const Code code = Locate(path, LastLink::kFollow, place)) return code;
  if (const Code code = CheckOpen(place, access, share, disposition, flags)) return code;
  const bool creates = !place.node;
  const bool empties = !creates && disposition == kCreateAlways;
  if (creates) {
    place.node = NewNode(kAttributeArchive | (flags & kAttributeReadOnly));
    PutEntry(place.directory, place.name, place.node);
  } else if (empties) {
    const std::size_t size_before = place.node->content.size();
    journal_.Truncate(place.node);
    StampWrite(*place.node);
    TellContent(*place.node, size_before);
  }
  if (creates || empties) {
    if (const Code code = FinishChange()) return code;
  }
  handles_[++last_handle_] = OpenedFile{place.node, access, share, 0};
  handle = last_handle_;
  return kSuccess;
}

Code FileSystem::TryProgram(const std::wstring& path, const std::wstring& directory) {
  std::uintptr_t handle = 0;
  const std::uint32_t share = kShareRead | kShareDelete;
  if (const Code code = Open(path, kGenericRead, share, kOpenExisting, 0, handle)) return code;
  Close(handle);
  kestrelon::platform::FileInformation information;
  if (directory.empty()) return kSuccess;
  const bool is_directory = Information(directory, information) == kSuccess &&
                            (information.attributes & kAttributeDirectory) != 0;
  return is_directory ? kSuccess : kNotADirectory;
}

void FileSystem::Close(std::uintptr_t handle) {
  const std::lock_guard lock(mutex_);
  handles_.erase(handle);
}

Code FileSystem::Opened(std::uintptr_t handle, std::uint32_t access,
                        const OpenedFile** file) const {
  const auto found = handles_.find(handle);
  if (found == handles_.end()) return kInvalidHandle;
  if (access != 0 && (found->second.access & access) == 0) return kAccessDenied;
  *file = &found->second;
  return kSuccess;
}

Code FileSystem::ReadBytes(std::uintptr_t handle, void* bytes, std::uint32_t size,
                           std::uint32_t& read) {
  const std::lock_guard lock(mutex_);
  const OpenedFile* file = nullptr;
  if (const Code code = Opened(handle, kGenericRead, &file)) return code;
  const std::string& content = file->node->content;
  const std::size_t position = std::min(file->position, content.size());
  const std::size_t count = std::min<std::size_t>(size, content.size() - position);
  std::copy_n(content.data() + position, count, static_cast<char*>(bytes));
  handles_[handle].position = position + count;
  read = static_cast<std::uint32_t>(count);
  return kSuccess;
}

Code FileSystem::WriteBytes(std::uintptr_t handle, const void* bytes, std::uint32_t size,
                            std::uint32_t& written) {
  const std::lock_guard lock(mutex_);
  const OpenedFile* file = nullptr;
  if (const Code code = Opened(handle, kWriteAccess, &file)) return code;
  if (size > 0 && DiskIsFull()) return kDiskFull;
  FileNode& node = *file->node;
  const bool appends = (file->access & kGenericWrite) == 0;
  const std::size_t position = appends ? node.content.size() : file->position;
  const bool power_goes = PowerGoesNow();
  const std::size_t count = power_goes ? size / 2 : size;
  const std::size_t size_before = node.content.size();
  node.Store(position, {static_cast<const char*>(bytes), count});
  StampWrite(node);
  TellContent(node, size_before);
  if (power_goes) {
    LosePower();
    return kPowerLost;
  }
  handles_[handle].position = position + count;
  written = size;
  return kSuccess;
}

Code FileSystem::Flush(std::uintptr_t handle) {
  const std::lock_guard lock(mutex_);
  const OpenedFile* file = nullptr;
  if (const Code code = Opened(handle, kWriteAccess, &file)) return code;
  if (PowerGoesNow()) {
    file->node->FlushPartly();
    LosePower();
    return kPowerLost;
  }
  file->node->Flush();
  journal_.Commit();
  return kSuccess;
}

Code FileSystem::Size(std::uintptr_t handle, std::uint64_t& size) const {
  const std::lock_guard lock(mutex_);
  const OpenedFile* file = nullptr;
  if (const Code code = Opened(handle, 0, &file)) return code;
  size = file->node->content.size();
  return kSuccess;
}

Code FileSystem::FinalPath(std::uintptr_t handle, std::wstring& path) const {
  const std::lock_guard lock(mutex_);
  const OpenedFile* file = nullptr;
  if (const Code code = Opened(handle, 0, &file)) return code;
  const std::wstring plain = file->node->Path();
  path = plain.starts_with(L"\\\\") ? L"\\\\?\\UNC" + plain.substr(1) : L"\\\\?\\" + plain;
  return kSuccess;
}

Code FileSystem::UsnRecord(std::uintptr_t handle, std::vector<std::uint8_t>& record) const {
  const std::lock_guard lock(mutex_);
  const OpenedFile* file = nullptr;
  if (const Code code = Opened(handle, 0, &file)) return code;
  if (!usn_supported_) return kNotSupported;
  record = JournalRecord(*file->node);
  return kSuccess;
}

Code FileSystem::Inspect(std::uintptr_t handle, std::string& content,
                         FileProperties& properties) const {
  const std::lock_guard lock(mutex_);
  const OpenedFile* file = nullptr;
  if (const Code code = Opened(handle, 0, &file)) return code;
  content = file->node->content;
  const auto spread = spread_properties_.find(content);
  const bool own = spread == spread_properties_.end() || file->node->properties.any();
  properties = own ? file->node->properties : spread->second;
  return kSuccess;
}

std::optional<std::wstring> FileSystem::CatalogSigner(const std::wstring& algorithm,
                                                      const std::vector<std::uint8_t>& hash) const {
  const std::lock_guard lock(mutex_);
  return catalogs_.SignerOf(algorithm, hash);
}

}  // namespace simulation
