// A slow and obvious answer to "may this connection pass under this configuration?", worked out
// from the configuration's own texts and what the machine's files are. It shares no code with the
// filters it is compared with: it has no weights, no filters and its own reading of the texts.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "config/config.h"

namespace kestrelon::test {

// One try to communicate.
struct Attempt {
  std::wstring program;  // full path, or "System"
  bool inbound = false;
  int family = 4;
  std::uint8_t protocol = 6;
  std::wstring remote;  // address text of the family
  std::uint16_t remote_port = 0;
  std::uint16_t local_port = 0;     // for ICMP the message type
  std::vector<std::wstring> users;  // SIDs in the program's token
  std::wstring package_sid;         // empty for none
  bool loopback = false;
};

// A file as it is on the machine.
struct KnownFile {
  std::wstring signer;  // empty for unsigned
  std::wstring sha256;
};

struct OracleFacts {
  std::map<std::wstring, KnownFile> files;        // by lower-case path
  std::map<std::wstring, std::wstring> services;  // executable path by lower-case service name
  std::map<std::wstring, std::wstring> service_sids;
  std::wstring dns_servers;      // ", "-separated
  std::wstring listed_networks;  // of the blocklist "drop", the same way
  std::wstring module_file;      // of the module "lan-messages"
  std::wstring module_grant;     // what it asks for, such as "net:in/17/53535/lan"; empty unless
                                 // its file is the one that was shipped
};

enum class Answer { kPass, kBlocked };

// What must happen to the attempt, and in `why` the entry that decided, for a failure's text.
[[nodiscard]] Answer Judge(const Config& config, const OracleFacts& facts, const Attempt& attempt,
                           std::wstring& why);

}  // namespace kestrelon::test
