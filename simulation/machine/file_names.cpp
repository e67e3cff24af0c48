// The calls that work on names: what is there, new places, copies and removal.
#include "simulation/machine/file_system.h"
#include "simulation/machine/letter_case.h"
#include "simulation/machine/name_pattern.h"
#include "simulation/machine/path_text.h"

namespace simulation {

using kestrelon::platform::FileInformation;
using kestrelon::platform::FoundFile;
using kestrelon::platform::kAccessDenied;
using kestrelon::platform::kAlreadyExists;
using kestrelon::platform::kAttributeDirectory;
using kestrelon::platform::kDiskFull;
using kestrelon::platform::kFileNotFound;
using kestrelon::platform::kGenericRead;
using kestrelon::platform::kGenericWrite;
using kestrelon::platform::kNotifySecurity;
using kestrelon::platform::kPathNotFound;
using kestrelon::platform::kReplaceExisting;
using kestrelon::platform::kShareAll;
using kestrelon::platform::kShareNone;
using kestrelon::platform::kShareRead;
using kestrelon::platform::kSharingViolation;
using kestrelon::platform::kSuccess;
using kestrelon::platform::kWriteThrough;

namespace {

constexpr Code kNotSameDevice = 17;
constexpr Code kNotADirectory = 267;
constexpr std::uint32_t kDeleteRight = 0x10000;

const FileNode& VolumeOf(const FileNode& node) {
  const std::shared_ptr<FileNode> parent = node.parent.lock();
  return parent ? VolumeOf(*parent) : node;
}

}  // namespace

Code FileSystem::FinishChange() {
  if (!PowerGoesNow()) return kSuccess;
  LosePower();
  return kPowerLost;
}

Code FileSystem::Information(const std::wstring& path, FileInformation& information) const {
  const std::lock_guard lock(mutex_);
  Place place;
  if (const Code code = LocateExisting(path, LastLink::kKeep, place)) return code;
  information.attributes = place.node->attributes;
  information.size = place.node->content.size();
  information.write_time = static_cast<std::uint64_t>(place.node->write_time);
  return kSuccess;
}

Code FileSystem::Find(const std::wstring& pattern, std::size_t most,
                      std::vector<FoundFile>& found) const {
  const std::lock_guard lock(mutex_);
  const std::size_t cut = pattern.find_last_of(L"\\/");
  const std::size_t begin = cut == std::wstring::npos ? 0 : cut + 1;
  Place place;
  const std::wstring directory = begin == 0 ? L"." : pattern.substr(0, begin);
  if (const Code code = LocateExisting(directory, LastLink::kFollow, place)) {
    return code == kFileNotFound ? kPathNotFound : code;
  }
  if (!place.node->is_directory()) return kNotADirectory;
  std::vector<FoundFile> matching;
  for (const auto& [folded, node] : place.node->entries) {
    if (matching.size() == most) break;
    if (NameMatches(pattern.substr(begin), node->name)) {
      matching.push_back({node->name, node->attributes});
    }
  }
  if (matching.empty()) return kFileNotFound;
  found = std::move(matching);
  return kSuccess;
}

Code FileSystem::CheckRename(const Place& source, const Place& target, std::uint32_t flags) const {
  if (!source.directory || !target.directory) return kAccessDenied;
  if (&VolumeOf(*source.node) != &VolumeOf(*target.directory)) return kNotSameDevice;
  if (!SharingAllows(*source.node, kDeleteRight, kShareAll)) return kSharingViolation;
  if (target.directory->IsWithin(*source.node)) return kSharingViolation;
  if (source.node->is_directory() && IsOpenWithin(*source.node)) return kAccessDenied;
  if (!target.node || target.node == source.node) return kSuccess;
  if ((flags & kReplaceExisting) == 0) return kAlreadyExists;
  // A directory is never replaced nor replaces, and neither is an open or protected file.
  if (source.node->is_directory() || target.node->is_directory()) return kAccessDenied;
  const bool denied = target.node->is_read_only() || IsOpenWithin(*target.node);
  return denied ? kAccessDenied : kSuccess;
}

Code FileSystem::Rename(const std::wstring& from, const std::wstring& to, std::uint32_t flags) {
  const std::lock_guard lock(mutex_);
  Place source;
  Place target;
  if (const Code code = LocateExisting(from, LastLink::kKeep, source)) return code;
  if (const Code code = Locate(to, LastLink::kKeep, target)) return code;
  if (const Code code = CheckRename(source, target, flags)) return code;
  TakeEntry(source);
  PutEntry(target.directory, target.name, source.node);
  StampChange(*source.node);
  if (const Code code = FinishChange()) return code;
  if ((flags & kWriteThrough) != 0) journal_.Commit();
  return kSuccess;
}

Code FileSystem::CheckCopy(const Place& source, const Place& target) const {
  if (source.node->is_directory()) return kAccessDenied;
  if (!SharingAllows(*source.node, kGenericRead, kShareRead)) return kSharingViolation;
  if (!target.node) return kSuccess;
  if (target.node == source.node) return kSharingViolation;
  if (target.node->is_directory() || target.node->is_read_only()) return kAccessDenied;
  const bool shared = SharingAllows(*target.node, kGenericWrite, kShareNone);
  return shared ? kSuccess : kSharingViolation;
}

Code FileSystem::Copy(const std::wstring& from, const std::wstring& to) {
  const std::lock_guard lock(mutex_);
  Place source;
  Place target;
  if (const Code code = LocateExisting(from, LastLink::kFollow, source)) return code;
  if (const Code code = Locate(to, LastLink::kFollow, target)) return code;
  if (const Code code = CheckCopy(source, target)) return code;
  if (DiskIsFull()) {
    // The platform empties the target before it finds no room, and then removes it.
    if (target.node) TakeEntry(target);
    return kDiskFull;
  }
  const std::size_t size_before = target.node ? target.node->content.size() : 0;
  if (target.node) {
    journal_.Truncate(target.node);
  } else {
    target.node = NewNode(0);
    PutEntry(target.directory, target.name, target.node);
  }
  const bool power_goes = PowerGoesNow();
  const std::string_view bytes = source.node->content;
  target.node->Store(0, power_goes ? bytes.substr(0, bytes.size() / 2) : bytes);
  target.node->attributes = source.node->attributes;
  target.node->write_time = source.node->write_time;
  target.node->properties = source.node->properties;
  StampChange(*target.node);
  TellContent(*target.node, size_before);
  if (!power_goes) return kSuccess;
  LosePower();
  return kPowerLost;
}

Code FileSystem::Delete(const std::wstring& path) {
  const std::lock_guard lock(mutex_);
  Place place;
  if (const Code code = LocateExisting(path, LastLink::kKeep, place)) return code;
  if (place.node->is_directory() || place.node->is_read_only()) return kAccessDenied;
  if (!SharingAllows(*place.node, kDeleteRight, kShareAll)) return kSharingViolation;
  // The name goes at once; files that share deletion stay usable by their handles.
  TakeEntry(place);
  return FinishChange();
}

Code FileSystem::MakeDirectory(const std::wstring& path) {
  const std::lock_guard lock(mutex_);
  Place place;
  if (const Code code = Locate(path, LastLink::kKeep, place)) return code;
  if (!place.directory) return kAccessDenied;
  if (place.node) return kAlreadyExists;
  PutEntry(place.directory, place.name, NewNode(kAttributeDirectory));
  return FinishChange();
}

Code FileSystem::Protect(const std::wstring& path, const std::vector<std::uint8_t>& descriptor) {
  const std::lock_guard lock(mutex_);
  Place place;
  if (const Code code = LocateExisting(path, LastLink::kFollow, place)) return code;
  if (const Code code = FinishChange()) return code;
  place.node->protection = descriptor;
  StampChange(*place.node);
  TellChange(*place.node, kNotifySecurity);
  return kSuccess;
}

}  // namespace simulation
