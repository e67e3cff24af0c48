// What an engine handle of the library points at.
#pragma once

#include <windows.h>

#include <memory>
#include <vector>

#include "base/guard.h"
#include "simulation/bench/engine_client.h"
#include "simulation/bench/stream_listener.h"

namespace simulation {

using Listeners = std::vector<std::unique_ptr<StreamListener>>;

struct EngineSession {
  std::unique_ptr<EngineClient> client;
  kestrelon::Guard guard{"EngineSession", kestrelon::GuardRank::kRecord};
  // Of the open subscriptions; the address of each is its handle.
  Listeners change_listeners GUARDED_BY(guard);
  Listeners event_listeners GUARDED_BY(guard);
};

inline EngineSession& SessionOf(HANDLE handle) {
  return *static_cast<EngineSession*>(handle);
}
inline EngineClient& ClientOf(HANDLE handle) {
  return *SessionOf(handle).client;
}

}  // namespace simulation
