// The version of the build that the tests install over the present one.
#include "core/version.h"

namespace kestrelon {

const wchar_t* const kVersion = L"1.2.3";
const std::int32_t kBuild = 49;

}  // namespace kestrelon
