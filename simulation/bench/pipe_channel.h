// Whole messages over a byte pipe.
#pragma once

#include <windows.h>

#include <cstddef>

#include "simulation/engine/wire.h"

namespace simulation {

// One end of a connected pipe, which it closes. Not for two threads at a time. A message costs one
// write and, at the other end, one read: under Wine each of them is a round trip to its server.
class PipeChannel {
 public:
  PipeChannel() = default;
  explicit PipeChannel(HANDLE pipe) : pipe_(pipe) {}
  ~PipeChannel() { Close(); }
  PipeChannel(const PipeChannel&) = delete;
  PipeChannel& operator=(const PipeChannel&) = delete;
  PipeChannel(PipeChannel&& other) noexcept;
  PipeChannel& operator=(PipeChannel&& other) noexcept;

  bool is_open() const { return pipe_ != INVALID_HANDLE_VALUE; }
  void Close();

  // Begins a message; what follows goes through the writer, until Send.
  WireWriter Begin();
  // The bytes of the begun message so far.
  std::size_t begun_size() const { return outgoing_.size(); }
  // Sends the message that was begun. False, and closed, if the other end is gone.
  [[nodiscard]] bool Send();

  // Waits for a message; the reader is good until the next Receive. False, and closed, if the
  // other end is gone or announces more than kLongestMessage.
  [[nodiscard]] bool Receive(WireReader& message);

 private:
  // Has at least `size` unread bytes in incoming_.
  bool Fill(std::size_t size);

  HANDLE pipe_ = INVALID_HANDLE_VALUE;
  Bytes outgoing_;
  Bytes incoming_;
  std::size_t begin_ = 0;  // of the unread bytes
  std::size_t end_ = 0;
};

}  // namespace simulation
