// How a fuzzer says that a property does not hold.
#pragma once

#include <cstdio>
#include <cstdlib>

// Ends the process, so that the fuzzing engine keeps the input.
#define PROPERTY(condition)                                                \
  do {                                                                     \
    if (!(condition)) {                                                    \
      std::fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                        \
    }                                                                      \
  } while (false)
