#include "core/version.h"

namespace kestrelon {

const wchar_t* const kVersion = L"1.2.2";
const std::int32_t kBuild = 48;

}  // namespace kestrelon
