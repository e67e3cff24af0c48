// One of the service's pipes alone, running in this process on the simulated machine.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "control/pipe_server.h"
#include "platform/pipes.h"
#include "simulation/machine/machine.h"

namespace kestrelon::test {

// Whether the condition comes true within ten seconds.
bool Eventually(const std::function<bool()>& condition);

// A connection with texts instead of JSON. Fails the test when it can't connect.
class PipeClient {
 public:
  explicit PipeClient(const wchar_t* name = kControlPipeName);

  // Writes one message; fails the test when it can't.
  void Send(const std::string& text);
  // The next message; "(ended)" when the connection has.
  std::string Receive();
  // Writes a request and waits for the reply, as above; both may fail.
  std::string Ask(const std::string& request);
  // Subscribes and waits until the service has it among its subscribers.
  void Subscribe();
  void Leave() { pipe_.Close(); }

 private:
  platform::Pipe pipe_;
};

inline constexpr const char* kEnded = "(ended)";

// What coming to a pipe and leaving it again is answered with.
inline constexpr platform::Code kPipeBusy = 231;
platform::Code TryOpen(const wchar_t* name);

// {"ok":false,"error":error}, as it stands on the pipe.
std::string Refusal(const std::string& error);

// A pipe's name as another process takes it, whatever calls of the service's fail.
platform::Pipe TakeName(const wchar_t* name);

std::size_t SubscriberCount();
std::size_t ServedClients();

// Has every start of a thread fail while it lives.
class NoMoreThreads {
 public:
  NoMoreThreads();
  ~NoMoreThreads();
  NoMoreThreads(const NoMoreThreads&) = delete;
  NoMoreThreads& operator=(const NoMoreThreads&) = delete;
};

// Starts nothing; stops whatever was started and looks at what is left.
class PipeWorld : public testing::Test {
 protected:
  PipeWorld() { machine.files.MakeDirectories(L"C:\\ProgramData\\Kestrelon"); }
  void TearDown() override;

  // Lines of service.log that hold the text.
  std::size_t Logged(const std::string& text);

  simulation::Machine& machine = simulation::TheMachine();
};

}  // namespace kestrelon::test
