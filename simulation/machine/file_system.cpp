// The tests' side of the file system: what is put in place and looked at behind the product's back.
#include "simulation/machine/file_system.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "base/text.h"
#include "simulation/machine/digest.h"
#include "simulation/machine/letter_case.h"
#include "simulation/machine/path_text.h"

namespace simulation {
namespace {

using kestrelon::platform::kAttributeDirectory;
using kestrelon::platform::kAttributeReparsePoint;
using kestrelon::platform::kGenericRead;
using kestrelon::platform::kNotifyAttributes;
using kestrelon::platform::kNotifyLastWrite;

constexpr std::uint32_t kAttributeArchive = 0x20;

void SettleTree(FileNode& node, bool keep_size) {
  node.Settle(keep_size);
  for (const auto& [folded, entry] : node.entries) SettleTree(*entry, keep_size);
}

// A test that prepares what isn't there would prove nothing.
[[noreturn]] void StopForPath(const std::wstring& path) {
  std::fprintf(stderr, "No such file on the simulated machine: %s\n",
               kestrelon::Utf8FromWide(path).c_str());
  std::abort();
}

void FlushTree(FileNode& node) {
  node.Flush();
  for (const auto& [folded, entry] : node.entries) FlushTree(*entry);
}

}  // namespace

FileSystem::FileSystem(Faults& faults, Clock& clock, DirectoryWatches& watches)
    : faults_(faults), clock_(clock), watches_(watches) {}

void FileSystem::Write(const std::wstring& path, std::string_view bytes) {
  const std::lock_guard lock(mutex_);
  Node node = FindNode(path);
  if (!node) node = MakeLeaf(path);
  const std::size_t size_before = node->content.size();
  node->content = bytes;
  node->Flush();
  StampWrite(*node);
  TellContent(*node, size_before);
  journal_.Commit();
}

std::optional<std::string> FileSystem::Read(const std::wstring& path) const {
  const std::lock_guard lock(mutex_);
  const Node node = FindNode(path);
  if (!node || node->is_directory()) return std::nullopt;
  return node->content;
}

bool FileSystem::Exists(const std::wstring& path) const {
  const std::lock_guard lock(mutex_);
  return FindNode(path) != nullptr;
}

void FileSystem::Remove(const std::wstring& path) {
  const std::lock_guard lock(mutex_);
  Place place;
  if (LocateExisting(path, LastLink::kKeep, place) || !place.directory) return;
  TakeEntry(place);
  watches_.Lose(*place.node);
  journal_.Commit();
}

void FileSystem::MakeDirectories(const std::wstring& path) {
  const std::lock_guard lock(mutex_);
  MakeTree(path);
  journal_.Commit();
}

void FileSystem::Touch(const std::wstring& path) {
  const std::lock_guard lock(mutex_);
  const Node node = WantedNode(path);
  StampWrite(*node);
  TellChange(*node, kNotifyLastWrite);
}

void FileSystem::SetWriteTime(const std::wstring& path, std::int64_t time) {
  const std::lock_guard lock(mutex_);
  const Node node = WantedNode(path);
  node->write_time = time;
  StampChange(*node);
  TellChange(*node, kNotifyLastWrite);
}

void FileSystem::SetAttributes(const std::wstring& path, std::uint32_t attributes) {
  const std::lock_guard lock(mutex_);
  const Node node = WantedNode(path);
  const std::uint32_t kept = node->attributes & kAttributeDirectory;
  node->attributes = (attributes & ~std::uint32_t{kAttributeDirectory}) | kept;
  StampChange(*node);
  TellChange(*node, kNotifyAttributes);
}

void FileSystem::SetLink(const std::wstring& path, const std::wstring& final_path) {
  const std::lock_guard lock(mutex_);
  const Node target = FindNode(final_path);
  const Node link = MakeLeaf(path);
  link->link_target = final_path;
  link->attributes = kAttributeReparsePoint;
  if (target && target->is_directory()) link->attributes |= kAttributeDirectory;
  journal_.Commit();
}

std::vector<std::wstring> FileSystem::Names(const std::wstring& directory) const {
  const std::lock_guard lock(mutex_);
  std::vector<std::wstring> names;
  if (const Node node = FindNode(directory)) {
    for (const auto& [folded, entry] : node->entries) names.push_back(entry->name);
  }
  return names;
}

std::vector<std::uint8_t> FileSystem::Protection(const std::wstring& path) const {
  const std::lock_guard lock(mutex_);
  const Node node = FindNode(path);
  return node ? node->protection : std::vector<std::uint8_t>();
}

void FileSystem::Sign(const std::wstring& path, const std::wstring& signer) {
  const std::lock_guard lock(mutex_);
  const Node node = WantedNode(path);
  EmbeddedSignature signature{signer, {}};
  const std::vector<std::uint8_t> digest = DigestOf(L"SHA256", node->content);
  std::copy_n(digest.begin(), signature.digest.size(), signature.digest.begin());
  node->properties.signature = signature;
}

void FileSystem::SignInCatalog(const std::wstring& path, const std::wstring& signer,
                               const std::wstring& algorithm) {
  const std::lock_guard lock(mutex_);
  const Node node = WantedNode(path);
  catalogs_.Add(signer, algorithm, DigestOf(algorithm, node->content));
}

void FileSystem::SetTrustResult(const std::wstring& path, Code code) {
  const std::lock_guard lock(mutex_);
  WantedNode(path)->properties.trust_result = code;
}

void FileSystem::SetVersion(const std::wstring& path, const std::wstring& sub_block,
                            const std::wstring& text) {
  const std::lock_guard lock(mutex_);
  WantedNode(path)->properties.version_texts[FoldCase(sub_block)] = text;
}

void FileSystem::SetVersion(const std::wstring& path, const std::wstring& sub_block,
                            const std::vector<std::uint8_t>& bytes) {
  const std::lock_guard lock(mutex_);
  WantedNode(path)->properties.version_bytes[FoldCase(sub_block)] = bytes;
}

void FileSystem::SetRawData(const std::wstring& path, const std::wstring& name,
                            std::string_view bytes) {
  const std::lock_guard lock(mutex_);
  WantedNode(path)->properties.raw_data[FoldCase(name)].assign(bytes.begin(), bytes.end());
}

void FileSystem::SpreadProperties(const std::wstring& path) {
  const std::lock_guard lock(mutex_);
  const Node node = WantedNode(path);
  spread_properties_[node->content] = node->properties;
}

void FileSystem::SetFull(bool full) {
  const std::lock_guard lock(mutex_);
  full_ = full;
}

void FileSystem::FillUpAt(std::uint64_t n) {
  const std::lock_guard lock(mutex_);
  writes_to_full_ = n;
}

bool FileSystem::full() const {
  const std::lock_guard lock(mutex_);
  return full_;
}

void FileSystem::SlowDown(std::function<void()> wait) {
  const std::lock_guard lock(mutex_);
  slowness_ = std::move(wait);
}

void FileSystem::TakeTime() const {
  std::function<void()> wait;
  {
    const std::lock_guard lock(mutex_);
    wait = slowness_;
  }
  if (wait) wait();
}

void FileSystem::SetUsnSupported(bool supported) {
  const std::lock_guard lock(mutex_);
  usn_supported_ = supported;
}

void FileSystem::HoldOpen(const std::wstring& path, std::uint32_t share) {
  const std::lock_guard lock(mutex_);
  held_.push_back({WantedNode(path), kGenericRead, share, 0});
}

void FileSystem::LetGo(const std::wstring& path) {
  const std::lock_guard lock(mutex_);
  const Node node = FindNode(path);
  std::erase_if(held_, [&](const OpenedFile& file) { return file.node == node; });
}

std::size_t FileSystem::open_handles() const {
  const std::lock_guard lock(mutex_);
  return handles_.size();
}

void FileSystem::CutPowerAt(std::uint64_t n, CutMode mode) {
  const std::lock_guard lock(mutex_);
  operations_ = 0;
  cut_at_ = n;
  cut_mode_ = mode;
}

std::uint64_t FileSystem::operations() const {
  const std::lock_guard lock(mutex_);
  return operations_;
}

void FileSystem::PowerOn() {
  const std::lock_guard lock(mutex_);
  if (!faults_.power_lost()) {
    journal_.Commit();
    for (const auto& [folded, root] : roots_) FlushTree(*root);
  }
  handles_.clear();
  held_.clear();
  watches_.DropHandles();
  cut_at_ = 0;
  faults_.SetPower(true);
}

Code FileSystem::CountChange(const std::function<void()>& change) {
  const std::lock_guard lock(mutex_);
  if (power_lost()) return kPowerLost;
  const bool power_goes = PowerGoesNow();
  if (!power_goes || cut_mode_ == CutMode::kKeepMetadata) change();
  if (!power_goes) return kestrelon::platform::kSuccess;
  LosePower();
  return kPowerLost;
}

bool FileSystem::DiskIsFull() {
  if (writes_to_full_ > 0 && --writes_to_full_ == 0) full_ = true;
  return full_;
}

bool FileSystem::PowerGoesNow() {
  return ++operations_ == cut_at_;
}

void FileSystem::LosePower() {
  const bool keep = cut_mode_ == CutMode::kKeepMetadata;
  if (keep) {
    journal_.Commit();
  } else {
    journal_.Undo();
  }
  for (const auto& [folded, root] : roots_) SettleTree(*root, keep);
  handles_.clear();
  held_.clear();
  watches_.DropHandles();
  faults_.SetPower(false);
}

FileSystem::Node FileSystem::WantedNode(const std::wstring& path) const {
  Node node = FindNode(path);
  if (!node) StopForPath(path);
  return node;
}

FileSystem::Node FileSystem::MakeTree(const std::wstring& path) {
  const std::optional<ParsedPath> parsed = ParsePath(path);
  if (!parsed) StopForPath(path);
  Node& root = roots_[FoldCase(parsed->root)];
  if (!root) {
    root = NewNode(kAttributeDirectory);
    root->name = parsed->root;
  }
  Node node = root;
  for (const std::wstring& name : parsed->names) {
    const auto found = node->entries.find(FoldCase(name));
    Node next = found != node->entries.end() ? found->second : NewNode(kAttributeDirectory);
    if (found == node->entries.end()) PutEntry(node, name, next);
    if (next->is_link()) next = FindNode(next->link_target);
    if (!next) StopForPath(path);
    node = next;
  }
  return node;
}

FileSystem::Node FileSystem::MakeLeaf(const std::wstring& path) {
  const std::size_t cut = path.find_last_of(L"\\/");
  const Node directory = MakeTree(path.substr(0, cut));
  Node node = NewNode(kAttributeArchive);
  PutEntry(directory, path.substr(cut + 1), node);
  return node;
}

}  // namespace simulation
