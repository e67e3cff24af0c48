// A piece of a test in a process of its own, so that each round of a sweep begins with a fresh
// machine and a fresh product.
#pragma once

#include <functional>

namespace kestrelon::test {

// How a round of a sweep ended.
enum class Round {
  kStruck,     // the planned fault happened and everything held
  kUntouched,  // the scenario ended before the fault came: the sweep is complete
  kFailed,     // an expectation failed, or the process died; its output tells
};

// Runs `round` in a child process and gives its result; failed expectations make it kFailed. To be
// called while the process has one thread.
[[nodiscard]] Round RunRound(const std::function<Round()>& round);

}  // namespace kestrelon::test
