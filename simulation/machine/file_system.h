// The machine's volumes: a file system without regard to case, with sharing between open files,
// change numbers, and a power cut that loses what was not flushed.
//
// What is durable: the bytes of a file at its last FlushFile; the names (create, rename, delete) at
// the last flush of any file or write-through rename, in the order they were made. What a test puts
// in place itself is durable at once.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/files.h"
#include "simulation/machine/catalogs.h"
#include "simulation/machine/clock.h"
#include "simulation/machine/directory_watches.h"
#include "simulation/machine/faults.h"
#include "simulation/machine/file_node.h"
#include "simulation/machine/metadata_journal.h"

namespace simulation {

// What a power cut leaves of names that were not durable yet, and with them of sizes.
enum class CutMode {
  kLoseMetadata,  // they are as they were; unflushed bytes are missing
  kKeepMetadata,  // they had just reached the disk; unflushed bytes read as NUL
};

// Any thread. Paths are "C:\..." or "\\server\share\..."; missing volumes are made by Write,
// MakeDirectories and SetLink.
class FileSystem {
 public:
  FileSystem(Faults& faults, Clock& clock, DirectoryWatches& watches);

  // --- The tests' side: no sharing, no faults, not counted, durable at once. Giving a property
  // to a file that is not there ends the process. ---

  // Writes a whole file, making its parents. Properties that were given to it stay.
  void Write(const std::wstring& path, std::string_view bytes);
  std::optional<std::string> Read(const std::wstring& path) const;
  bool Exists(const std::wstring& path) const;
  // Removes a file, link or whole directory, also a watched one; does nothing when there is none.
  void Remove(const std::wstring& path);
  void MakeDirectories(const std::wstring& path);
  // Moves write time and change number, the content stays.
  void Touch(const std::wstring& path);
  // Puts the write time back or forth; this too moves the change number.
  void SetWriteTime(const std::wstring& path, std::int64_t time);
  // FileAttributeBits; the directory bit stays as it is.
  void SetAttributes(const std::wstring& path, std::uint32_t attributes);
  // Makes `path` a symbolic link to a file or directory.
  void SetLink(const std::wstring& path, const std::wstring& final_path);
  // The bare names in a directory, in the platform's order.
  std::vector<std::wstring> Names(const std::wstring& directory) const;
  // The descriptor that ProtectFile put on the file; empty for none.
  std::vector<std::uint8_t> Protection(const std::wstring& path) const;

  // Embeds a signature of the present content.
  void Sign(const std::wstring& path, const std::wstring& signer);
  // Puts the hash of the present content into a catalog signed by `signer`.
  void SignInCatalog(const std::wstring& path, const std::wstring& signer,
                     const std::wstring& algorithm = L"SHA256");
  // What verifying a good signature of the file answers instead of success. The three codes of
  // failing revocation are answered only by a pass that asks for revocation.
  void SetTrustResult(const std::wstring& path, Code code);
  // A value of the version resource, such as "\StringFileInfo\040904b0\ProductName".
  void SetVersion(const std::wstring& path, const std::wstring& sub_block,
                  const std::wstring& text);
  void SetVersion(const std::wstring& path, const std::wstring& sub_block,
                  const std::vector<std::uint8_t>& bytes);
  // A resource of raw data; it lies beside the content, which a signature and a hash cover.
  void SetRawData(const std::wstring& path, const std::wstring& name, std::string_view bytes);
  // From now on each file that has the same content as this one now has its signature and resources
  // too, unless it was given any itself. Those of a real image lie in the content.
  void SpreadProperties(const std::wstring& path);

  // Each write and copy fails with kDiskFull.
  void SetFull(bool full);
  // The n-th of them from now is the first that fails; n from 1.
  void FillUpAt(std::uint64_t n);
  bool full() const;
  // What each call of the seam does first, on the caller's thread: where a disk is slow, wait.
  void SlowDown(std::function<void()> wait);
  // Without a change journal ReadUsnRecord fails with kNotSupported.
  void SetUsnSupported(bool supported);
  // Another program keeps the file open for reading, sharing what FileShare bits say, until LetGo.
  void HoldOpen(const std::wstring& path, std::uint32_t share = kestrelon::platform::kShareNone);
  void LetGo(const std::wstring& path);
  // Files opened through the seam and not closed.
  std::size_t open_handles() const;

  // The n-th operation from now that changes a volume (a creating or emptying open, write, flush,
  // rename, copy, delete, new directory, new protection), or that CountChange is told of (a change
  // of the registry, the start of a program), loses power in its middle; n from 1.
  void CutPowerAt(std::uint64_t n, CutMode mode);
  bool power_lost() const { return faults_.power_lost(); }
  // Operations counted since the machine was made or CutPowerAt was called last.
  std::uint64_t operations() const;
  // Power is back; all handles are dead. Without a power cut before, everything is flushed.
  void PowerOn();

  // --- The seam's side: the platform's calls, with its codes. ---

  // To come before each of them: takes the time that the disk takes.
  void TakeTime() const;

