// The server of a pipe: accepts its clients and gives each a thread of its own.
#pragma once

#include <atomic>
#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <thread>

#include "base/guard.h"
#include "platform/pipes.h"
#include "platform/security.h"

namespace kestrelon {

// One client, on the thread that serves it.
struct PipeConnection {
  platform::Pipe pipe;
  // Set once the thread is to end. Of the start that the client came after: the next one does not
  // call back a thread that hung beyond the stop.
  std::shared_ptr<const std::atomic<bool>> PipeStop;
  // Set while the thread waits for what may not come before the stop returns, such as a guard that
  // is held by who stops. The stop leaves it alone then: the thread looks at PipeStop before it
  // touches the pipe again.
  std::atomic<bool> unawaited = false;
};

struct PipeListenerSettings {
  const wchar_t* name = nullptr;
  const wchar_t* descriptor = nullptr;  // who may come as a client, as SDDL text
  std::uint32_t most_clients = 1;       // at a time; kUnlimitedPipeInstances for no limit
  std::uint32_t buffer_bytes = 0;       // each way
  // Told how each try to make an instance for the next client went, on the accepting thread. A
  // failure is tried again after a second.
  void (*tried_instance)(platform::Code code) = nullptr;
  // Serves one client, on its own thread, until it returns or PipeStop is set.
  void (*serve)(PipeConnection& client) = nullptr;
};

// Never destroyed once it was started: client threads are detached, and one that hangs may outlive
// main. Started and stopped by one thread at a time.
class PipeListener {
 public:
  // The guard is a leaf, taken for moments; no pipe is read or written under it. Whatever else the
  // owner's client threads wait for may lie under it too: the stop wakes who waits for `wake`.
  PipeListener(Guard& guard, GuardCondition& wake) : guard_(guard), wake_(wake) {}
  PipeListener(const PipeListener&) = delete;
  PipeListener& operator=(const PipeListener&) = delete;

  // Between Start and Stop.
  bool is_running() const { return accept_thread_.joinable(); }

  // Starts to accept clients. Must not run. False, with the reason in `error`, when it can't.
  [[nodiscard]] bool Start(const PipeListenerSettings& settings, std::wstring& error)
      EXCLUDES(guard_);

  // Ends the accepting and all connections; waits up to three seconds for clients that hang and
  // then leaves them to themselves. Does nothing when it doesn't run.
  void Stop() EXCLUDES(guard_);

  // Clients whose threads run.
  std::size_t client_count() const EXCLUDES(guard_);

 private:
  using Client = std::list<PipeConnection>::iterator;

  void AcceptClients() EXCLUDES(guard_);
  bool AwaitRoom() EXCLUDES(guard_);
  platform::Code MakeInstance(platform::Pipe& pipe) EXCLUDES(guard_);
  void AwaitRetry() const;
  void StartClient(platform::Pipe pipe) EXCLUDES(guard_);
  void EndConnection(Client client) EXCLUDES(guard_);
  void StopAccepting() EXCLUDES(guard_);
  bool AwaitsClients() const REQUIRES(guard_);
  void EndClients() EXCLUDES(guard_);

  Guard& guard_;
  GuardCondition& wake_;  // a thread has ended, or is to
  // The connections of all client threads, also of earlier starts. A thread takes its own out,
  // which closes it, as its last act: whatever stands here is open, so cancelling never meets a
  // handle used anew.
  std::list<PipeConnection> clients_ GUARDED_BY(guard_);
  bool accepting_ GUARDED_BY(guard_) = false;  // the accept loop runs

  // Start and Stop only, and read by the accept loop in between.
  PipeListenerSettings settings_;
  platform::SecurityDescriptor descriptor_;  // made once
  // Atomic because threads look at it between two waits without the guard; who waits under the
  // guard is woken under it after the change.
  std::shared_ptr<std::atomic<bool>> stop_;
  std::thread accept_thread_;
};

}  // namespace kestrelon
