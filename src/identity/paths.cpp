#include "identity/paths.h"

#include "platform/files.h"
#include "platform/paths.h"
#include "platform/system_text.h"

namespace kestrelon {
namespace {

constexpr std::wstring_view kVerbatimPrefix = L"\\\\?\\";
constexpr std::wstring_view kVerbatimSharePrefix = L"\\\\?\\UNC\\";

}  // namespace

std::wstring ExecutablePath() {
  std::wstring path;
  if (platform::ExecutableFile(path) != platform::kSuccess) path.clear();
  return path;
}

std::wstring ExecutableDirectory() {
  return ParentDirectory(ExecutablePath());
}

std::wstring FileNamePart(std::wstring_view path) {
  const std::size_t slash = path.find_last_of(L"\\/");
  return std::wstring(slash == std::wstring_view::npos ? path : path.substr(slash + 1));
}

std::wstring ParentDirectory(std::wstring_view path) {
  const std::size_t slash = path.rfind(L'\\');
  return std::wstring(slash == std::wstring_view::npos ? L"" : path.substr(0, slash));
}

std::wstring ExpandPath(const std::wstring& text) {
  if (text.find(L'%') == std::wstring::npos) return text;
  std::wstring expanded;
  if (platform::ExpandEnvironment(text, expanded) != platform::kSuccess) return text;
  return expanded;
}

std::wstring NormalizePath(const std::wstring& path) {
  platform::File file;
  if (platform::OpenFile(path, platform::kReadAttributes, platform::kShareAll,
                         platform::kOpenExisting, platform::kBackupSemantics,
                         file) != platform::kSuccess) {
    return path;
  }
  std::wstring final_path;
  if (platform::FinalPathName(file, final_path) != platform::kSuccess) return path;
  if (platform::StartsWithIgnoringCase(final_path, kVerbatimSharePrefix)) {
    return L"\\\\" + final_path.substr(kVerbatimSharePrefix.size());
  }
  if (final_path.starts_with(kVerbatimPrefix)) return final_path.substr(kVerbatimPrefix.size());
  return final_path;
}

bool IsExistingFile(const std::wstring& path) {
  platform::FileInformation information;
  return platform::QueryFileInformation(path, information) == platform::kSuccess &&
         (information.attributes & platform::kAttributeDirectory) == 0;
}

}  // namespace kestrelon
