// Platform codes as people read them.
#pragma once

#include <string>

#include "platform/codes.h"

namespace kestrelon {

// "0x00000005 - Access is denied.", or the code alone when no message is known for it.
[[nodiscard]] std::wstring ErrorText(platform::Code code);

}  // namespace kestrelon
