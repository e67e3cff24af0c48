// What sessions may subscribe to, and how they are told.
#pragma once

#include <cstdint>
#include <functional>
#include <variant>

#include "base/guid.h"
#include "simulation/engine/connection.h"

namespace simulation {

using SubscriptionId = std::uint64_t;

struct FilterChange {
  bool added = false;  // otherwise deleted
  Guid key;
  std::uint64_t id = 0;
};

using ChangeCallback = std::function<void(const FilterChange&)>;
using NetEventCallback = std::function<void(const NetEvent&)>;

struct ChangeSubscription {
  std::uint32_t flags = 0;  // kNotifyOnAdd, kNotifyOnDelete
  ChangeCallback callback;
};

struct NetEventSubscription {
  NetEventCallback callback;
};

using Subscription = std::variant<ChangeSubscription, NetEventSubscription>;

}  // namespace simulation
