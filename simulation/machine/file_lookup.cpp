// How the file system finds what a path means, and who may open it.
#include <algorithm>

#include "simulation/machine/file_system.h"
#include "simulation/machine/letter_case.h"
#include "simulation/machine/path_text.h"

namespace simulation {

using kestrelon::platform::kAppendData;
using kestrelon::platform::kFileNotFound;
using kestrelon::platform::kGenericRead;
using kestrelon::platform::kGenericWrite;
using kestrelon::platform::kPathNotFound;
using kestrelon::platform::kShareDelete;
using kestrelon::platform::kShareRead;
using kestrelon::platform::kShareWrite;
using kestrelon::platform::kSuccess;

namespace {

constexpr Code kBadNetworkPath = 53;
constexpr Code kInvalidName = 123;
constexpr Code kCantResolveName = 1921;
constexpr int kMostLinks = 63;
constexpr std::uint32_t kDeleteRight = 0x10000;
constexpr std::int64_t kRecordSize = 0x60;  // of the change journal

// Where a service's relative paths begin.
constexpr std::wstring_view kCurrentDirectory = L"C:\\Windows\\System32\\";

std::wstring FullPath(const std::wstring& path) {
  const bool has_drive = path.size() > 1 && path[1] == L':';
  if (has_drive || path.starts_with(L"\\\\") || path.starts_with(L"//")) return path;
  if (path.starts_with(L"\\") || path.starts_with(L"/")) return L"C:" + path;
  return std::wstring(kCurrentDirectory) + path;
}

// The sharing that an access asks of others; an access to attributes alone asks none.
std::uint32_t SharingNeeded(std::uint32_t access) {
  std::uint32_t share = 0;
  if ((access & kGenericRead) != 0) share |= kShareRead;
  if ((access & (kGenericWrite | kAppendData)) != 0) share |= kShareWrite;
  if ((access & kDeleteRight) != 0) share |= kShareDelete;
  return share;
}

bool Conflict(std::uint32_t access, std::uint32_t share, std::uint32_t other_access,
              std::uint32_t other_share) {
  const std::uint32_t needed = SharingNeeded(access);
  const std::uint32_t other_needed = SharingNeeded(other_access);
  if (needed == 0 || other_needed == 0) return false;
  return (needed & ~other_share) != 0 || (other_needed & ~share) != 0;
}

}  // namespace

Code FileSystem::Locate(const std::wstring& path, LastLink last, Place& place, int links) const {
  if (path.empty()) return kPathNotFound;
  if (links > kMostLinks) return kCantResolveName;
  const std::optional<ParsedPath> parsed = ParsePath(FullPath(path));
  if (!parsed) return kInvalidName;
  const auto root = roots_.find(FoldCase(parsed->root));
  if (root == roots_.end()) {
    return parsed->root.starts_with(L"\\\\") ? kBadNetworkPath : kPathNotFound;
  }
  place = Place{nullptr, {}, root->second};
  for (std::size_t i = 0; i < parsed->names.size(); ++i) {
    const std::wstring& name = parsed->names[i];
    const bool is_last = i + 1 == parsed->names.size();
    if (!place.node->is_directory()) return kPathNotFound;
    if (!IsValidName(name)) return kInvalidName;
    const auto found = place.node->entries.find(FoldCase(name));
    const Node child = found == place.node->entries.end() ? nullptr : found->second;
    if (!child && !is_last) return kPathNotFound;
    if (child && child->is_link() && (!is_last || last == LastLink::kFollow)) {
      std::wstring behind = child->link_target;
      for (std::size_t j = i + 1; j < parsed->names.size(); ++j) behind += L"\\" + parsed->names[j];
      return Locate(behind, last, place, links + 1);
    }
    place = Place{place.node, name, child};
  }
  return kSuccess;
}

Code FileSystem::LocateExisting(const std::wstring& path, LastLink last, Place& place) const {
  if (const Code code = Locate(path, last, place)) return code;
  return place.node ? kSuccess : kFileNotFound;
}

FileSystem::Node FileSystem::FindNode(const std::wstring& path) const {
  Place place;
  return LocateExisting(path, LastLink::kFollow, place) == kSuccess ? place.node : nullptr;
}

FileSystem::Node FileSystem::NewNode(std::uint32_t attributes) {
  const Node node = std::make_shared<FileNode>();
  node->id = ++last_id_;
  node->attributes = attributes;
  StampWrite(*node);
  return node;
}

void FileSystem::StampChange(FileNode& node) {
  last_change_number_ += kRecordSize;
  node.change_number = last_change_number_;
}

void FileSystem::StampWrite(FileNode& node) {
  // Two writes are never quite at the same time, though a held clock says so.
  node.write_time = std::max(clock_.SystemTime(), node.write_time + 1);
  StampChange(node);
}

bool FileSystem::SharingAllows(const FileNode& node, std::uint32_t access,
                               std::uint32_t share) const {
  const auto conflicts = [&](const OpenedFile& file) {
    return file.node.get() == &node && Conflict(access, share, file.access, file.share);
  };
  return std::none_of(held_.begin(), held_.end(), conflicts) &&
         std::none_of(handles_.begin(), handles_.end(),
                      [&](const auto& entry) { return conflicts(entry.second); });
}

bool FileSystem::IsOpenWithin(const FileNode& node) const {
  const auto is_within = [&](const OpenedFile& file) { return file.node->IsWithin(node); };
  return std::any_of(held_.begin(), held_.end(), is_within) ||
         std::any_of(handles_.begin(), handles_.end(),
                     [&](const auto& entry) { return is_within(entry.second); });
}

}  // namespace simulation
