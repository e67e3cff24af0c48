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

}  // namespace kestrelon::test
