// Files and directories. Every call may block on the disk and answers with the platform's code.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/codes.h"
#include "platform/handle.h"

namespace kestrelon::platform {

// What OpenFile asks for; the values are the platform's and may be combined where they are bits.
enum FileAccess : std::uint32_t {
  kReadAttributes = 0x80,
  kAppendData = 0x4,
  kGenericRead = 0x80000000,
  kGenericWrite = 0x40000000,
};
enum FileShare : std::uint32_t {
  kShareNone = 0,
  kShareRead = 1,
  kShareWrite = 2,
  kShareDelete = 4,
  kShareAll = 7,
};
enum FileDisposition : std::uint32_t {
  kCreateAlways = 2,
  kOpenExisting = 3,
  kOpenAlways = 4,
};
enum FileOpenFlags : std::uint32_t {
  kNormalFile = 0x80,
  kSequentialScan = 0x08000000,
  kBackupSemantics = 0x02000000,
};
enum FileAttributeBits : std::uint32_t {
  kAttributeReadOnly = 0x1,
  kAttributeDirectory = 0x10,
  kAttributeReparsePoint = 0x400,
};
enum MoveFlags : std::uint32_t {
  kReplaceExisting = 1,
  kWriteThrough = 8,
};

// An open file.
void CloseFile(std::uintptr_t handle);
using File = Handle<&CloseFile>;

// CreateFileW. `file` is changed on success only.
[[nodiscard]] Code OpenFile(const std::wstring& path, std::uint32_t access, std::uint32_t share,
                            FileDisposition disposition, std::uint32_t flags, File& file);

// One read of at most `size` bytes at the file's position; `read` is 0 at the end of the file.
[[nodiscard]] Code ReadFileBytes(const File& file, void* bytes, std::uint32_t size,
                                 std::uint32_t& read);

// One write of `size` bytes at the file's position, or at its end when opened to append.
[[nodiscard]] Code WriteFileBytes(const File& file, const void* bytes, std::uint32_t size,
                                  std::uint32_t& written);

// Puts what was written onto the disk before it returns.
[[nodiscard]] Code FlushFile(const File& file);

[[nodiscard]] Code FileSize(const File& file, std::uint64_t& size);

// The path of an open file behind links and short names, with the DOS volume name ("\\?\C:\...").
[[nodiscard]] Code FinalPathName(const File& file, std::wstring& path);

// The file's record of the volume's change journal as the volume gives it; its layout is read by
// identity/file_usn.h.
[[nodiscard]] Code ReadUsnRecord(const File& file, std::vector<std::uint8_t>& record);

struct FileInformation {
  std::uint32_t attributes = 0;  // FileAttributeBits
  std::uint64_t size = 0;
  std::uint64_t write_time = 0;  // 100 ns steps since 1601-01-01 UTC
};

[[nodiscard]] Code QueryFileInformation(const std::wstring& path, FileInformation& information);

struct FoundFile {
  std::wstring name;  // bare name, "." and ".." are left out
  std::uint32_t attributes = 0;
};

// The entries that match a path whose last component may hold "*" and "?", in the platform's
// order, at most `most`. No match answers kFileNotFound.
[[nodiscard]] Code FindFiles(const std::wstring& pattern, std::size_t most,
                             std::vector<FoundFile>& found);

// MoveFileExW with MoveFlags. With kReplaceExisting the target is replaced in one step.
[[nodiscard]] Code RenameFile(const std::wstring& from, const std::wstring& to,
                              std::uint32_t flags);

// CopyFileW, replacing an existing target.
[[nodiscard]] Code DuplicateFile(const std::wstring& from, const std::wstring& to);

Code RemoveFile(const std::wstring& path);

Code MakeDirectory(const std::wstring& path);

}  // namespace kestrelon::platform
