// The library's subscriptions: filter changes and net events.
#include <windows.h>

#include <fwpmu.h>

#include <algorithm>
#include <utility>

#include "platform/windows/net_event_native.h"
#include "simulation/bench/bench_wire.h"
#include "simulation/bench/engine_session.h"
#include "simulation/bench/net_event_output.h"
#include "simulation/bench/wfp_output.h"

namespace simulation {
namespace {

using kestrelon::GuardLock;
using kestrelon::platform::FWPM_NET_EVENT_CALLBACK4;
using kestrelon::platform::kInvalidHandle;
using kestrelon::platform::kNotSupported;
using kestrelon::platform::kNullPointer;
using kestrelon::platform::kSuccess;

// Begins to listen to a stream that BFE has opened; ends it if that fails.
Code Listen(EngineSession& session, std::uint64_t stream, StreamHandler handler,
            Listeners EngineSession::*listeners, HANDLE* handle) {
  std::unique_ptr<StreamListener> listener;
  const Code code = StreamListener::Start(stream, std::move(handler), listener);
  if (code != kSuccess) {
    (void)session.client->Unsubscribe(stream);
    return code;
  }
  const GuardLock lock(session.guard);
  *handle = listener.get();
  (session.*listeners).push_back(std::move(listener));
  return kSuccess;
}

// Takes a listener out of the session; null if it is not there.
std::unique_ptr<StreamListener> TakeListener(EngineSession& session,
                                             Listeners EngineSession::*listeners, HANDLE handle) {
  const GuardLock lock(session.guard);
  Listeners& open = session.*listeners;
  const auto found = std::find_if(open.begin(), open.end(),
                                  [&](const auto& listener) { return listener.get() == handle; });
  if (found == open.end()) return nullptr;
  std::unique_ptr<StreamListener> listener = std::move(*found);
  open.erase(found);
  return listener;
}

Code Unsubscribe(HANDLE engine, Listeners EngineSession::*listeners, HANDLE handle) {
  if (engine == nullptr) return kInvalidHandle;
  EngineSession& session = SessionOf(engine);
  const std::unique_ptr<StreamListener> listener = TakeListener(session, listeners, handle);
  if (listener == nullptr) return kInvalidHandle;
  // The listener's end, on return, waits for a running callback. If BFE is gone its pipe is too.
  return session.client->Unsubscribe(listener->stream());
}

// The callback's type says in which form the events are told.
template <typename Callback>
Code SubscribeEvents(HANDLE engine, const FWPM_NET_EVENT_SUBSCRIPTION0* subscription,
                     Callback callback, void* context, HANDLE* events) {
  if (engine == nullptr) return kInvalidHandle;
  if (subscription == nullptr || callback == nullptr || events == nullptr) return kNullPointer;
  if (subscription->enumTemplate != nullptr) return kNotSupported;
  EngineSession& session = SessionOf(engine);
  std::uint64_t stream = 0;
  if (const Code code = session.client->SubscribeEvents(stream)) return code;
  const auto tell = [callback, context](WireReader& message) {
    NetEvent event = TakeNetEvent(message);
    if (message.Finished()) TellEvent(event, callback, context);
  };
  return Listen(session, stream, tell, &EngineSession::event_listeners, events);
}

}  // namespace
}  // namespace simulation

using namespace simulation;  // NOLINT(google-build-using-namespace): the exports are C functions.

extern "C" {

DWORD WINAPI FwpmFilterSubscribeChanges0(HANDLE engine,
                                         const FWPM_FILTER_SUBSCRIPTION0* subscription,
                                         FWPM_FILTER_CHANGE_CALLBACK0 callback, void* context,
                                         HANDLE* change_handle) {
  if (engine == nullptr) return kInvalidHandle;
  if (subscription == nullptr || callback == nullptr || change_handle == nullptr) {
    return kNullPointer;
  }
  if (subscription->enumTemplate != nullptr) return kNotSupported;
  EngineSession& session = SessionOf(engine);
  std::uint64_t stream = 0;
  if (const Code code = session.client->SubscribeChanges(subscription->flags, stream)) return code;
  const auto tell = [callback, context](WireReader& message) {
    const FilterChange change = TakeFilterChange(message);
    if (!message.Finished()) return;
    FWPM_FILTER_CHANGE0 native{};
    native.changeType = change.added ? FWPM_CHANGE_ADD : FWPM_CHANGE_DELETE;
    native.filterKey = NativeOf(change.key);
    native.filterId = change.id;
    callback(context, &native);
  };
  return Listen(session, stream, tell, &EngineSession::change_listeners, change_handle);
}

DWORD WINAPI FwpmFilterUnsubscribeChanges0(HANDLE engine, HANDLE change_handle) {
  return Unsubscribe(engine, &EngineSession::change_listeners, change_handle);
}

DWORD WINAPI FwpmNetEventSubscribe0(HANDLE engine, const FWPM_NET_EVENT_SUBSCRIPTION0* subscription,
                                    FWPM_NET_EVENT_CALLBACK0 callback, void* context,
                                    HANDLE* events) {
  return SubscribeEvents(engine, subscription, callback, context, events);
}

DWORD WINAPI FwpmNetEventSubscribe4(HANDLE engine, const FWPM_NET_EVENT_SUBSCRIPTION0* subscription,
                                    FWPM_NET_EVENT_CALLBACK4 callback, void* context,
                                    HANDLE* events) {
  return SubscribeEvents(engine, subscription, callback, context, events);
}

DWORD WINAPI FwpmNetEventUnsubscribe0(HANDLE engine, HANDLE events) {
  return Unsubscribe(engine, &EngineSession::event_listeners, events);
}

}  // extern "C"
