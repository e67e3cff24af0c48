#include "platform/files.h"

#include "platform/windows/owned.h"

#include <winioctl.h>

namespace kestrelon::platform {
namespace {

// The longest path there is.
constexpr DWORD kLongestPath = 32768;
// Room for a journal record of version 2, which a call without input asks for, with the longest
// file name.
constexpr DWORD kUsnRecordRoom = 584;

HANDLE NativeHandle(const File& file) {
  return reinterpret_cast<HANDLE>(file.handle());
}

Code Outcome(BOOL succeeded) {
  return succeeded ? kSuccess : GetLastError();
}

std::uint64_t Combine(DWORD high, DWORD low) {
  return std::uint64_t{high} << 32 | low;
}

bool IsDotName(const wchar_t* name) {
  return name[0] == L'.' && (name[1] == 0 || (name[1] == L'.' && name[2] == 0));
}

}  // namespace

void CloseFile(std::uintptr_t handle) {
  CloseHandle(reinterpret_cast<HANDLE>(handle));
}

Code OpenFile(const std::wstring& path, std::uint32_t access, std::uint32_t share,
              FileDisposition disposition, std::uint32_t flags, File& file) {
  const HANDLE handle =
      CreateFileW(path.c_str(), access, share, nullptr, disposition, flags, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return GetLastError();
  file.Adopt(reinterpret_cast<std::uintptr_t>(handle));
  return kSuccess;
}

Code ReadFileBytes(const File& file, void* bytes, std::uint32_t size, std::uint32_t& read) {
  DWORD count = 0;
  if (!ReadFile(NativeHandle(file), bytes, size, &count, nullptr)) return GetLastError();
  read = count;
  return kSuccess;
}

Code WriteFileBytes(const File& file, const void* bytes, std::uint32_t size,
                    std::uint32_t& written) {
  DWORD count = 0;
  if (!WriteFile(NativeHandle(file), bytes, size, &count, nullptr)) return GetLastError();
  written = count;
  return kSuccess;
}

Code FlushFile(const File& file) {
  return Outcome(FlushFileBuffers(NativeHandle(file)));
}

Code FileSize(const File& file, std::uint64_t& size) {
  LARGE_INTEGER value{};
  if (!GetFileSizeEx(NativeHandle(file), &value)) return GetLastError();
  size = static_cast<std::uint64_t>(value.QuadPart);
  return kSuccess;
}

Code FinalPathName(const File& file, std::wstring& path) {
  std::wstring buffer(kLongestPath, L'\0');
  const DWORD length = GetFinalPathNameByHandleW(NativeHandle(file), buffer.data(), kLongestPath,
                                                 FILE_NAME_NORMALIZED | VOLUME_NAME_DOS);
  if (length == 0) return GetLastError();
  if (length >= kLongestPath) return kInsufficientBuffer;
  path.assign(buffer, 0, length);
  return kSuccess;
}

Code ReadUsnRecord(const File& file, std::vector<std::uint8_t>& record) {
  std::vector<std::uint8_t> buffer(kUsnRecordRoom);
  DWORD size = 0;
  if (!DeviceIoControl(NativeHandle(file), FSCTL_READ_FILE_USN_DATA, nullptr, 0, buffer.data(),
                       kUsnRecordRoom, &size, nullptr)) {
    return GetLastError();
  }
  buffer.resize(size);
  record = std::move(buffer);
  return kSuccess;
}

Code QueryFileInformation(const std::wstring& path, FileInformation& information) {
  WIN32_FILE_ATTRIBUTE_DATA data{};
  if (!GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data)) return GetLastError();
  information.attributes = data.dwFileAttributes;
  information.size = Combine(data.nFileSizeHigh, data.nFileSizeLow);
  information.write_time =
      Combine(data.ftLastWriteTime.dwHighDateTime, data.ftLastWriteTime.dwLowDateTime);
  return kSuccess;
}

Code FindFiles(const std::wstring& pattern, std::size_t most, std::vector<FoundFile>& found) {
  WIN32_FIND_DATAW data{};
  const FindHandle search(
      FindFirstFileExW(pattern.c_str(), FindExInfoBasic, &data, FindExSearchNameMatch, nullptr, 0));
  if (!search) return GetLastError();
  std::vector<FoundFile> entries;
  while (entries.size() < most) {
    if (!IsDotName(data.cFileName)) entries.push_back({data.cFileName, data.dwFileAttributes});
    if (FindNextFileW(search.get(), &data)) continue;
    const Code end = GetLastError();
    if (end != kNoMoreFiles) return end;
    break;
  }
  if (entries.empty()) return kFileNotFound;
  found = std::move(entries);
  return kSuccess;
}

Code RenameFile(const std::wstring& from, const std::wstring& to, std::uint32_t flags) {
  return Outcome(MoveFileExW(from.c_str(), to.c_str(), flags));
}

Code DuplicateFile(const std::wstring& from, const std::wstring& to) {
  return Outcome(CopyFileW(from.c_str(), to.c_str(), FALSE));
}

Code RemoveFile(const std::wstring& path) {
  return Outcome(DeleteFileW(path.c_str()));
}

Code MakeDirectory(const std::wstring& path) {
  return Outcome(CreateDirectoryW(path.c_str(), nullptr));
}

}  // namespace kestrelon::platform
