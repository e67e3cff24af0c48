#include "core/data_dir.h"

#include "platform/files.h"
#include "platform/paths.h"
#include "platform/security.h"

namespace kestrelon {
namespace {

// Full access for SYSTEM and the Administrators group, handed down to files and directories,
// nothing taken from above.
constexpr const wchar_t* kDataDirDescriptor = L"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)";

}  // namespace

std::wstring DataDir() {
  std::wstring program_data;
  if (platform::ProgramDataFolder(program_data) != platform::kSuccess) {
    program_data = L"C:\\ProgramData";
  }
  return program_data + L"\\Kestrelon";
}

void SecureDataDir() {
  const std::wstring directory = DataDir();
  (void)platform::MakeDirectory(directory);  // an existing directory is as good
  platform::SecurityDescriptor descriptor;
  if (platform::DescriptorFromText(kDataDirDescriptor, descriptor) != platform::kSuccess) return;
  (void)platform::ProtectFile(directory, descriptor);
}

}  // namespace kestrelon
