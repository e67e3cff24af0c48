#include "simulation/bench/pipe_channel.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "simulation/bench/protocol.h"

namespace simulation {
namespace {

constexpr std::size_t kHeaderBytes = 4;
// Holds nearly every message, so that one read takes a message whole.
constexpr std::size_t kFirstBuffer = 64u << 10;

// How often an answer is looked for before the thread sleeps, and how long it sleeps at most.
constexpr int kEagerLooks = 32;
constexpr DWORD kLongestSleepMs = 8;

// Waits until a read would find bytes or the end of the pipe. A read that waits by itself is, under
// Wine, now and then not woken by what arrives: both ends then stand still for ever.
void AwaitBytes(HANDLE pipe) {
  DWORD sleep_ms = 1;
  for (int looks = 0;; ++looks) {
    DWORD available = 0;
    if (!PeekNamedPipe(pipe, nullptr, 0, nullptr, &available, nullptr) || available > 0) return;
    if (looks < kEagerLooks) {
      SwitchToThread();
    } else {
      Sleep(sleep_ms);
      sleep_ms = std::min(2 * sleep_ms, kLongestSleepMs);
    }
  }
}

}  // namespace

PipeChannel::PipeChannel(PipeChannel&& other) noexcept {
  *this = std::move(other);
}

PipeChannel& PipeChannel::operator=(PipeChannel&& other) noexcept {
  if (this == &other) return *this;
  Close();
  pipe_ = std::exchange(other.pipe_, INVALID_HANDLE_VALUE);
  outgoing_ = std::move(other.outgoing_);
  incoming_ = std::move(other.incoming_);
  begin_ = std::exchange(other.begin_, 0);
  end_ = std::exchange(other.end_, 0);
  return *this;
}

void PipeChannel::Close() {
  if (is_open()) CloseHandle(pipe_);
  pipe_ = INVALID_HANDLE_VALUE;
}

WireWriter PipeChannel::Begin() {
  outgoing_.clear();
  WireWriter writer(outgoing_);
  writer.U32(0);  // the length, known in Send
  return writer;
}

bool PipeChannel::Send() {
  const std::size_t length = outgoing_.size() - kHeaderBytes;
  for (std::size_t i = 0; i < kHeaderBytes; ++i) {
    outgoing_[i] = static_cast<std::uint8_t>(length >> (8 * i));
  }
  std::size_t sent = 0;
  while (is_open() && sent < outgoing_.size()) {
    DWORD written = 0;
    const auto rest = static_cast<DWORD>(outgoing_.size() - sent);
    if (!WriteFile(pipe_, outgoing_.data() + sent, rest, &written, nullptr)) Close();
    sent += written;
  }
  return is_open();
}

bool PipeChannel::Fill(std::size_t size) {
  if (begin_ > 0 && begin_ + size > incoming_.size()) {
    std::memmove(incoming_.data(), incoming_.data() + begin_, end_ - begin_);
    end_ -= std::exchange(begin_, 0);
  }
  if (begin_ + size > incoming_.size()) incoming_.resize(std::max(kFirstBuffer, begin_ + size));
  while (is_open() && end_ - begin_ < size) {
    AwaitBytes(pipe_);
    DWORD got = 0;
    const auto room = static_cast<DWORD>(incoming_.size() - end_);
    if (!ReadFile(pipe_, incoming_.data() + end_, room, &got, nullptr)) Close();
    end_ += got;
  }
  return is_open();
}

bool PipeChannel::Receive(WireReader& message) {
  if (begin_ == end_) begin_ = end_ = 0;
  if (!Fill(kHeaderBytes)) return false;
  const std::size_t length = WireReader(incoming_.data() + begin_, kHeaderBytes).U32();
  if (length > kLongestMessage) {
    Close();
    return false;
  }
  if (!Fill(kHeaderBytes + length)) return false;
  message = WireReader(incoming_.data() + begin_ + kHeaderBytes, length);
  begin_ += kHeaderBytes + length;
  return true;
}

}  // namespace simulation
