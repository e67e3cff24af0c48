#include "simulation/machine/path_text.h"

#include <algorithm>
#include <string_view>

#include "simulation/machine/letter_case.h"

namespace simulation {
namespace {

constexpr std::size_t kLongestName = 255;

// Takes the text up to the next backslash, and that, off the rest.
std::wstring_view TakePiece(std::wstring_view& rest) {
  const std::size_t end = rest.find(L'\\');
  const std::wstring_view piece = rest.substr(0, end);
  rest.remove_prefix(end == std::wstring_view::npos ? rest.size() : end + 1);
  return piece;
}

bool IsDrive(std::wstring_view text) {
  const wchar_t letter = text.empty() ? L'\0' : UpperLetter(text[0]);
  return text.size() == 2 && text[1] == L':' && letter >= L'A' && letter <= L'Z';
}

// Takes "C:\" or "server\share\" off the rest.
std::optional<std::wstring> TakeRoot(std::wstring_view& rest, bool network) {
  if (!network) {
    std::wstring drive(TakePiece(rest));
    if (!IsDrive(drive)) return std::nullopt;
    drive[0] = UpperLetter(drive[0]);
    return drive;
  }
  const std::wstring server(TakePiece(rest));
  const std::wstring share(TakePiece(rest));
  if (server.empty() || share.empty()) return std::nullopt;
  return L"\\\\" + server + L"\\" + share;
}

}  // namespace

std::optional<ParsedPath> ParsePath(const std::wstring& path) {
  std::wstring text = path;
  const bool literal = text.starts_with(L"\\\\?\\");
  if (!literal) std::replace(text.begin(), text.end(), L'/', L'\\');
  std::wstring_view rest = text;
  if (literal) rest.remove_prefix(4);
  const std::wstring_view network = literal ? L"UNC\\" : L"\\\\";
  const bool is_network = FoldCase(rest).starts_with(network);
  if (is_network) rest.remove_prefix(network.size());
  const std::optional<std::wstring> root = TakeRoot(rest, is_network);
  if (!root) return std::nullopt;
  ParsedPath parsed{*root, {}};
  while (!rest.empty()) {
    std::wstring name(TakePiece(rest));
    if (!literal && name == L"..") {
      if (!parsed.names.empty()) parsed.names.pop_back();
      continue;
    }
    if (!literal) name.erase(name.find_last_not_of(L" .") + 1);
    if (!name.empty()) parsed.names.push_back(std::move(name));
  }
  return parsed;
}

bool IsValidName(const std::wstring& name) {
  if (name.empty() || name.size() > kLongestName) return false;
  return std::none_of(name.begin(), name.end(), [](wchar_t letter) {
    return letter < L' ' || std::wstring_view(L"<>:\"/\\|?*").find(letter) != std::wstring::npos;
  });
}

}  // namespace simulation
