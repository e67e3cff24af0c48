// Search patterns for file names, with the platform's rules.
#pragma once

#include <string_view>

namespace simulation {

// Whether a name matches a pattern as a directory search takes it, without regard to case: "*"
// stands for any run, "?" for one character or, at a dot or the end, for none; "*.*" matches
// names without a dot too.
bool NameMatches(std::wstring_view pattern, std::wstring_view name);

}  // namespace simulation
