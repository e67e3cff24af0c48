#include "control/frames.h"

namespace kestrelon {

bool ReadFrame(const platform::Pipe& pipe, std::string& frame) {
  std::string bytes;
  platform::Code code = platform::kMoreData;
  while (code == platform::kMoreData) {
    if (bytes.size() > kLargestFrameBytes) return false;
    const std::size_t size = bytes.size();
    bytes.resize(size + kReadChunkBytes);
    std::uint32_t read = 0;
    code = platform::ReadPipe(pipe, bytes.data() + size, kReadChunkBytes, read);
    bytes.resize(size + read);
  }
  if (code != platform::kSuccess || bytes.size() > kLargestFrameBytes) return false;
  frame = std::move(bytes);
  return true;
}

bool WriteFrame(const platform::Pipe& pipe, std::string_view frame) {
  const auto size = static_cast<std::uint32_t>(frame.size());
  std::uint32_t written = 0;
  return platform::WritePipe(pipe, frame.data(), size, written) == platform::kSuccess &&
         written == size;
}

}  // namespace kestrelon
