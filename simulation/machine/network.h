// The machine's adapters.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "platform/network.h"

namespace simulation {

class Network {
 public:
  // One adapter that is up, with these servers; texts with a colon are of the IPv6 family. Any
  // thread, at any time.
  void SetDnsServers(const std::vector<std::wstring>& servers);

  // A copy of the adapters. Any thread.
  std::vector<kestrelon::platform::Adapter> Adapters() const;

  // For details that SetDnsServers can't make; to be changed only while no other thread runs.
  std::vector<kestrelon::platform::Adapter> adapters;

 private:
  mutable std::mutex mutex_;  // guards `adapters` against SetDnsServers
};

}  // namespace simulation
