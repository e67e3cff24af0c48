#include "simulation/machine/console.h"

#include "platform/console.h"
#include "simulation/machine/machine.h"

namespace simulation {

void Transcript::Append(std::wstring_view text) {
  const std::lock_guard lock(mutex_);
  text_ += text;
}

void Transcript::Clear() {
  const std::lock_guard lock(mutex_);
  text_.clear();
}

std::wstring Transcript::text() const {
  const std::lock_guard lock(mutex_);
  return text_;
}

}  // namespace simulation

namespace kestrelon::platform {

using simulation::TheMachine;

std::vector<std::wstring> CommandLineArguments() {
  return {};  // tests call what main would
}

void WriteStandardOutput(const std::wstring& text) {
  TheMachine().console.output.Append(text);
}

void WriteStandardError(const std::wstring& text) {
  TheMachine().console.error_output.Append(text);
}

void WriteDebugOutput(const std::wstring& text) {
  TheMachine().console.debug_output.Append(text);
}

Code SetConsoleStopHandler(void (* /*handler*/)()) {
  return TheMachine().faults.Next("SetConsoleStopHandler");
}

}  // namespace kestrelon::platform
