#include "control/pipe_server.h"

#include <string>

#include "control/client_connection.h"
#include "control/pipe_state.h"
#include "core/error_text.h"
#include "core/service_log.h"

namespace kestrelon {
namespace {

void NoteInstance(platform::Code code) {
  if (code) LogService(L"CreateNamedPipe failed: %s", ErrorText(code));
}

constexpr PipeListenerSettings kSettings = {
    .name = kControlPipeName,
    // Full access for SYSTEM and administrators, none for anybody else.
    .descriptor = L"D:P(A;;GA;;;SY)(A;;GA;;;BA)",
    .most_clients = platform::kUnlimitedPipeInstances,
    .buffer_bytes = 0x10000,
    .tried_instance = NoteInstance,
    .serve = ControlClient};

}  // namespace

void StartControlPipe() {
  std::wstring error;
  if (!TheControlPipe.listener.Start(kSettings, error)) {
    LogService(L"Pipe server failed: %s", error);
  }
}

void StopControlPipe() {
  TheControlPipe.listener.Stop();
}

}  // namespace kestrelon
