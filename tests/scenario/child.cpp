#include "tests/scenario/child.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

namespace kestrelon::test {

Round RunRound(const std::function<Round()>& round) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    const Round result = round();
    std::fflush(nullptr);
    // Without the parent's exit handlers: they belong to the parent.
    _exit(static_cast<int>(testing::Test::HasFailure() ? Round::kFailed : result));
  }
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status)) {
    return Round::kFailed;
  }
  const int code = WEXITSTATUS(status);
  return code <= static_cast<int>(Round::kUntouched) ? static_cast<Round>(code) : Round::kFailed;
}

int Sweep(int most, const std::function<Round(int)>& round) {
  for (int n = 1; n <= most; ++n) {
    switch (RunRound([&] { return round(n); })) {
      case Round::kUntouched:
        return n - 1;
      case Round::kFailed:
        ADD_FAILURE() << "round " << n << " of the sweep failed";
        return n;
      case Round::kStruck:
        break;
    }
  }
  ADD_FAILURE() << "the sweep did not end within " << most << " rounds";
  return most;
}

}  // namespace kestrelon::test
