// The shapes of answers to a client.
#pragma once

#include <string>

#include "config/json.h"

namespace kestrelon {

// {"ok":true}
[[nodiscard]] Json OkReply();

// {"ok":false,"error":text}; the text is written for people and shown as it stands.
[[nodiscard]] Json ErrorReply(const std::wstring& text);

}  // namespace kestrelon
