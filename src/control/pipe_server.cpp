#include "control/pipe_server.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "base/start_thread.h"
#include "control/client_connection.h"
#include "control/pipe_state.h"
#include "core/error_text.h"
#include "core/service_log.h"
#include "platform/clock.h"

namespace kestrelon {
namespace {

using std::chrono::steady_clock;

// Full access for SYSTEM and administrators, none for anybody else.
constexpr const wchar_t* kDescriptorText = L"D:P(A;;GA;;;SY)(A;;GA;;;BA)";
constexpr std::uint32_t kBufferBytes = 0x10000;
constexpr std::uint32_t kRetrySpacingMs = 1000;
constexpr std::chrono::seconds kClientsMayTake(3);
// How often the stop wakes what waits: a thread that looked at PipeStop just before it was set goes
// into its next wait after the first try to end it.
constexpr std::chrono::milliseconds kWakeSpacing(50);

// Makes the instance for the next client. While no instance of the service's is open, it must be
// the name's first: another process that has the name by then can neither pose as the service nor
// lend it a pipe that lets others in. The guard keeps connections from closing in between.
platform::Code MakeInstance(platform::Pipe& pipe) EXCLUDES(TheControlPipe.SubscriberGuard) {
  GuardLock lock(TheControlPipe.SubscriberGuard);
  const bool first = TheControlPipe.clients.empty();
  platform::PipeSettings settings;
  settings.name = kControlPipeName;
  settings.open_mode = platform::kPipeDuplex | (first ? platform::kPipeFirstInstance : 0U);
  settings.pipe_mode =
      platform::kPipeMessageType | platform::kPipeMessageRead | platform::kPipeRejectRemote;
  settings.instances = platform::kUnlimitedPipeInstances;
  settings.out_buffer_bytes = kBufferBytes;
  settings.in_buffer_bytes = kBufferBytes;
  return platform::MakePipe(settings, TheControlPipe.PipeDescriptor, pipe);
}

bool AwaitClient(const platform::Pipe& pipe) {
  const platform::Code code = platform::AwaitPipeClient(pipe);
  return code == platform::kSuccess || code == platform::kPipeConnected;
}

void ServeClient(platform::Pipe pipe) {
  std::list<platform::Pipe>::iterator client;
  {
    GuardLock lock(TheControlPipe.SubscriberGuard);
    TheControlPipe.clients.push_front(std::move(pipe));
    client = TheControlPipe.clients.begin();
  }
  std::thread thread;
  if (StartThread(thread, [client] { ControlClient(client); })) {
    thread.detach();
    return;
  }
  // Without this the instance would stay, and with it the name, for as long as the client does.
  (void)platform::DisconnectPipeClient(*client);
  GuardLock lock(TheControlPipe.SubscriberGuard);
  TheControlPipe.clients.erase(client);
}

// Thread routine: accepts clients until the stop.
void ControlPipeServer() {
  while (!TheControlPipe.PipeStop) {
    platform::Pipe pipe;
    if (const platform::Code code = MakeInstance(pipe)) {
      LogService(L"CreateNamedPipe failed: %s", ErrorText(code));
      platform::SleepMilliseconds(kRetrySpacingMs);
      continue;
    }
    if (AwaitClient(pipe) && !TheControlPipe.PipeStop) ServeClient(std::move(pipe));
  }
  GuardLock lock(TheControlPipe.SubscriberGuard);
  TheControlPipe.accepting = false;
  TheControlPipe.wake.WakeAll();
}

// Wakes the accept loop out of its wait by being its client.
void StopAccepting() {
  TheControlPipe.PipeStop = true;
  for (bool accepting = true; accepting;) {
    platform::Pipe own;
    (void)platform::OpenPipe(kControlPipeName, false, own);
    own.Close();
    const steady_clock::time_point again = steady_clock::now() + kWakeSpacing;
    GuardLock lock(TheControlPipe.SubscriberGuard);
    while (TheControlPipe.accepting && steady_clock::now() < again) {
      TheControlPipe.wake.WaitUntil(TheControlPipe.SubscriberGuard, again);
    }
    accepting = TheControlPipe.accepting;
  }
  TheControlPipe.accept_thread.join();
}

// Ends what the client threads wait for, and waits for them to leave.
void EndClients() {
  const steady_clock::time_point deadline = steady_clock::now() + kClientsMayTake;
  GuardLock lock(TheControlPipe.SubscriberGuard);
  while (!TheControlPipe.clients.empty() && steady_clock::now() < deadline) {
    for (const platform::Pipe& client : TheControlPipe.clients) {
      (void)platform::CancelPipe(client.handle());
    }
    TheControlPipe.wake.WakeAll();
    const auto again = std::min(deadline, steady_clock::now() + kWakeSpacing);
    while (!TheControlPipe.clients.empty() && steady_clock::now() < again) {
      TheControlPipe.wake.WaitUntil(TheControlPipe.SubscriberGuard, again);
    }
  }
}

}  // namespace

void StartControlPipe() {
  platform::SecurityDescriptor descriptor;
  if (const platform::Code code = platform::DescriptorFromText(kDescriptorText, descriptor)) {
    LogService(L"Pipe server failed: security descriptor: %s", ErrorText(code));
    return;
  }
  TheControlPipe.PipeDescriptor = std::move(descriptor);
  TheControlPipe.PipeStop = false;
  bool started = false;
  {
    GuardLock lock(TheControlPipe.SubscriberGuard);
    started = StartThread(TheControlPipe.accept_thread, ControlPipeServer);
    TheControlPipe.accepting = started;
  }
  if (!started) LogService(L"Pipe server failed: no thread can be started");
}

void StopControlPipe() {
  if (TheControlPipe.accept_thread.joinable()) StopAccepting();
  EndClients();
}

}  // namespace kestrelon
