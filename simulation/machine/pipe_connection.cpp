#include "simulation/machine/pipe_connection.h"

#include <algorithm>

namespace simulation {

using kestrelon::platform::kMoreData;
using kestrelon::platform::kSuccess;

void PipeQueue::Put(const void* bytes, std::uint32_t size) {
  messages_.emplace_back(static_cast<const char*>(bytes), size);
  unread_ += size;
}

std::uint32_t PipeQueue::TakeFromFirst(char* bytes, std::uint32_t size) {
  const std::string& message = messages_.front();
  const std::size_t count = std::min<std::size_t>(size, message.size() - taken_);
  message.copy(bytes, count, taken_);
  taken_ += count;
  unread_ -= count;
  if (taken_ == message.size()) {
    messages_.pop_front();
    taken_ = 0;
  }
  return static_cast<std::uint32_t>(count);
}

Code PipeQueue::TakeMessage(void* bytes, std::uint32_t size, std::uint32_t& read) {
  const std::size_t left = messages_.front().size() - taken_;
  read = TakeFromFirst(static_cast<char*>(bytes), size);
  return read < left ? kMoreData : kSuccess;
}

void PipeQueue::TakeBytes(void* bytes, std::uint32_t size, std::uint32_t& read) {
  std::uint32_t count = 0;
  while (!messages_.empty() && count < size) {
    count += TakeFromFirst(static_cast<char*>(bytes) + count, size - count);
  }
  read = count;
}

void PipeQueue::WithdrawLast() {
  const std::size_t taken = messages_.size() == 1 ? taken_ : 0;
  unread_ -= messages_.back().size() - taken;
  messages_.pop_back();
  if (messages_.empty()) taken_ = 0;
}

void PipeQueue::Lose() {
  lost_ = lost_ || !messages_.empty();
  messages_.clear();
  taken_ = 0;
  unread_ = 0;
}

}  // namespace simulation
