// What a volume holds: files, directories and links, each with what the disk would still have of it
// after a power cut.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/codes.h"
#include "platform/crypto.h"

namespace simulation {

// A signature embedded in a file: good as long as the content is the one that was signed.
struct EmbeddedSignature {
  std::wstring signer;
  kestrelon::platform::Sha256Digest digest{};
};

// What a file's content would say to the platform if it were a real image.
struct FileProperties {
  std::optional<EmbeddedSignature> signature;
  kestrelon::platform::Code trust_result = kestrelon::platform::kSuccess;
  // Values of the version resource by case-folded sub-block.
  std::map<std::wstring, std::wstring> version_texts;
  std::map<std::wstring, std::vector<std::uint8_t>> version_bytes;
  // Resources of raw data by case-folded name. A file with any is an executable image, whatever
  // its content; so is one that begins like the system's.
  std::map<std::wstring, std::vector<std::uint8_t>> raw_data;

  bool any() const {
    return signature || !version_texts.empty() || !version_bytes.empty() || !raw_data.empty();
  }
};

struct FileNode {
  std::uint64_t id = 0;
  std::wstring name;               // in the case it was given
  std::weak_ptr<FileNode> parent;  // empty for the root of a volume
  std::uint32_t attributes = 0;
  std::int64_t write_time = 0;
  std::int64_t change_number = 0;
  std::vector<std::uint8_t> protection;  // the descriptor put on it last
  FileProperties properties;

  std::map<std::wstring, std::shared_ptr<FileNode>> entries;  // a directory's, by folded name
  std::wstring link_target;                                   // a link's

  // A file's bytes: as programs see them, as the disk had them at the last flush, and how many at
  // the start of `content` are those of `flushed`.
  std::string content;
  std::string flushed;
  std::size_t unchanged = 0;

  bool is_directory() const;
  bool is_link() const { return !link_target.empty(); }
  bool is_read_only() const;

  // The full path, by the names in force: "C:\Windows".
  std::wstring Path() const;
  // Whether this is `other` or lies below it.
  bool IsWithin(const FileNode& other) const;

  // Puts bytes at `position`, which is at most the size.
  void Store(std::size_t position, std::string_view bytes);
  void Truncate();
  // The bytes are on the disk.
  void Flush();
  // Half of what was not on the disk yet is.
  void FlushPartly();
  // Power has gone: unflushed bytes read as NUL, or with `keep_size` false are not there.
  void Settle(bool keep_size);
};

}  // namespace simulation
