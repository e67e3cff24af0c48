// The way of what subscribers are told from the engine's thread to the connections on which it
// leaves.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>

#include "simulation/engine/wire.h"

namespace simulation {

// BFE's number of a subscription of either kind.
using StreamId = std::uint64_t;

// The messages of one subscription that are still to be sent, each in its form on the wire.
class StreamQueue {
 public:
  // Holds at most `most` messages.
  explicit StreamQueue(std::size_t most) : most_(most) {}

  // Never waits, for the engine's thread: a message that finds the queue full or closed is lost.
  void Push(Bytes message);
  // What is queued is still taken; then Take gives false.
  void Close();
  // Waits for a message; false after the end.
  [[nodiscard]] bool Take(Bytes& message);

 private:
  const std::size_t most_;
  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<Bytes> messages_;
  bool closed_ = false;
};

// The open subscriptions, where the listening connections find them.
class StreamQueues {
 public:
  [[nodiscard]] StreamId Add(std::shared_ptr<StreamQueue> queue);
  // Null for an unknown number.
  [[nodiscard]] std::shared_ptr<StreamQueue> Find(StreamId id);
  // Closes the queue and forgets it.
  void Remove(StreamId id);

 private:
  std::mutex mutex_;
  StreamId last_id_ = 0;
  std::map<StreamId, std::shared_ptr<StreamQueue>> queues_;
};

}  // namespace simulation
