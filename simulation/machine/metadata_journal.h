// The order in which names reach the disk. A volume logs its metadata in order: making one change
// durable makes all before it durable, and a power cut takes back the last ones first.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "simulation/machine/file_node.h"

namespace simulation {

// Guarded by the guard of the file system that owns it.
class MetadataJournal {
 public:
  using Node = std::shared_ptr<FileNode>;

  // Puts an entry into a directory in place of the one of the same name.
  void Put(const Node& directory, const std::wstring& name, const Node& node);

  // Takes the entry of this name out of a directory.
  void Take(const Node& directory, const std::wstring& name);

  // Empties a file.
  void Truncate(const Node& file);

  // All changes so far are on the disk.
  void Commit();

  // Takes back all changes since the last Commit.
  void Undo();

 private:
  struct Change {
    Node node;            // the directory, or the truncated file
    std::wstring folded;  // empty for a truncation
    std::wstring name_before;
    Node before;  // null for none
  };

  void Remember(const Node& directory, const std::wstring& folded);

  std::vector<Change> changes_;
};

}  // namespace simulation
