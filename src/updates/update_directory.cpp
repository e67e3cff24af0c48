#include "updates/update_directory.h"

#include <limits>
#include <vector>

#include "core/data_dir.h"
#include "platform/files.h"
#include "platform/system_text.h"
#include "updates/installer_name.h"

namespace kestrelon {

std::wstring UpdateDirectory() {
  return DataDir() + L"\\update";
}

void CleanUpdateDirectory() {
  const std::wstring prefix = UpdateDirectory() + L"\\";
  std::vector<platform::FoundFile> found;
  (void)platform::FindFiles(prefix + L"*", std::numeric_limits<std::size_t>::max(), found);
  for (const platform::FoundFile& file : found) {
    const bool is_directory = (file.attributes & platform::kAttributeDirectory) != 0;
    if (is_directory || platform::EqualIgnoringCase(file.name, kInstallLogName)) continue;
    (void)platform::RemoveFile(prefix + file.name);
  }
}

}  // namespace kestrelon
