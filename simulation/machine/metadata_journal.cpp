#include "simulation/machine/metadata_journal.h"

#include "simulation/machine/letter_case.h"

namespace simulation {

namespace {

void Enter(const std::shared_ptr<FileNode>& directory, const std::wstring& name,
           const std::shared_ptr<FileNode>& node) {
  node->name = name;
  node->parent = directory;
  directory->entries[FoldCase(name)] = node;
}

}  // namespace

void MetadataJournal::Remember(const Node& directory, const std::wstring& folded) {
  Change change{directory, folded, {}, nullptr};
  const auto found = directory->entries.find(folded);
  if (found != directory->entries.end()) {
    change.name_before = found->second->name;
    change.before = found->second;
  }
  changes_.push_back(std::move(change));
}

void MetadataJournal::Put(const Node& directory, const std::wstring& name, const Node& node) {
  Remember(directory, FoldCase(name));
  Enter(directory, name, node);
}

void MetadataJournal::Take(const Node& directory, const std::wstring& name) {
  const std::wstring folded = FoldCase(name);
  Remember(directory, folded);
  directory->entries.erase(folded);
}

void MetadataJournal::Truncate(const Node& file) {
  file->Truncate();
  changes_.push_back({file, {}, {}, nullptr});
}

void MetadataJournal::Commit() {
  for (const Change& change : changes_) {
    // What the disk had of an emptied file is beyond recall now.
    if (change.folded.empty()) change.node->flushed.resize(change.node->unchanged);
  }
  changes_.clear();
}

void MetadataJournal::Undo() {
  for (auto change = changes_.rbegin(); change != changes_.rend(); ++change) {
    if (change->folded.empty()) continue;  // the bytes come back when the file settles
    if (change->before) {
      Enter(change->node, change->name_before, change->before);
    } else {
      change->node->entries.erase(change->folded);
    }
  }
  changes_.clear();
}

}  // namespace simulation
