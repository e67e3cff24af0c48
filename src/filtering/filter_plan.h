// What the compiler hands to the filter layer.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kestrelon {

// One concrete file, service or package.
struct PlanEntry {
  std::wstring path;  // the file; for a service its executable; for a package the entry's text
  bool allow = false;
  bool inbound = false;          // a permitting entry also covers inbound
  bool integrity_block = false;  // held back: blocked both ways at the highest weight
  std::wstring service_sid;      // empty for anything but a service
  std::wstring label;            // display text, empty for a plain file
  std::wstring package_sid;      // empty for anything but a package
  bool hash_pinned = false;      // permitted only because its hash is listed
  std::int64_t usn = -1;         // of such a file, the change number before its hash was taken

  friend bool operator==(const PlanEntry&, const PlanEntry&) = default;
};

struct FilterPlan {
  std::vector<PlanEntry> entries;      // in the order of the applications and their files
  std::vector<std::wstring> warnings;  // findings for the user, in order
  std::wstring fingerprint;            // the identity of everything that the plan depends on
  bool config_changed = false;         // compiling learnt something; the caller saves it
  std::wstring dns_servers;            // ", "-separated
  bool update_traffic = false;         // an update may be fetched once the plan is in force
};

}  // namespace kestrelon
