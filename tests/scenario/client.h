// A client of the service on its control pipe.
#pragma once

#include <string>

#include "config/json.h"
#include "platform/pipes.h"

namespace kestrelon::test {

// One connection. Made while the service runs; fails the test when it can't connect.
class Client {
 public:
  Client();

  // Sends a request and waits for the reply. An empty object, and a failed test, when the
  // connection ends instead.
  Json Ask(const Json& request);
  // Asks for a command without arguments.
  Json Command(const std::string& name);

  // From now on the connection carries events. Returns once the first has arrived.
  void Subscribe();
  // Waits for the next event that is no ping.
  Json NextEvent();

  platform::Pipe& pipe() { return pipe_; }

 private:
  platform::Pipe pipe_;
};

}  // namespace kestrelon::test
