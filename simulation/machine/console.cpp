#include "simulation/machine/console.h"

#include <thread>

#include "base/text.h"
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

bool Transcript::Contains(std::wstring_view part) const {
  const std::lock_guard lock(mutex_);
  return text_.find(part) != std::wstring::npos;
}

std::ostream& operator<<(std::ostream& stream, const Transcript& transcript) {
  return stream << kestrelon::Utf8FromWide(transcript.text());
}

bool Console::RequestStop() {
  void (*handler)() = nullptr;
  {
    const std::lock_guard lock(mutex_);
    handler = stop_handler_;
  }
  if (handler == nullptr) return false;
  std::thread(handler).join();
  return true;
}

void Console::SetStopHandler(void (*handler)()) {
  const std::lock_guard lock(mutex_);
  stop_handler_ = handler;
}

}  // namespace simulation

namespace kestrelon::platform {

using simulation::TheMachine;

std::vector<std::wstring> CommandLineArguments() {
  return TheMachine().environment.arguments;
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

Code SetConsoleStopHandler(void (*handler)()) {
  if (const Code fault = TheMachine().faults.Next("SetConsoleStopHandler")) return fault;
  TheMachine().console.SetStopHandler(handler);
  return kSuccess;
}

}  // namespace kestrelon::platform
