#include "modules/module_pipe.h"

#include <string>

#include "control/pipe_listener.h"
#include "core/error_text.h"
#include "core/service_log.h"
#include "modules/module_client.h"

namespace kestrelon {
namespace {

struct ModulePipeState {
  // A leaf, and none of the supervisor's: closing the pipe under ModuleGuard would wait for clients
  // that want to know who they are.
  Guard ModuleClientGuard{"ModuleClientGuard", GuardRank::kLeaf};
  GuardCondition wake;
  PipeListener listener{ModuleClientGuard, wake};

  // On the accepting thread only, and before it starts.
  platform::Code last_failure = platform::kSuccess;
};

// Never destroyed: client threads are detached, and one that hangs may outlive main.
ModulePipeState& TheModulePipe = *new ModulePipeState;

// The same failure again, second by second while another process holds the name, says nothing new.
void NoteInstance(platform::Code code) {
  if (code && code != TheModulePipe.last_failure) {
    LogService(L"Module pipe: CreateNamedPipe failed: %s", ErrorText(code));
  }
  TheModulePipe.last_failure = code;
}

constexpr PipeListenerSettings kSettings = {
    .name = kModulePipeName,
    // Full access for SYSTEM. Every user who is signed in may read and write, but not make an
    // instance (FILE_CREATE_PIPE_INSTANCE) and so meet clients in the service's place.
    .descriptor = L"D:P(A;;GA;;;SY)(A;;0x0012019B;;;AU)",
    .most_clients = 16,
    .buffer_bytes = 16384,
    .tried_instance = NoteInstance,
    .serve = ModuleClient};

}  // namespace

void OpenModulePipe() {
  if (TheModulePipe.listener.is_running()) return;
  TheModulePipe.last_failure = platform::kSuccess;
  std::wstring error;
  if (TheModulePipe.listener.Start(kSettings, error)) {
    LogService(L"Module pipe opened");
  } else {
    LogService(L"Module pipe: %s", error);
  }
}

void CloseModulePipe() {
  if (!TheModulePipe.listener.is_running()) return;
  TheModulePipe.listener.Stop();
  LogService(L"Module pipe closed");
}

}  // namespace kestrelon
