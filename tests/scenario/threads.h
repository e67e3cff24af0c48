// The threads of this process: how many there are, and where each stands when nothing goes on.
#pragma once

#include <chrono>
#include <cstddef>

namespace kestrelon::test {

[[nodiscard]] std::size_t Threads();

// For a process that ends soon: one that is there after all of that time is ended, with the stack
// of each thread on standard error. The watch is a thread more.
void EndWithin(std::chrono::seconds limit);

}  // namespace kestrelon::test
