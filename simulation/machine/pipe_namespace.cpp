#include "simulation/machine/pipe_namespace.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "simulation/machine/acting_process.h"
#include "simulation/machine/letter_case.h"

namespace simulation {

using kestrelon::platform::kAccessDenied;
using kestrelon::platform::kFileNotFound;
using kestrelon::platform::kInvalidHandle;
using kestrelon::platform::kInvalidParameter;
using kestrelon::platform::kInvalidSecurityDescriptor;
using kestrelon::platform::kPipeConnected;
using kestrelon::platform::kSuccess;

namespace {

constexpr Code kInvalidFunction = 1;
constexpr Code kBrokenPipe = 109;
constexpr Code kInvalidName = 123;
constexpr Code kPipeBusy = 231;
constexpr Code kPipeClosing = 232;  // ERROR_NO_DATA
constexpr Code kPipeNotConnected = 233;
constexpr Code kPipeListening = 536;
constexpr Code kOperationAborted = 995;
constexpr Code kNotFound = 1168;

constexpr std::wstring_view kPrefix = L"\\\\.\\PIPE\\";

// The right to make further instances (FILE_CREATE_PIPE_INSTANCE).
constexpr std::uint32_t kRightMakeInstance = 0x4;
// Generic reading and writing, as a file's rights. Writing has the bit for instances among them,
// which for files is the one to append; of a client it is not asked.
constexpr std::uint32_t kRightsOfClient = (0x120089 | 0x120116) & ~kRightMakeInstance;

// The platform's handle values are multiples of four.
constexpr std::uintptr_t kHandleStep = 4;

bool AreValid(const platform::PipeSettings& settings) {
  const std::uint32_t direction = settings.open_mode & ~std::uint32_t{platform::kPipeFirstInstance};
  const bool reads_messages = (settings.pipe_mode & platform::kPipeMessageRead) != 0;
  const bool keeps_messages = (settings.pipe_mode & platform::kPipeMessageType) != 0;
  return direction == platform::kPipeDuplex && (keeps_messages || !reads_messages) &&
         settings.instances >= 1 && settings.instances <= platform::kUnlimitedPipeInstances;
}

// Why nothing can pass in this state. `closing` is the code of an end whose other end is closed.
Code StateFailure(PipeState state, Code closing) {
  switch (state) {
    case PipeState::kListening:
      return kPipeListening;
    case PipeState::kConnected:
      return kSuccess;
    case PipeState::kClosing:
      return closing;
    case PipeState::kDisconnected:
      return kPipeNotConnected;
  }
  return kPipeNotConnected;
}

}  // namespace

// A call on a handle: begins when no other call is on it, and may wait in the middle.
class PipeNamespace::Turn {
 public:
  Turn(PipeNamespace& pipes, std::uintptr_t handle) : pipes_(pipes), lock_(pipes.mutex_) {
    const auto found = pipes_.ends_.find(handle);
    if (found == pipes_.ends_.end()) return;
    const std::shared_ptr<End> end = found->second;
    pipes_.changed_.wait(lock_, [&] { return !end->in_call || end->closed || end->dead; });
    if (end->closed || end->dead) return;
    end_ = end;
    end_->in_call = true;
    end_->cancelled = false;
  }
  ~Turn() {
    if (end_) end_->in_call = false;
    pipes_.changed_.notify_all();
  }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

  // Whether the handle is open; nothing else may be asked if it isn't.
  explicit operator bool() const { return end_ != nullptr; }
  End& end() const { return *end_; }

  // Waits for the other end to make `ready` true; else tells why it is waited no longer.
  template <typename Ready>
  Code WaitUntil(Ready ready) {
    const auto stopped = [&] { return end_->dead || pipes_.faults_.power_lost(); };
    pipes_.changed_.notify_all();
    end_->waiting = true;
    pipes_.changed_.wait(lock_, [&] { return stopped() || ready() || end_->cancelled; });
    end_->waiting = false;
    if (stopped()) return kPowerLost;
    return ready() ? kSuccess : kOperationAborted;
  }

