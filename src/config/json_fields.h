// Members of a JSON object read as typed values: what the configuration and the commands of the
// control pipe share. An absent member and a null one mean the same. Each failure is one sentence
// that names the key, and leaves the value as it was.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "config/json.h"

namespace kestrelon {

// The text of a string without blanks and line ends around it; empty for any other value.
[[nodiscard]] std::wstring TrimmedText(const Json& value);

// A boolean; `otherwise` when absent.
[[nodiscard]] bool ReadBool(const Json& object, std::string_view key, bool otherwise, bool& value,
                            std::wstring& error);

// A string without blanks and line ends around it; empty when absent.
[[nodiscard]] bool ReadText(const Json& object, std::string_view key, std::wstring& value,
                            std::wstring& error);

// A number without a fraction, also when written as 9.0 or 9e0; 0 when absent.
[[nodiscard]] bool ReadWholeNumber(const Json& object, std::string_view key, std::int64_t& value,
                                   std::wstring& error);

}  // namespace kestrelon
