// Named pipes that carry messages. Every call may block until the other side acts; CancelPipe ends
// such a wait from another thread.
#pragma once

#include <cstdint>
#include <string>

#include "platform/codes.h"
#include "platform/security.h"

namespace kestrelon::platform {

enum PipeOpenMode : std::uint32_t {
  kPipeDuplex = 0x3,
  kPipeFirstInstance = 0x80000,  // fails when somebody else has made the pipe already
};
enum PipeMode : std::uint32_t {
  kPipeMessageType = 0x4,
  kPipeMessageRead = 0x2,
  kPipeRejectRemote = 0x8,
};

// One end of a connection. Closes itself; what was not read yet is then lost to the other side.
class Pipe {
 public:
  Pipe() = default;
  ~Pipe() { Close(); }
  Pipe(Pipe&& other) noexcept : handle_(other.handle_) { other.handle_ = 0; }
  Pipe& operator=(Pipe&& other) noexcept;

  bool is_open() const { return handle_ != 0; }
  void Close();

  // The platform's value; 0 while closed. For the calls below, and as a name for CancelPipe.
  std::uintptr_t handle() const { return handle_; }
  void Adopt(std::uintptr_t handle) {
    Close();
    handle_ = handle;
  }

 private:
  std::uintptr_t handle_ = 0;
};

struct PipeSettings {
  std::wstring name;
  std::uint32_t open_mode = 0;  // PipeOpenMode
  std::uint32_t pipe_mode = 0;  // PipeMode
  std::uint32_t instances = 1;  // at most this many at a time
  std::uint32_t out_buffer_bytes = 0;
  std::uint32_t in_buffer_bytes = 0;
  std::uint32_t default_timeout_ms = 0;
};

// Makes one more instance of a pipe, for one client, who may come through the descriptor only.
[[nodiscard]] Code MakePipe(const PipeSettings& settings, const SecurityDescriptor& descriptor,
                            Pipe& pipe);

// Waits for a client. One that came before the call answers kPipeConnected.
[[nodiscard]] Code AwaitPipeClient(const Pipe& pipe);

// Ends the connection with the client; what it has not read yet is lost.
Code DisconnectPipeClient(const Pipe& pipe);

// The client's side: opens an existing pipe to read and write, in message mode when asked to.
[[nodiscard]] Code OpenPipe(const std::wstring& name, bool read_messages, Pipe& pipe);

// Waits for a message and reads at most `size` bytes of it. kMoreData says that `read` bytes are
// there and the message goes on.
[[nodiscard]] Code ReadPipe(const Pipe& pipe, void* bytes, std::uint32_t size, std::uint32_t& read);

// Writes one message; waits while the other side's buffer is full.
[[nodiscard]] Code WritePipe(const Pipe& pipe, const void* bytes, std::uint32_t size,
                             std::uint32_t& written);

// Waits until the other side has read everything.
Code FlushPipe(const Pipe& pipe);

// Ends what other threads wait for on an open pipe; their calls fail.
Code CancelPipe(std::uintptr_t handle);

}  // namespace kestrelon::platform
