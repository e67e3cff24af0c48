// A machine whose engine reports to the product.
#pragma once

#include "core/core_state.h"
#include "events/net_events.h"
#include "tests/filtering/filter_world.h"

namespace kestrelon {

class EventWorld : public FilterWorld {
 protected:
  ~EventWorld() override { Stop(); }

  void Start() {
    GuardLock lock(ConfigGuard);
    StartNetEvents();
  }
  void Stop() {
    GuardLock lock(ConfigGuard);
    StopNetEvents();
  }
  // Puts a connection to the engine; it is reported once this returns.
  void Connect(const simulation::Connection& connection) {
    (void)machine_.engine.Classify(connection);
    machine_.engine.WaitForNotifications();
  }
};

}  // namespace kestrelon
