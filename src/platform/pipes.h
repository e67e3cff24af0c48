// Named pipes that carry messages. Calls that wait do so until the other side acts or, from another
// thread, CancelPipe ends them. But for CancelPipe, calls on one handle run one after the other: a
// call also waits for the one that another thread is in.
#pragma once

#include <cstdint>
#include <string>

#include "platform/codes.h"
#include "platform/handle.h"
#include "platform/security.h"

namespace kestrelon::platform {

enum PipeOpenMode : std::uint32_t {
  kPipeDuplex = 0x3,
  kPipeFirstInstance = 0x80000,  // fails when the pipe is there already, whoever made it
};
enum PipeMode : std::uint32_t {
  kPipeMessageType = 0x4,
  kPipeMessageRead = 0x2,
  kPipeRejectRemote = 0x8,
};

// As the number of instances: as many as the machine has room for.
inline constexpr std::uint32_t kUnlimitedPipeInstances = 255;

// One end of a connection. What it wrote before it is closed can still be read at the other end,
// what it has not read is gone. The value also names it for CancelPipe.
void ClosePipe(std::uintptr_t handle);
using Pipe = Handle<&ClosePipe>;

struct PipeSettings {
  std::wstring name;                   // "\\.\pipe\" and a name, without regard to case
  std::uint32_t open_mode = 0;         // PipeOpenMode
  std::uint32_t pipe_mode = 0;         // PipeMode
  std::uint32_t instances = 1;         // at most this many at a time
  std::uint32_t out_buffer_bytes = 0;  // what the server may write ahead of the client's reading
  std::uint32_t in_buffer_bytes = 0;   // the same the other way
};

// Makes one more instance of a pipe, for one client. The first instance's descriptor says who may
// come as a client or make further instances. `pipe` is changed on success only.
[[nodiscard]] Code MakePipe(const PipeSettings& settings, const SecurityDescriptor& descriptor,
                            Pipe& pipe);

// Waits for a client. One that came before the call answers kPipeConnected; one that came and went
// is a failure, and the instance good for nothing until DisconnectPipeClient.
[[nodiscard]] Code AwaitPipeClient(const Pipe& pipe);

// The id of the process that opened the client's end, as the system knows it. Only of a connection
// that came about and wasn't disconnected.
[[nodiscard]] Code PipeClientProcess(const Pipe& pipe, std::uint32_t& process_id);

// Ends the connection with the client; what it has not read yet is lost.
Code DisconnectPipeClient(const Pipe& pipe);

// The client's side: opens an existing pipe to read and write, in message mode when asked to.
// Doesn't wait for an instance to come free. `pipe` is changed on success only.
[[nodiscard]] Code OpenPipe(const std::wstring& name, bool read_messages, Pipe& pipe);

// Waits for a message and reads at most `size` bytes of it. kMoreData says that `read` bytes are
// there and the message goes on; any other failure leaves `read` alone. A message may be empty.
[[nodiscard]] Code ReadPipe(const Pipe& pipe, void* bytes, std::uint32_t size, std::uint32_t& read);

// Writes one message; waits until what of it was not read has room in the pipe's buffer. `written`
// is changed on success only.
[[nodiscard]] Code WritePipe(const Pipe& pipe, const void* bytes, std::uint32_t size,
                             std::uint32_t& written);

// Waits until the other side has read everything, or is gone.
Code FlushPipe(const Pipe& pipe);

// Ends the call that another thread waits in on this handle; it fails with 995. A call that begins
// a moment later is not ended: ask again until the thread is seen to leave.
Code CancelPipe(std::uintptr_t handle);

}  // namespace kestrelon::platform
