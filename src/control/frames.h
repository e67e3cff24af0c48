// Frames of the control pipe: one message of the pipe is one JSON value in UTF-8, with no prefix
// and no line end.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/pipes.h"

namespace kestrelon {

inline constexpr std::uint32_t kReadChunkBytes = 16384;
inline constexpr std::size_t kLargestFrameBytes = 0x2000000;

// Waits for a message and reads it whole. False when the connection is to end: the other side is
// gone, the wait was cancelled, or the message exceeds kLargestFrameBytes; `frame` is then
// unchanged.
[[nodiscard]] bool ReadFrame(const platform::Pipe& pipe, std::string& frame);

// Writes a text as one message; waits while the other side doesn't read. False when not all of it
// could be written.
[[nodiscard]] bool WriteFrame(const platform::Pipe& pipe, std::string_view frame);

}  // namespace kestrelon
