// What passes between the two ends of one instance of a named pipe. Nothing here waits or locks:
// the namespace of pipes does.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>

#include "platform/codes.h"

namespace simulation {

using kestrelon::platform::Code;

// One direction: the messages that one end wrote and the other has not read.
class PipeQueue {
 public:
  // `quota`: how many unread bytes there may be before a writer must wait.
  explicit PipeQueue(std::uint32_t quota) : quota_(quota) {}

  void Put(const void* bytes, std::uint32_t size);

  // Reads at most `size` bytes of the first message, or of all of them without regard to where they
  // end. kMoreData if the first message goes on. Only with something to read.
  Code TakeMessage(void* bytes, std::uint32_t size, std::uint32_t& read);
  void TakeBytes(void* bytes, std::uint32_t size, std::uint32_t& read);

  // Takes back the last message, or what is left of it: its writer waits no longer.
  void WithdrawLast();

  // The reader is gone, and so is what it has not read.
  void Lose();

  bool empty() const { return messages_.empty(); }
  bool over_quota() const { return unread_ > quota_; }
  // Whether something was there to lose.
  bool lost() const { return lost_; }
  std::uint32_t quota() const { return quota_; }

 private:
  std::uint32_t TakeFromFirst(char* bytes, std::uint32_t size);

  std::deque<std::string> messages_;
  std::size_t taken_ = 0;   // bytes of the first message
  std::size_t unread_ = 0;  // bytes of all of them
  std::uint32_t quota_;
  bool lost_ = false;
};

enum class PipeState {
  kListening,     // open to a client
  kConnected,     // with both ends open
  kClosing,       // one end has been closed
  kDisconnected,  // by the server
};

struct PipeConnection {
  PipeConnection(std::uint32_t out_quota, std::uint32_t in_quota)
      : to_client(out_quota), to_server(in_quota) {}

  PipeState state = PipeState::kListening;
  bool server_open = true;
  bool client_open = false;
  std::uint32_t client_process = 0;  // the id of who opened the client's end; 0: nobody yet
  PipeQueue to_client;
  PipeQueue to_server;
};

}  // namespace simulation
