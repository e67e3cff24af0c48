#include "control/pipe_listener.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "base/start_thread.h"
#include "core/error_text.h"
#include "platform/clock.h"

namespace kestrelon {
namespace {

using std::chrono::steady_clock;

// A second, in steps between which the stop is looked for.
constexpr int kRetrySteps = 10;
constexpr std::uint32_t kRetryStepMs = 100;
constexpr std::chrono::seconds kClientsMayTake(3);
// How often the stop wakes what waits: a thread that looked for the stop just before it came goes
// into its next wait after the first try to end it.
constexpr std::chrono::milliseconds kWakeSpacing(50);

bool AwaitClient(const platform::Pipe& pipe) {
  const platform::Code code = platform::AwaitPipeClient(pipe);
  return code == platform::kSuccess || code == platform::kPipeConnected;
}

}  // namespace

bool PipeListener::Start(const PipeListenerSettings& settings, std::wstring& error) {
  if (descriptor_.empty()) {
    if (const platform::Code code =
            platform::DescriptorFromText(settings.descriptor, descriptor_)) {
      error = L"security descriptor: " + ErrorText(code);
      return false;
    }
  }
  settings_ = settings;
  stop_ = std::make_shared<std::atomic<bool>>(false);
  GuardLock lock(guard_);
  accepting_ = StartThread(accept_thread_, [this] { AcceptClients(); });
  if (!accepting_) error = L"no thread can be started";
  return accepting_;
}

void PipeListener::Stop() {
  if (!is_running()) return;
  *stop_ = true;
  StopAccepting();
  EndClients();
}

std::size_t PipeListener::client_count() const {
  GuardLock lock(guard_);
  return clients_.size();
}

void PipeListener::AcceptClients() {
  while (AwaitRoom()) {
    platform::Pipe pipe;
    const platform::Code code = MakeInstance(pipe);
    settings_.tried_instance(code);
    if (code) {
      AwaitRetry();
    } else if (AwaitClient(pipe) && !*stop_) {
      StartClient(std::move(pipe));
    }
  }
  GuardLock lock(guard_);
  accepting_ = false;
  wake_.WakeAll();
}

// Waits while every instance that there may be has its client. False on the stop.
bool PipeListener::AwaitRoom() {
  GuardLock lock(guard_);
  while (settings_.most_clients != platform::kUnlimitedPipeInstances && !*stop_ &&
         clients_.size() >= settings_.most_clients) {
    wake_.Wait(guard_);
  }
  return !*stop_;
}

// Makes the instance for the next client. While no instance of the service's is open, it must be
// the name's first: another process that has the name by then can neither pose as the service nor
// lend it a pipe that lets others in. The guard keeps connections from closing in between.
platform::Code PipeListener::MakeInstance(platform::Pipe& pipe) {
  GuardLock lock(guard_);
  const bool first = clients_.empty();
  platform::PipeSettings settings;
  settings.name = settings_.name;
  settings.open_mode = platform::kPipeDuplex | (first ? platform::kPipeFirstInstance : 0U);
  settings.pipe_mode =
      platform::kPipeMessageType | platform::kPipeMessageRead | platform::kPipeRejectRemote;
  settings.instances = settings_.most_clients;
  settings.out_buffer_bytes = settings_.buffer_bytes;
  settings.in_buffer_bytes = settings_.buffer_bytes;
  return platform::MakePipe(settings, descriptor_, pipe);
}

void PipeListener::AwaitRetry() const {
  for (int i = 0; i < kRetrySteps && !*stop_; ++i) platform::SleepMilliseconds(kRetryStepMs);
}

void PipeListener::StartClient(platform::Pipe pipe) {
  Client client;
  {
    GuardLock lock(guard_);
    client = clients_.emplace(clients_.begin());
    client->pipe = std::move(pipe);
    client->PipeStop = stop_;
  }
  std::thread thread;
  if (StartThread(thread, [this, client, serve = settings_.serve] {
        serve(*client);
        EndConnection(client);
      })) {
    thread.detach();
    return;
  }
  // Without this the instance would stay, and with it the name, for as long as the client does.
  (void)platform::DisconnectPipeClient(client->pipe);
  GuardLock lock(guard_);
  clients_.erase(client);
}

void PipeListener::EndConnection(Client client) {
  // What a client does not read holds this thread up until it leaves or the stop cancels the wait;
  // after a stop that did not wait for this thread nobody would.
  if (!*client->PipeStop) (void)platform::FlushPipe(client->pipe);
  (void)platform::DisconnectPipeClient(client->pipe);

  GuardLock lock(guard_);
  clients_.erase(client);
  wake_.WakeAll();
}

// Wakes the accept loop out of its wait by being its client.
void PipeListener::StopAccepting() {
  for (bool accepting = true; accepting;) {
    platform::Pipe own;
    (void)platform::OpenPipe(settings_.name, false, own);
    own.Close();
    const steady_clock::time_point again = steady_clock::now() + kWakeSpacing;
    GuardLock lock(guard_);
    wake_.WakeAll();
    while (accepting_ && steady_clock::now() < again) wake_.WaitUntil(guard_, again);
    accepting = accepting_;
  }
  accept_thread_.join();
}

bool PipeListener::AwaitsClients() const {
  return std::ranges::any_of(clients_, [](const PipeConnection& c) { return !c.unawaited; });
}

// Ends what the client threads wait for, and waits for them to leave.
void PipeListener::EndClients() {
  const steady_clock::time_point deadline = steady_clock::now() + kClientsMayTake;
  GuardLock lock(guard_);
  while (AwaitsClients() && steady_clock::now() < deadline) {
    for (const PipeConnection& client : clients_) (void)platform::CancelPipe(client.pipe.handle());
    wake_.WakeAll();
    const auto again = std::min(deadline, steady_clock::now() + kWakeSpacing);
    while (AwaitsClients() && steady_clock::now() < again) wake_.WaitUntil(guard_, again);
  }
}

}  // namespace kestrelon
