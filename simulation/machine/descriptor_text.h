// Descriptor texts (SDDL) turned into the platform's self-relative binary form.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/codes.h"

namespace simulation {

// Reads owner, group, DACL and SACL in any order. Entries are allowing ("A"), denying ("D") and, in
// the SACL, auditing ("AU") ones; object and conditional entries are not known here. Answers with
// the platform's codes: 1336 for a malformed list or entry, 1337 for a malformed SID, 87 for
// anything else. `descriptor` is changed on success only.
kestrelon::platform::Code ParseDescriptorText(const std::wstring& text,
                                              std::vector<std::uint8_t>& descriptor);

}  // namespace simulation
