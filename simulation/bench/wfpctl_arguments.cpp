#include "simulation/bench/wfpctl_arguments.h"

#include <windows.h>

#include <objbase.h>
#include <sddl.h>

#include <algorithm>
#include <cerrno>
#include <cwchar>
#include <utility>

#include "base/format.h"
#include "simulation/bench/wfp_input.h"

namespace simulation {

using kestrelon::Format;

std::wstring Arguments::Word(std::wstring_view what) {
  if (words_.empty() || words_.front().rfind(L"--", 0) == 0) {
    Fail(Format(L"%s is missing", what));
    return L"";
  }
  std::wstring word = std::move(words_.front());
  words_.erase(words_.begin());
  return word;
}

bool Arguments::TakeOption(std::wstring_view name, std::wstring& value) {
  const auto found = std::find(words_.begin(), words_.end(), name);
  if (found == words_.end()) return false;
  if (found + 1 == words_.end()) {
    Fail(Format(L"%s needs a value", name));
    words_.erase(found);
    return false;
  }
  value = std::move(found[1]);
  words_.erase(found, found + 2);
  return true;
}

std::wstring Arguments::Option(std::wstring_view name, std::wstring_view otherwise) {
  std::wstring value;
  return TakeOption(name, value) ? value : std::wstring(otherwise);
}

std::vector<std::wstring> Arguments::Options(std::wstring_view name) {
  std::vector<std::wstring> values;
  std::wstring value;
  while (TakeOption(name, value)) values.push_back(std::move(value));
  return values;
}

bool Arguments::Flag(std::wstring_view name) {
  const auto found = std::find(words_.begin(), words_.end(), name);
  if (found == words_.end()) return false;
  words_.erase(found);
  return true;
}

std::uint64_t Arguments::Number(std::wstring_view name, std::uint64_t most,
                                std::uint64_t otherwise) {
  std::wstring text;
  if (!TakeOption(name, text)) return otherwise;
  std::uint64_t value = 0;
  if (!NumberOfText(text, most, value)) {
    Fail(Format(L"%s: '%s' is no number from 0 to %llu", name, text, most));
  }
  return value;
}

void Arguments::Fail(std::wstring error) {
  if (error_.empty()) error_ = std::move(error);
}

bool Arguments::Finished() {
  if (!words_.empty()) Fail(Format(L"'%s' is not understood here", words_.front()));
  return error_.empty();
}

std::vector<std::wstring> WordsOfLine(std::wstring_view line) {
  std::vector<std::wstring> words;
  std::wstring word;
  bool in_word = false;
  bool quoted = false;
  for (const wchar_t c : line) {
    if (c == L'"') {
      quoted = !quoted;
      in_word = true;
    } else if (!quoted && (c == L' ' || c == L'\t' || c == L'\r')) {
      if (in_word) words.push_back(std::exchange(word, L""));
      in_word = false;
    } else {
      word += c;
      in_word = true;
    }
  }
  if (in_word) words.push_back(std::move(word));
  return words;
}

bool NumberOfText(const std::wstring& text, std::uint64_t most, std::uint64_t& value) {
  if (text.empty() || text[0] < L'0' || text[0] > L'9') return false;
  const int base = text.rfind(L"0x", 0) == 0 ? 16 : 10;
  wchar_t* end = nullptr;
  errno = 0;
  const std::uint64_t number = std::wcstoull(text.c_str(), &end, base);
  if (errno != 0 || *end != L'\0' || number > most) return false;
  value = number;
  return true;
}

bool KeyOfText(const std::wstring& text, Guid& key) {
  const bool braces = !text.empty() && text[0] == L'{';
  GUID guid{};
  if (FAILED(IIDFromString((braces ? text : L"{" + text + L"}").c_str(), &guid))) return false;
  key = GuidOf(guid);
  return true;
}

bool SidOfText(const std::wstring& text, Bytes& sid) {
  PSID found = nullptr;
  if (!ConvertStringSidToSidW(text.c_str(), &found)) return false;
  const auto* const begin = static_cast<const std::uint8_t*>(found);
  sid.assign(begin, begin + GetLengthSid(found));
  LocalFree(found);
  return true;
}

Guid TakeKey(Arguments& arguments, std::wstring_view what) {
  const std::wstring text = arguments.Word(what);
  Guid key;
  if (!text.empty() && !KeyOfText(text, key)) arguments.Fail(Format(L"'%s' is no key", text));
  return key;
}

BenchCaller TakeCaller(Arguments& arguments) {
  const std::wstring who = arguments.Option(L"--as");
  if (who == L"system") return BenchCaller::kSystem;
  if (who == L"administrator") return BenchCaller::kAdministrator;
  if (!who.empty()) arguments.Fail(Format(L"--as: '%s' is not system or administrator", who));
  return CallerOfEnvironment();
}

}  // namespace simulation