  Code Open(const std::wstring& path, std::uint32_t access, std::uint32_t share,
            std::uint32_t disposition, std::uint32_t flags, std::uintptr_t& handle);
  void Close(std::uintptr_t handle);
  Code ReadBytes(std::uintptr_t handle, void* bytes, std::uint32_t size, std::uint32_t& read);
  Code WriteBytes(std::uintptr_t handle, const void* bytes, std::uint32_t size,
                  std::uint32_t& written);
  Code Flush(std::uintptr_t handle);
  Code Size(std::uintptr_t handle, std::uint64_t& size) const;
  Code FinalPath(std::uintptr_t handle, std::wstring& path) const;
  Code UsnRecord(std::uintptr_t handle, std::vector<std::uint8_t>& record) const;
  // The content and the properties behind a handle, for the verification of signatures.
  Code Inspect(std::uintptr_t handle, std::string& content, FileProperties& properties) const;
  // The first signer whose catalog holds this hash.
  std::optional<std::wstring> CatalogSigner(const std::wstring& algorithm,
                                            const std::vector<std::uint8_t>& hash) const;

  Code Information(const std::wstring& path,
                   kestrelon::platform::FileInformation& information) const;
  Code Find(const std::wstring& pattern, std::size_t most,
            std::vector<kestrelon::platform::FoundFile>& found) const;
  Code Rename(const std::wstring& from, const std::wstring& to, std::uint32_t flags);
  Code Copy(const std::wstring& from, const std::wstring& to);
  Code Delete(const std::wstring& path);
  Code MakeDirectory(const std::wstring& path);
  Code Protect(const std::wstring& path, const std::vector<std::uint8_t>& descriptor);
  Code Watch(const std::wstring& directory, std::uint32_t filter, std::uintptr_t& handle);
  // What starting a program from a file, in a directory, comes to; empty for a directory that is
  // not named.
  Code TryProgram(const std::wstring& path, const std::wstring& directory);

  // An operation of another part of the machine, one that reaches the disk at once. When the power
  // goes in its middle, it fails, and has been made if metadata is kept. `change` is called under
  // the guard.
  Code CountChange(const std::function<void()>& change);

 private:
  using Node = std::shared_ptr<FileNode>;

  // Where a path leads, behind the links on the way.
  struct Place {
    Node directory;     // null for the root of a volume
    std::wstring name;  // as the path has it
    Node node;          // null if there is none
  };

  struct OpenedFile {
    Node node;
    std::uint32_t access = 0;
    std::uint32_t share = 0;
    std::size_t position = 0;
  };

  // Whether a link that a path ends in is followed or is what is meant.
  enum class LastLink { kFollow, kKeep };

  // All below need the guard.

  // Finds a place; success also when only the last name is missing.
  Code Locate(const std::wstring& path, LastLink last, Place& place, int links = 0) const;
  // As Locate, but a missing last name is kFileNotFound.
  Code LocateExisting(const std::wstring& path, LastLink last, Place& place) const;
  // The node behind a path's links, or null.
  Node FindNode(const std::wstring& path) const;
  // As FindNode, but ends the process when there is none: a mistake in the test.
  Node WantedNode(const std::wstring& path) const;
  // The directory of a path with all above it, made where missing.
  Node MakeTree(const std::wstring& path);
  // The file or link at a path, made where missing.
  Node MakeLeaf(const std::wstring& path);
  Node NewNode(std::uint32_t attributes);
  void StampChange(FileNode& node);  // the change number moves
  void StampWrite(FileNode& node);   // and the write time
  // Names come and go, in the journal and told to those who watch.
  void PutEntry(const Node& directory, const std::wstring& name, const Node& node);
  void TakeEntry(const Place& place);
  // Tells those who watch a node's directory what happened to it.
  void TellChange(const FileNode& node, std::uint32_t kinds);
  void TellContent(const FileNode& node, std::size_t size_before);

  // Whether open files allow a further open of a node.
  bool SharingAllows(const FileNode& node, std::uint32_t access, std::uint32_t share) const;
  bool IsOpenWithin(const FileNode& node) const;
  Code Opened(std::uintptr_t handle, std::uint32_t access_needed, const OpenedFile** file) const;
  Code CheckOpen(const Place& place, std::uint32_t access, std::uint32_t share,
                 std::uint32_t disposition, std::uint32_t flags) const;
  Code CheckRename(const Place& source, const Place& target, std::uint32_t flags) const;
  Code CheckCopy(const Place& source, const Place& target) const;

  // Counts one write or copy of at least a byte; whether there is no room for it.
  bool DiskIsFull();
  // Counts one changing operation; whether the power goes in its middle.
  bool PowerGoesNow();
  void LosePower();
  // Ends an operation that has changed names only.
  Code FinishChange();

  Faults& faults_;
  Clock& clock_;
  DirectoryWatches& watches_;

  mutable std::mutex mutex_;            // guards all below
  std::map<std::wstring, Node> roots_;  // by case-folded name: "C:", "\\SERVER\SHARE"
  MetadataJournal journal_;
  Catalogs catalogs_;
  std::map<std::string, FileProperties> spread_properties_;  // by content
  std::map<std::uintptr_t, OpenedFile> handles_;
  std::vector<OpenedFile> held_;  // by other programs
  std::uintptr_t last_handle_ = 0x100;
  std::uint64_t last_id_ = 0x1000;
  std::int64_t last_change_number_ = 0x10000;
  std::function<void()> slowness_;  // none on a fast disk
  bool full_ = false;
  std::uint64_t writes_to_full_ = 0;  // 1: the next finds no room; 0 for never
  bool usn_supported_ = true;
  std::uint64_t operations_ = 0;
  std::uint64_t cut_at_ = 0;  // 0 for never
  CutMode cut_mode_ = CutMode::kLoseMetadata;
};

}  // namespace simulation
