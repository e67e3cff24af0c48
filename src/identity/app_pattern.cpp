#include "identity/app_pattern.h"

#include <limits>
#include <string_view>

#include "base/text.h"
#include "identity/paths.h"
#include "platform/files.h"
#include "platform/system_text.h"

namespace kestrelon {
namespace {

constexpr std::wstring_view kSlashes = L"\\/";
constexpr std::size_t kMostNamesPerLevel = 256;
constexpr std::size_t kMostFiles = 64;

// A pattern as a walk: from a base that is no pattern, piece by piece down the tree.
struct PatternWalk {
  std::wstring base;  // "C:" or "\\server\share"
  std::vector<std::wstring_view> pieces;
};

// Whether a path has a base and at least one piece below it. The pieces point into `path`.
bool SplitPattern(std::wstring_view path, PatternWalk& walk) {
  const bool on_share = path.starts_with(L"\\\\");
  if (on_share) path.remove_prefix(2);
  std::vector<std::wstring_view> pieces = SplitAt(path, kSlashes);
  if (on_share) {
    if (pieces.size() < 3) return false;
    walk.base = L"\\\\";
    walk.base.append(pieces[0]).append(L"\\").append(pieces[1]);
  } else {
    if (HasWildcard(pieces[0])) return false;
    walk.base = pieces[0];
  }
  walk.pieces.assign(pieces.begin() + (on_share ? 2 : 1), pieces.end());
  return true;
}

// Appends the paths below `directory` that match one piece. Links to directories are not followed:
// whoever may make one could lead a pattern to files of their own.
void AppendMatches(const std::wstring& directory, std::wstring_view piece, bool last,
                   std::vector<std::wstring>& matches) {
  const std::wstring prefix = directory + L"\\";
  std::vector<platform::FoundFile> found;
  // The limit counts what is taken, so the search itself has none.
  if (platform::FindFiles(prefix + std::wstring(piece), std::numeric_limits<std::size_t>::max(),
                          found) != platform::kSuccess) {
    return;
  }
  for (const platform::FoundFile& file : found) {
    if (matches.size() == kMostNamesPerLevel) return;
    const bool directory_found = (file.attributes & platform::kAttributeDirectory) != 0;
    const bool link = (file.attributes & platform::kAttributeReparsePoint) != 0;
    if (last ? !directory_found : directory_found && !link) matches.push_back(prefix + file.name);
  }
}

std::vector<std::wstring> WalkPattern(const PatternWalk& walk) {
  std::vector<std::wstring> level = {walk.base};
  for (std::size_t i = 0; i < walk.pieces.size(); ++i) {
    const std::wstring_view piece = walk.pieces[i];
    std::vector<std::wstring> next;
    for (const std::wstring& directory : level) {
      if (next.size() == kMostNamesPerLevel) break;
      if (HasWildcard(piece)) {
        AppendMatches(directory, piece, i + 1 == walk.pieces.size(), next);
      } else {
        next.push_back((directory + L"\\").append(piece));
      }
    }
    level.swap(next);
  }
  return level;
}

}  // namespace

bool HasWildcard(std::wstring_view path) {
  return path.find_first_of(L"*?") != std::wstring_view::npos;
}

std::vector<std::wstring> ExpandAppPattern(const std::wstring& path) {
  const std::wstring expanded = ExpandPath(path);
  if (!HasWildcard(expanded)) return {expanded};
  PatternWalk walk;
  if (!SplitPattern(expanded, walk)) return {};
  std::vector<std::wstring> files;
  for (std::wstring& file : WalkPattern(walk)) {
    if (files.size() == kMostFiles) break;
    if (IsExistingFile(file)) files.push_back(std::move(file));
  }
  return files;
}

bool MatchPattern(const std::wstring& pattern, const std::wstring& name) {
  const std::wstring p = platform::LowerCase(ExpandPath(pattern));
  const std::wstring n = platform::LowerCase(name);
  const auto is_slash = [](wchar_t c) { return kSlashes.find(c) != std::wstring_view::npos; };
  constexpr std::size_t kNone = std::wstring::npos;

  // Going back to the last "*" is enough: none crosses a slash, so the slashes cut pattern and name
  // into pieces that match one by one, and within a piece an earlier "*" gains nothing.
  std::size_t at = 0;
  std::size_t star = kNone;  // behind the last "*" of the pattern
  std::size_t run = 0;       // where the name goes on behind that star's run
  for (std::size_t i = 0; i < n.size();) {
    if (at < p.size() && p[at] == L'*') {
      star = ++at;
      run = i;
    } else if (at < p.size() && (p[at] == L'?' ? !is_slash(n[i]) : p[at] == n[i])) {
      ++at;
      ++i;
    } else if (star != kNone && !is_slash(n[run])) {
      at = star;
      i = ++run;
    } else {
      return false;
    }
  }
  while (at < p.size() && p[at] == L'*') ++at;
  return at == p.size();
}

}  // namespace kestrelon
