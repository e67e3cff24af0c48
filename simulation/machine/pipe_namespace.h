// The machine's named pipes: message channels between threads of this process, by the rules of the
// platform's own pipe file system.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/pipes.h"
#include "simulation/engine/access.h"
#include "simulation/machine/faults.h"
#include "simulation/machine/pipe_connection.h"
#include "simulation/machine/token.h"

namespace simulation {

// Any thread. Calls that wait do so in real time, whatever the machine's clock does; they end when
// the machine loses its power or is restarted.
class PipeNamespace {
 public:
  PipeNamespace(const Faults& faults, const ProcessToken& token) : faults_(faults), token_(token) {}

  // Ends of pipes that are open.
  std::size_t open_handles() const;

  // Calls that wait for the other end of their pipe now.
  std::size_t waiting() const;

  // Lets waiting calls see that the power is gone.
  void WakeAll();

  // All pipes are gone and all handles dead.
  void DropHandles();

  // The calls of the seam, as platform/pipes.h tells.
  Code Make(const platform::PipeSettings& settings, const platform::SecurityDescriptor& descriptor,
            std::uintptr_t& handle);
  Code Open(const std::wstring& name, bool read_messages, std::uintptr_t& handle);
  void Close(std::uintptr_t handle);
  Code AwaitClient(std::uintptr_t handle);
  Code ClientProcess(std::uintptr_t handle, std::uint32_t& process_id);
  Code Disconnect(std::uintptr_t handle);
  Code Read(std::uintptr_t handle, void* bytes, std::uint32_t size, std::uint32_t& read);
  Code Write(std::uintptr_t handle, const void* bytes, std::uint32_t size, std::uint32_t& written);
  Code Flush(std::uintptr_t handle);
  Code Cancel(std::uintptr_t handle);

 private:
  using Connection = std::shared_ptr<PipeConnection>;

  struct NamedPipe {
    ObjectSecurity security;
    bool keeps_messages = false;
    std::uint32_t most_instances = 0;
    // Each lives until both its ends are closed.
    std::vector<Connection> instances;
  };

  struct End {
    Connection connection;
    std::wstring pipe;  // its folded name
    bool is_server = false;
    bool reads_messages = false;
    bool in_call = false;    // by the thread whose turn it is
    bool waiting = false;    // in that call
    bool cancelled = false;  // that call
    bool closed = false;
    bool dead = false;  // by a restart

    PipeQueue& incoming() { return is_server ? connection->to_server : connection->to_client; }
    PipeQueue& outgoing() { return is_server ? connection->to_client : connection->to_server; }
  };

  class Turn;

  bool Grants(const NamedPipe& pipe, std::uint32_t rights) const;
  std::uintptr_t AddHandle(End end);
  void Leave(End& end);

  const Faults& faults_;
  const ProcessToken& token_;

  mutable std::mutex mutex_;  // guards all below
  std::condition_variable changed_;
  std::map<std::wstring, NamedPipe> pipes_;  // by folded name
  std::map<std::uintptr_t, std::shared_ptr<End>> ends_;
  std::uintptr_t last_handle_ = 0x1000;
};

}  // namespace simulation
