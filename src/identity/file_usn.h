// The change-journal number of a file: it rises with each write, also when size and time are put
// back.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kestrelon {

// The number, or -1 when the file can't be opened or its volume keeps none.
[[nodiscard]] std::int64_t FileUsn(const std::wstring& path);

// Reads the number from a journal record of version 2 or 3; -1 for anything else.
[[nodiscard]] std::int64_t UsnOfRecord(const std::vector<std::uint8_t>& record);

}  // namespace kestrelon
