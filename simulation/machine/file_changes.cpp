// What the file system tells those who watch its directories.
#include "simulation/machine/file_system.h"

namespace simulation {

using kestrelon::platform::kNotifyDirectoryName;
using kestrelon::platform::kNotifyFileName;
using kestrelon::platform::kNotifyLastWrite;
using kestrelon::platform::kNotifySize;
using kestrelon::platform::kSuccess;

namespace {

constexpr Code kNotADirectory = 267;

std::uint32_t NameKind(const FileNode& node) {
  return node.is_directory() ? kNotifyDirectoryName : kNotifyFileName;
}

}  // namespace

void FileSystem::PutEntry(const Node& directory, const std::wstring& name, const Node& node) {
  journal_.Put(directory, name, node);
  TellChange(*node, NameKind(*node));
}

void FileSystem::TakeEntry(const Place& place) {
  TellChange(*place.node, NameKind(*place.node));
  journal_.Take(place.directory, place.name);
}

void FileSystem::TellChange(const FileNode& node, std::uint32_t kinds) {
  if (const Node directory = node.parent.lock()) watches_.Signal(*directory, kinds);
}

void FileSystem::TellContent(const FileNode& node, std::size_t size_before) {
  const bool resized = node.content.size() != size_before;
  TellChange(node, resized ? kNotifyLastWrite | kNotifySize : kNotifyLastWrite);
}

Code FileSystem::Watch(const std::wstring& directory, std::uint32_t filter,
                       std::uintptr_t& handle) {
  const std::lock_guard lock(mutex_);
  Place place;
  if (const Code code = LocateExisting(directory, LastLink::kFollow, place)) return code;
  if (!place.node->is_directory()) return kNotADirectory;
  handle = watches_.Begin(place.node, filter);
  return kSuccess;
}

}  // namespace simulation
