// Which process a thread acts as. A test runs no others: where the machine asks who is there, a
// thread can stand in for one.
#pragma once

#include <cstdint>

namespace simulation {

// From here to the end of the scope, what the calling thread opens is opened by another process.
class AsProcess {
 public:
  explicit AsProcess(std::uint32_t process_id);
  ~AsProcess();
  AsProcess(const AsProcess&) = delete;
  AsProcess& operator=(const AsProcess&) = delete;

 private:
  std::uint32_t before_;
};

// The id of the one that the calling thread acts as: the product's own unless told otherwise.
std::uint32_t ActingProcess();

}  // namespace simulation
