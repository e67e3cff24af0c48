// Which build of the product this is.
#pragma once

#include <cstdint>

namespace kestrelon {

// Not constants of the compiler's: the same objects are linked into the build that follows, which
// tests install over this one.
extern const wchar_t* const kVersion;
extern const std::int32_t kBuild;  // higher than that of every build before

}  // namespace kestrelon
