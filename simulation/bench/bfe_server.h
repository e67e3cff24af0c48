// BFE's pipe: accepts connections and gives each a thread.
#pragma once

#include <windows.h>

#include "simulation/bench/bfe_connection.h"

namespace simulation {

class BfeServer {
 public:
  explicit BfeServer(Bfe bfe) : bfe_(bfe) {}

  // Makes the pipe. From here on programs can connect, and wait until Serve runs. The system's
  // code; 183 if another BFE runs.
  [[nodiscard]] Code Listen();

  // Accepts for as long as the process lives: a connection's thread ends with its other end, and
  // the end of the process is how programs lose the engine. Returns the code of a failure.
  Code Serve();

 private:
  Code NewInstance();

  Bfe bfe_;
  HANDLE next_ = INVALID_HANDLE_VALUE;  // the instance that the next program will be connected to
};

}  // namespace simulation
