// The product on this machine, as its users and administrators meet it: the executable beside this
// program, its service, its pipe, its files, and what the filtering engine holds of it.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "config/json.h"
#include "platform/codes.h"
#include "platform/processes.h"
#include "platform/wfp.h"

namespace kestrelon::check {

inline constexpr int kNotStarted = -1;

// Runs the executable to its end, which gives its exit code or kNotStarted; `output` is what it
// wrote to both of its streams. One that takes longer than two minutes is ended.
[[nodiscard]] int RunProduct(const std::wstring& arguments, std::string& output);

// Starts a run in the foreground and leaves it running.
[[nodiscard]] platform::Code StartForeground(platform::StartedProgram& started);

// The processes that run the executable.
[[nodiscard]] std::vector<std::uint32_t> ProductProcesses();

// Ends them all; whether there were any.
bool EndProductProcesses();

// The service's state; 0 when there is no such service.
[[nodiscard]] std::uint32_t ServiceState();

// Asks for a stop or a start and waits for the state, half a minute at most.
[[nodiscard]] bool BringDownService();
[[nodiscard]] bool BringUpService();

// Sends a request to the control pipe, as soon as it is there, and gives the reply; null when none
// came.
[[nodiscard]] Json Ask(const std::string& request);
[[nodiscard]] Json SetConfig(const std::string& config);

// What the log holds; empty when there is none.
[[nodiscard]] std::string ServiceLog();

// The product's filters, those for the machine's start left out, and those alone.
[[nodiscard]] std::vector<platform::Filter> ProductFilters();
[[nodiscard]] std::vector<platform::Filter> BootFilters();

// Asks again and again; false when it wasn't so within the time.
[[nodiscard]] bool Within(std::uint32_t seconds, const std::function<bool()>& holds);

// A session with the engine that closes itself; 0 inside when it could not be opened.
class EngineSession {
 public:
  EngineSession();
  ~EngineSession();
  EngineSession(const EngineSession&) = delete;
  EngineSession& operator=(const EngineSession&) = delete;
  operator platform::EngineHandle() const { return handle_; }

 private:
  platform::EngineHandle handle_ = 0;
};

}  // namespace kestrelon::check
