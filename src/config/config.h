// The configuration in memory: what the user has decided, as config.json holds it.
//
// Plain values without a lock. Address, port and application texts stay texts and are parsed
// where they are used. Times are 100 ns steps since 1601-01-01 UTC; 0 is not set.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kestrelon {

// One application and what it may do.
struct AppEntry {
  std::wstring path;  // a path, a pattern, "System", "service:NAME" or "package:NAME"; never empty
  bool allow = true;
  bool inbound = false;              // the entry also covers inbound connections
  std::int64_t added = 0;            // when the entry was made
  std::wstring signer;               // signer recorded for the file
  std::wstring product;              // product label recorded for the file
  std::int64_t expires = 0;          // end of a temporary permission
  bool until_reboot = false;         // temporary permission that ends at the machine's next start
  bool trust_updates = true;         // a new file of the same signer stands for the old one
  std::vector<std::wstring> sha256;  // accepted hashes, each 64 lower-case hexadecimal digits

  friend bool operator==(const AppEntry&, const AppEntry&) = default;
};

// Values of RuleEntry::direction.
inline constexpr std::uint32_t kDirectionOut = 0;
inline constexpr std::uint32_t kDirectionIn = 1;
inline constexpr std::uint32_t kDirectionBoth = 2;

// One rule on connections.
struct RuleEntry {
  std::wstring name;  // never empty after reading
  bool enabled = true;
  bool allow = true;
  std::uint32_t direction = kDirectionOut;
  std::uint32_t protocol = 0;  // IP protocol number 0..255; 0 is every protocol
  std::wstring remote;         // address specification, empty for any
  std::wstring remote_ports;   // port specification, empty for any
  std::wstring local_ports;    // port specification, empty for any; for ICMP the message type
  std::wstring app;            // empty for any
  std::wstring user;           // SID text, empty for any

  friend bool operator==(const RuleEntry&, const RuleEntry&) = default;
};

// One approved add-on program.
struct ModuleEntry {
  std::wstring id;  // never empty; unique without regard to case
  bool enabled = false;
  std::wstring version;
  std::wstring grant;
  std::int64_t approved = 0;

  friend bool operator==(const ModuleEntry&, const ModuleEntry&) = default;
};

struct Config {
  bool enabled = true;         // filtering on
  bool allow_loopback = true;  // loopback traffic is let through
  bool boot_time_filter = true;
  bool notifications = true;  // show blocked-connection notifications
  bool notify_system = true;  // include system processes in them
  bool log_allowed = false;   // log allowed connections of all applications
  std::vector<std::wstring> log_allowed_apps;
  std::vector<std::wstring> blocklists;  // ids of the enabled blocklists
  bool blocklists_auto_update = true;
  std::wstring custom_blocklist;  // address specification
  bool updates_auto_check = true;
  std::int32_t presets_version = 0;  // generation of the predefined rules already seen
  std::vector<AppEntry> apps;
  std::vector<RuleEntry> rules;
  std::vector<ModuleEntry> modules;

  friend bool operator==(const Config&, const Config&) = default;
};

}  // namespace kestrelon
