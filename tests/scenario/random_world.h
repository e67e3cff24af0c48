// A small world drawn by dice, in which entries and connections often meet.
#pragma once

#include <cstdint>
#include <random>
#include <string>

#include "tests/scenario/world.h"

namespace kestrelon::test {

// The seed for a test's dice: KESTRELON_SEED, or a new one each time. Whatever fails tells it.
[[nodiscard]] std::uint32_t FirstSeed();
// Whether KESTRELON_SEED asks for one run with that seed.
[[nodiscard]] bool SeedIsGiven();

class Dice {
 public:
  explicit Dice(std::uint32_t seed) : engine_(seed) {}

  bool OneIn(int sides) { return Below(static_cast<std::size_t>(sides)) == 0; }
  std::size_t Below(std::size_t limit) { return engine_() % limit; }
  template <typename T, std::size_t N>
  const T& Of(const T (&items)[N]) {
    return items[Below(N)];
  }
  // Up to `most` of the items, joined.
  template <std::size_t N>
  std::wstring Join(const wchar_t* const (&items)[N], std::size_t most) {
    std::wstring text;
    for (std::size_t left = Below(most + 1); left > 0; --left) {
      text += (text.empty() ? L"" : L", ") + std::wstring(Of(items));
    }
    return text;
  }

 private:
  std::mt19937 engine_;
};

// A module that asks for ports that the attempts often name.
inline constexpr const char* kRandomModule = R"({
  "id": "lan-messages", "name": "M", "version": "1", "publisher": "TARGON HELVERIK Ltd. Co.",
  "network": [
    {"dir": "both", "protocol": "udp", "port": 5353, "scope": "lan", "why": "x"},
    {"dir": "in", "protocol": "tcp", "port": 80, "scope": "lan", "why": "x"},
    {"dir": "out", "protocol": "udp", "port": 53, "scope": "lan", "why": "x"}]})";
inline constexpr const wchar_t* kRandomGrant =
    L"net:both/17/5353/lan|net:in/6/80/lan|net:out/17/53/lan";

[[nodiscard]] Config RandomConfig(Dice& dice, const World& world);
[[nodiscard]] Attempt RandomAttempt(Dice& dice);

enum class Happening {
  kAny,
  kHarmless,  // what the configuration means stays as it is
};
// Has something happen to the machine: to its engine, if that runs, to files, sessions, modules,
// interfaces. Another thread may do anything meanwhile but look at the facts.
void HappenTo(World& world, Dice& dice, Happening kind);

// Puts random attempts to the engine and to the oracle; false, and a failed test that tells all
// there is to know, at the first on which they differ.
bool ExpectJudged(World& world, const Config& config, Dice& dice, int attempts, std::uint32_t seed);

}  // namespace kestrelon::test
