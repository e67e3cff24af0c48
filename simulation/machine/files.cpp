#include "platform/files.h"

#include "simulation/machine/machine.h"

namespace kestrelon::platform {

using simulation::TheMachine;

namespace {

Code NextOnDisk(const char* name) {
  TheMachine().files.TakeTime();
  return TheMachine().faults.Next(name);
}

}  // namespace

void CloseFile(std::uintptr_t handle) {
  TheMachine().files.Close(handle);
}

Code OpenFile(const std::wstring& path, std::uint32_t access, std::uint32_t share,
              FileDisposition disposition, std::uint32_t flags, File& file) {
  if (const Code fault = NextOnDisk("OpenFile")) return fault;
  std::uintptr_t handle = 0;
  const Code code = TheMachine().files.Open(path, access, share, disposition, flags, handle);
  if (code == kSuccess) file.Adopt(handle);
  return code;
}

Code ReadFileBytes(const File& file, void* bytes, std::uint32_t size, std::uint32_t& read) {
  if (const Code fault = NextOnDisk("ReadFileBytes")) return fault;
  return TheMachine().files.ReadBytes(file.handle(), bytes, size, read);
}

Code WriteFileBytes(const File& file, const void* bytes, std::uint32_t size,
                    std::uint32_t& written) {
  if (const Code fault = NextOnDisk("WriteFileBytes")) return fault;
  return TheMachine().files.WriteBytes(file.handle(), bytes, size, written);
}

Code FlushFile(const File& file) {
  if (const Code fault = NextOnDisk("FlushFile")) return fault;
  return TheMachine().files.Flush(file.handle());
}

Code FileSize(const File& file, std::uint64_t& size) {
  if (const Code fault = NextOnDisk("FileSize")) return fault;
  return TheMachine().files.Size(file.handle(), size);
}

Code FinalPathName(const File& file, std::wstring& path) {
  if (const Code fault = NextOnDisk("FinalPathName")) return fault;
  return TheMachine().files.FinalPath(file.handle(), path);
}

Code ReadUsnRecord(const File& file, std::vector<std::uint8_t>& record) {
  if (const Code fault = NextOnDisk("ReadUsnRecord")) return fault;
  return TheMachine().files.UsnRecord(file.handle(), record);
}

Code QueryFileInformation(const std::wstring& path, FileInformation& information) {
  if (const Code fault = NextOnDisk("QueryFileInformation")) return fault;
  return TheMachine().files.Information(path, information);
}

Code FindFiles(const std::wstring& pattern, std::size_t most, std::vector<FoundFile>& found) {
  if (const Code fault = NextOnDisk("FindFiles")) return fault;
  return TheMachine().files.Find(pattern, most, found);
}

Code RenameFile(const std::wstring& from, const std::wstring& to, std::uint32_t flags) {
  if (const Code fault = NextOnDisk("RenameFile")) return fault;
  return TheMachine().files.Rename(from, to, flags);
}

Code DuplicateFile(const std::wstring& from, const std::wstring& to) {
  if (const Code fault = NextOnDisk("DuplicateFile")) return fault;
  return TheMachine().files.Copy(from, to);
}

Code RemoveFile(const std::wstring& path) {
  if (const Code fault = NextOnDisk("RemoveFile")) return fault;
  return TheMachine().files.Delete(path);
}

Code MakeDirectory(const std::wstring& path) {
  if (const Code fault = NextOnDisk("MakeDirectory")) return fault;
  return TheMachine().files.MakeDirectory(path);
}

}  // namespace kestrelon::platform
