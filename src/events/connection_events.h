// What is kept and told of a connection that was blocked or allowed.
//
// Addresses are texts in the platform's shortest form. Times are 100 ns steps since 1601-01-01 UTC.
#pragma once

#include <cstdint>
#include <string>

#include "config/json.h"

namespace kestrelon {

struct BlockedEvent {
  std::int64_t time = 0;
  std::wstring app;             // Win32 path; a device path no drive stands for; empty if unknown
  std::uint32_t direction = 0;  // 0 outbound, 1 inbound
  std::uint32_t protocol = 0;   // IP protocol number
  std::wstring local_addr;
  std::wstring remote_addr;
  std::uint32_t local_port = 0;
  std::uint32_t remote_port = 0;
  std::wstring reason;  // "app", "rule" or "default"
  std::wstring rule;    // the rule's name when that is the reason
  std::wstring package_sid;
  std::wstring service;  // key name of the service, where it is known
  std::uint32_t count = 1;
};

struct ConnectionRecord {
  std::wstring app;  // Win32 path
  std::wstring package_sid;
  std::uint32_t direction = 0;
  std::uint32_t protocol = 0;
  std::wstring remote_addr;
  std::uint32_t remote_port = 0;  // of an inbound connection the local port, the one that matters
  std::int64_t first = 0;
  std::int64_t last = 0;
  std::uint64_t count = 0;
  std::wstring rule;  // name of the rule that allowed it, if it was one
};

// In the form that clients see.
Json BlockedEventToJson(const BlockedEvent& event);
Json ConnectionRecordToJson(const ConnectionRecord& record);

}  // namespace kestrelon
