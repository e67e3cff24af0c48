#include "simulation/machine/file_node.h"

#include <algorithm>

#include "platform/files.h"

namespace simulation {

bool FileNode::is_directory() const {
  return (attributes & kestrelon::platform::kAttributeDirectory) != 0;
}

bool FileNode::is_read_only() const {
  return (attributes & kestrelon::platform::kAttributeReadOnly) != 0;
}

std::wstring FileNode::Path() const {
  const std::shared_ptr<FileNode> above = parent.lock();
  if (!above) return name + L"\\";
  const std::wstring path = above->Path();
  return path.ends_with(L'\\') ? path + name : path + L"\\" + name;
}

bool FileNode::IsWithin(const FileNode& other) const {
  if (this == &other) return true;
  const std::shared_ptr<FileNode> above = parent.lock();
  return above && above->IsWithin(other);
}

void FileNode::Store(std::size_t position, std::string_view bytes) {
  if (content.size() < position + bytes.size()) content.resize(position + bytes.size());
  content.replace(position, bytes.size(), bytes);
  unchanged = std::min(unchanged, position);
}

void FileNode::Truncate() {
  content.clear();
  unchanged = 0;
}

void FileNode::Flush() {
  flushed = content;
  unchanged = content.size();
}

void FileNode::FlushPartly() {
  unchanged += (content.size() - unchanged) / 2;
}

void FileNode::Settle(bool keep_size) {
  if (keep_size) {
    std::fill(content.begin() + static_cast<std::ptrdiff_t>(unchanged), content.end(), '\0');
  } else {
    content = flushed;
  }
  Flush();
}

}  // namespace simulation
