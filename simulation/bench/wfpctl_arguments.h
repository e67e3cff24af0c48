// The arguments of wfpctl's commands, from the command line or from a line of a batch.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "simulation/bench/engine_client.h"

namespace simulation {

// Words to be taken out one by one; what nobody took is an error. The first mistake is kept.
class Arguments {
 public:
  explicit Arguments(std::vector<std::wstring> words) : words_(std::move(words)) {}

  // Takes the first word that is left if it is no option; empty, and an error naming `what`, if
  // there is none.
  std::wstring Word(std::wstring_view what);
  // Takes "--name value"; `otherwise` if it is absent.
  std::wstring Option(std::wstring_view name, std::wstring_view otherwise = L"");
  // Takes every "--name value".
  std::vector<std::wstring> Options(std::wstring_view name);
  // Takes "--name".
  bool Flag(std::wstring_view name);

  // The option as a number up to `most`, decimal or with 0x; `otherwise` if it is absent.
  std::uint64_t Number(std::wstring_view name, std::uint64_t most, std::uint64_t otherwise);

  void Fail(std::wstring error);
  // Whether all words were taken and no mistake was met.
  [[nodiscard]] bool Finished();
  const std::wstring& error() const { return error_; }

 private:
  // Takes the first "--name value" to `value`.
  bool TakeOption(std::wstring_view name, std::wstring& value);

  std::vector<std::wstring> words_;
  std::wstring error_;
};

// The words of a line: parted by blanks and tabs, or enclosed in double quotes.
std::vector<std::wstring> WordsOfLine(std::wstring_view line);

// Texts to values; false if the text is no such thing.
[[nodiscard]] bool NumberOfText(const std::wstring& text, std::uint64_t most, std::uint64_t& value);
[[nodiscard]] bool KeyOfText(const std::wstring& text, Guid& key);
[[nodiscard]] bool SidOfText(const std::wstring& text, Bytes& sid);

// A key that is taken as the next word.
Guid TakeKey(Arguments& arguments, std::wstring_view what);

// Takes "--as system|administrator"; without it the environment says who.
BenchCaller TakeCaller(Arguments& arguments);

}  // namespace simulation
