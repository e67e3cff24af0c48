#include "updates/update_directory.h"

#include <limits>
#include <vector>

#include "core/data_dir.h"
#include "platform/files.h"
#include "platform/system_text.h"

namespace kestrelon {
namespace {

// What the last installer did is looked up in it long after it was done.
constexpr const wchar_t* kKeptFile = L"install.log";

}  // namespace

std::wstring UpdateDirectory() {
  return DataDir() + L"\\update";
}

void CleanUpdateDirectory() {
  const std::wstring prefix = UpdateDirectory() + L"\\";
  std::vector<platform::FoundFile> found;
  (void)platform::FindFiles(prefix + L"*", std::numeric_limits<std::size_t>::max(), found);
  for (const platform::FoundFile& file : found) {
    const bool is_directory = (file.attributes & platform::kAttributeDirectory) != 0;
    if (is_directory || platform::EqualIgnoringCase(file.name, kKeptFile)) continue;
    (void)platform::RemoveFile(prefix + file.name);
  }
}

}  // namespace kestrelon
