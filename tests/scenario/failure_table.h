// The table in docs/failures.md of what is in force after a failure: made from what the sweep saw.
#pragma once

#include <map>
#include <set>
#include <string>
#include <utility>

namespace kestrelon::test {

// What a step left, in words: the filters in force, and what else it changes.
using Outcome = std::pair<std::string, std::string>;
// With the failures that led there.
using Outcomes = std::map<Outcome, std::set<std::string>>;

// Fails the test if the document's rows for a step differ from what was seen; `usual` is what the
// step leaves undisturbed, and after each failure that is not named elsewhere. Where the
// environment has KESTRELON_REFRESH_TABLES, the rows are written instead.
void CheckFailureTable(const std::string& step, const Outcome& usual, const Outcomes& seen);

}  // namespace kestrelon::test