 private:
  PipeNamespace& pipes_;
  std::unique_lock<std::mutex> lock_;
  std::shared_ptr<End> end_;
};

std::size_t PipeNamespace::open_handles() const {
  const std::lock_guard lock(mutex_);
  return ends_.size();
}

std::size_t PipeNamespace::waiting() const {
  const std::lock_guard lock(mutex_);
  const auto count =
      std::count_if(ends_.begin(), ends_.end(), [](const auto& e) { return e.second->waiting; });
  return static_cast<std::size_t>(count);
}

void PipeNamespace::WakeAll() {
  // Under the mutex: a call that has just looked at the power is then asleep and hears it.
  const std::lock_guard lock(mutex_);
  changed_.notify_all();
}

void PipeNamespace::DropHandles() {
  const std::lock_guard lock(mutex_);
  for (const auto& [handle, end] : ends_) end->dead = true;
  ends_.clear();
  pipes_.clear();
  changed_.notify_all();
}

bool PipeNamespace::Grants(const NamedPipe& pipe, std::uint32_t rights) const {
  const Caller caller = {
      .local_system = token_.local_system, .administrator = token_.elevated, .sids = {}};
  return simulation::Grants(pipe.security, TokenOf(caller).sids, rights);
}

std::uintptr_t PipeNamespace::AddHandle(End end) {
  last_handle_ += kHandleStep;
  ends_[last_handle_] = std::make_shared<End>(std::move(end));
  return last_handle_;
}

Code PipeNamespace::Make(const platform::PipeSettings& settings,
                         const platform::SecurityDescriptor& descriptor, std::uintptr_t& handle) {
  const std::wstring name = FoldCase(settings.name);
  if (!name.starts_with(kPrefix) || name.size() == kPrefix.size()) return kInvalidName;
  if (!AreValid(settings)) return kInvalidParameter;
  NamedPipe fresh;
  if (!ParseDescriptor(descriptor, fresh.security, kFileRights)) return kInvalidSecurityDescriptor;
  fresh.keeps_messages = (settings.pipe_mode & platform::kPipeMessageType) != 0;
  fresh.most_instances = settings.instances;

  const std::lock_guard lock(mutex_);
  const auto [place, is_first] = pipes_.try_emplace(name, fresh);
  NamedPipe& pipe = place->second;
  if (!is_first) {
    if (!Grants(pipe, kRightMakeInstance)) return kAccessDenied;
    if (pipe.most_instances != platform::kUnlimitedPipeInstances &&
        pipe.instances.size() >= pipe.most_instances) {
      return kPipeBusy;
    }
    if ((settings.open_mode & platform::kPipeFirstInstance) != 0) return kAccessDenied;
    if (pipe.keeps_messages != fresh.keeps_messages) return kAccessDenied;
  }
  End server;
  server.connection =
      std::make_shared<PipeConnection>(settings.out_buffer_bytes, settings.in_buffer_bytes);
  server.pipe = name;
  server.is_server = true;
  server.reads_messages = (settings.pipe_mode & platform::kPipeMessageRead) != 0;
  pipe.instances.push_back(server.connection);
  handle = AddHandle(std::move(server));
  return kSuccess;
}

Code PipeNamespace::Open(const std::wstring& name, bool read_messages, std::uintptr_t& handle) {
  const std::lock_guard lock(mutex_);
  const auto found = pipes_.find(FoldCase(name));
  if (found == pipes_.end()) return kFileNotFound;
  const NamedPipe& pipe = found->second;
  const auto any = [&pipe](auto matches) {
    return std::find_if(pipe.instances.begin(), pipe.instances.end(), matches);
  };
  const auto none = pipe.instances.end();
  // Clients that stay keep their instances, but not the name.
  if (any([](const Connection& c) { return c->server_open; }) == none) return kFileNotFound;
  if (!Grants(pipe, kRightsOfClient)) return kAccessDenied;
  if (read_messages && !pipe.keeps_messages) return kInvalidParameter;
  const auto free = any([](const Connection& c) { return c->state == PipeState::kListening; });
  if (free == none) return kPipeBusy;
  (*free)->state = PipeState::kConnected;
  (*free)->client_open = true;
  (*free)->client_process = ActingProcess();
  End client;
  client.connection = *free;
  client.pipe = found->first;
  client.reads_messages = read_messages;
  handle = AddHandle(std::move(client));
  changed_.notify_all();
  return kSuccess;
}

// What the end has written stays for the other one; what it has not read is lost.
void PipeNamespace::Leave(End& end) {
  end.closed = true;
  PipeConnection& connection = *end.connection;
  (end.is_server ? connection.server_open : connection.client_open) = false;
  if (connection.state != PipeState::kDisconnected) connection.state = PipeState::kClosing;
  end.incoming().Lose();
  const auto pipe = pipes_.find(end.pipe);
  if (connection.server_open || connection.client_open || pipe == pipes_.end()) return;
  std::erase(pipe->second.instances, end.connection);
  if (pipe->second.instances.empty()) pipes_.erase(pipe);
}

void PipeNamespace::Close(std::uintptr_t handle) {
  const Turn turn(*this, handle);
  if (!turn) return;
  Leave(turn.end());
  ends_.erase(handle);
}

Code PipeNamespace::AwaitClient(std::uintptr_t handle) {
  Turn turn(*this, handle);
  if (!turn) return kInvalidHandle;
  if (!turn.end().is_server) return kInvalidFunction;
  PipeState& state = turn.end().connection->state;
  if (state == PipeState::kConnected) return kPipeConnected;
  if (state == PipeState::kClosing) return kPipeClosing;
  state = PipeState::kListening;
  return turn.WaitUntil([&] { return state != PipeState::kListening; });
}

Code PipeNamespace::ClientProcess(std::uintptr_t handle, std::uint32_t& process_id) {
  const Turn turn(*this, handle);
  if (!turn) return kInvalidHandle;
  const std::uint32_t id = turn.end().connection->client_process;
  if (id == 0) return kNotFound;
  process_id = id;
  return kSuccess;
}

Code PipeNamespace::Disconnect(std::uintptr_t handle) {
  const Turn turn(*this, handle);
  if (!turn) return kInvalidHandle;
  End& end = turn.end();
  if (!end.is_server) return kInvalidFunction;
  if (end.connection->state == PipeState::kDisconnected) return kPipeNotConnected;
  // The client keeps the old connection, the instance goes on with a new one.
  const Connection old = end.connection;
  const auto fresh =
      std::make_shared<PipeConnection>(old->to_client.quota(), old->to_server.quota());
  fresh->state = PipeState::kDisconnected;
  std::vector<Connection>& instances = pipes_[end.pipe].instances;
  std::replace(instances.begin(), instances.end(), old, fresh);
  end.connection = fresh;
  old->state = PipeState::kDisconnected;
  old->server_open = false;
  old->to_client.Lose();
  old->to_server.Lose();
  return kSuccess;
}

Code PipeNamespace::Read(std::uintptr_t handle, void* bytes, std::uint32_t size,
                         std::uint32_t& read) {
  Turn turn(*this, handle);
  if (!turn) return kInvalidHandle;
  PipeQueue& queue = turn.end().incoming();
  const PipeState& state = turn.end().connection->state;
  const Code code =
      turn.WaitUntil([&] { return !queue.empty() || state != PipeState::kConnected; });
  if (code) return code;
  if (queue.empty()) return StateFailure(state, kBrokenPipe);
  if (turn.end().reads_messages) return queue.TakeMessage(bytes, size, read);
  queue.TakeBytes(bytes, size, read);
  return kSuccess;
}

Code PipeNamespace::Write(std::uintptr_t handle, const void* bytes, std::uint32_t size,
                          std::uint32_t& written) {
  Turn turn(*this, handle);
  if (!turn) return kInvalidHandle;
  PipeQueue& queue = turn.end().outgoing();
  const PipeState& state = turn.end().connection->state;
  if (const Code code = StateFailure(state, kPipeClosing)) return code;
  queue.Put(bytes, size);
  if (const Code code = turn.WaitUntil([&] { return !queue.over_quota(); })) {
    // Nobody else writes in this direction while the call lasts: the last message is its own.
    if (!queue.empty()) queue.WithdrawLast();
    return code;
  }
  if (queue.lost()) return StateFailure(state, kBrokenPipe);
  written = size;
  return kSuccess;
}

Code PipeNamespace::Flush(std::uintptr_t handle) {
  Turn turn(*this, handle);
  if (!turn) return kInvalidHandle;
  PipeQueue& queue = turn.end().outgoing();
  const PipeState& state = turn.end().connection->state;
  if (queue.empty()) return kSuccess;
  if (const Code code = turn.WaitUntil([&] { return queue.empty(); })) return code;
  return queue.lost() ? StateFailure(state, kBrokenPipe) : kSuccess;
}

Code PipeNamespace::Cancel(std::uintptr_t handle) {
  const std::lock_guard lock(mutex_);
  const auto found = ends_.find(handle);
  if (found == ends_.end()) return kInvalidHandle;
  End& end = *found->second;
  if (!end.waiting) return kNotFound;
  end.cancelled = true;
  changed_.notify_all();
  return kSuccess;
}

}  // namespace simulation
