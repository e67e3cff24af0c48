#include "simulation/bench/engine_client.h"

#include <cwchar>
#include <utility>

namespace simulation {
namespace {

using kestrelon::platform::kEndpointNotRegistered;
using kestrelon::platform::kFileNotFound;
using kestrelon::platform::kSuccess;

// BFE offers the next instance of its pipe right after a connection; nobody waits that long for it.
constexpr DWORD kPipeWaitMs = 5000;

constexpr auto kNoArguments = [](WireWriter&) {};
constexpr auto kNoResults = [](WireReader&) {};

// The operations of one verb stand in the order of TargetKind.
Operation ForKind(Operation for_provider, TargetKind kind) {
  return static_cast<Operation>(static_cast<int>(for_provider) + static_cast<int>(kind));
}

}  // namespace

Code ConnectToEngine(PipeChannel& channel) {
  for (;;) {
    const HANDLE pipe = CreateFileW(kBenchPipe, GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                    OPEN_EXISTING, 0, nullptr);
    if (pipe != INVALID_HANDLE_VALUE) {
      channel = PipeChannel(pipe);
      return kSuccess;
    }
    const DWORD code = GetLastError();
    if (code == ERROR_FILE_NOT_FOUND) return kEndpointNotRegistered;
    if (code != ERROR_PIPE_BUSY) return code;
    if (!WaitNamedPipeW(kBenchPipe, kPipeWaitMs) && GetLastError() == ERROR_SEM_TIMEOUT) {
      return kServerUnavailable;
    }
  }
}

BenchCaller CallerOfEnvironment() {
  wchar_t text[32] = L"";
  const DWORD length = GetEnvironmentVariableW(L"WFP_BENCH_CALLER", text, 32);
  const bool administrator = length < 32 && std::wcscmp(text, L"administrator") == 0;
  return administrator ? BenchCaller::kAdministrator : BenchCaller::kSystem;
}

template <typename PutArguments, typename TakeResults>
Code EngineClient::Call(Operation operation, const PutArguments& put, const TakeResults& take) {
  const kestrelon::GuardLock lock(guard_);
  if (!channel_.is_open()) return kServerUnavailable;
  WireWriter request = channel_.Begin();
  request.U8(static_cast<std::uint8_t>(operation));
  put(request);
  if (channel_.begun_size() > kLongestMessage) return kBadStubData;
  WireReader reply;
  if (!channel_.Send() || !channel_.Receive(reply)) return kCallFailed;
  const Code code = reply.U32();
  if (code == kSuccess) take(reply);
  return reply.Finished() ? code : kBadStubData;
}

EngineClient::~EngineClient() {
  (void)Call(Operation::kClose, kNoArguments, kNoResults);
}

Code EngineClient::Open(const SessionArguments& arguments, std::unique_ptr<EngineClient>& client) {
  std::unique_ptr<EngineClient> opened(new EngineClient);
  PipeChannel channel;
  if (const Code code = ConnectToEngine(channel)) return code;
  {
    const kestrelon::GuardLock lock(opened->guard_);
    opened->channel_ = std::move(channel);
  }
  const auto put = [&](WireWriter& request) {
    request.U8(static_cast<std::uint8_t>(arguments.caller));
    request.Text(arguments.name);
    request.U32(arguments.flags);
    request.U32(arguments.transaction_wait_ms);
  };
  const Code code = opened->Call(Operation::kOpen, put, kNoResults);
  if (code == kSuccess) client = std::move(opened);
  return code;
}

Code EngineClient::AddProvider(const Provider& provider, const Bytes& descriptor) {
  const auto put = [&](WireWriter& request) {
    Put(request, provider);
    request.Blob(descriptor);
  };
  return Call(Operation::kAddProvider, put, kNoResults);
}

Code EngineClient::AddSublayer(const Sublayer& sublayer, const Bytes& descriptor) {
  const auto put = [&](WireWriter& request) {
    Put(request, sublayer);
    request.Blob(descriptor);
  };
  return Call(Operation::kAddSublayer, put, kNoResults);
}

Code EngineClient::AddFilter(const Filter& filter, const Bytes& descriptor, std::uint64_t& id) {
  const auto put = [&](WireWriter& request) {
    Put(request, filter);
    request.Blob(descriptor);
  };
  return Call(Operation::kAddFilter, put, [&](WireReader& reply) { id = reply.U64(); });
}

Code EngineClient::Delete(TargetKind kind, const Guid& key) {
  const auto put = [&](WireWriter& request) { request.Key(key); };
  return Call(ForKind(Operation::kDeleteProvider, kind), put, kNoResults);
}

Code EngineClient::SetDacl(TargetKind kind, const Guid& key, const Bytes& descriptor) {
  const auto put = [&](WireWriter& request) {
    request.Key(key);
    request.Blob(descriptor);
  };
  return Call(ForKind(Operation::kSetProviderDacl, kind), put, kNoResults);
}

Code EngineClient::GetProvider(const Guid& key, Provider& provider) {
  const auto put = [&](WireWriter& request) { request.Key(key); };
  const auto take = [&](WireReader& reply) { provider = TakeProvider(reply); };
  return Call(Operation::kGetProvider, put, take);
}

Code EngineClient::GetSublayer(const Guid& key, Sublayer& sublayer) {
  const auto put = [&](WireWriter& request) { request.Key(key); };
  const auto take = [&](WireReader& reply) { sublayer = TakeSublayer(reply); };
  return Call(Operation::kGetSublayer, put, take);
}

Code EngineClient::GetFilter(const Guid& key, Filter& filter) {
  const auto put = [&](WireWriter& request) { request.Key(key); };
  const auto take = [&](WireReader& reply) { filter = TakeFilter(reply); };
  return Call(Operation::kGetFilter, put, take);
}

Code EngineClient::Begin(std::uint32_t flags) {
  return Call(
      Operation::kBegin, [&](WireWriter& request) { request.U32(flags); }, kNoResults);
}

Code EngineClient::Commit() {
  return Call(Operation::kCommit, kNoArguments, kNoResults);
}

Code EngineClient::Abort() {
  return Call(Operation::kAbort, kNoArguments, kNoResults);
}

Code EngineClient::OpenEnum(std::uint64_t& enumeration) {
  const auto take = [&](WireReader& reply) { enumeration = reply.U64(); };
  return Call(Operation::kOpenEnum, kNoArguments, take);
}

Code EngineClient::NextFilters(std::uint64_t enumeration, std::uint32_t count,
                               std::vector<Filter>& filters) {
  std::vector<Filter> fetched;
  bool end = false;
  while (!end && fetched.size() < count) {
    const auto put = [&](WireWriter& request) {
      request.U64(enumeration);
      request.U32(count - static_cast<std::uint32_t>(fetched.size()));
    };
    const auto take = [&](WireReader& reply) {
      end = reply.U8() != 0;
      const std::size_t members = reply.Count(kSmallestFilter);
      for (std::size_t i = 0; i < members; ++i) fetched.push_back(TakeFilter(reply));
    };
    if (const Code code = Call(Operation::kNextFilters, put, take)) return code;
  }
  filters = std::move(fetched);
  return kSuccess;
}

Code EngineClient::CloseEnum(std::uint64_t enumeration) {
  const auto put = [&](WireWriter& request) { request.U64(enumeration); };
  return Call(Operation::kCloseEnum, put, kNoResults);
}

Code EngineClient::SetOption(std::uint32_t option, std::uint32_t value) {
  const auto put = [&](WireWriter& request) {
    request.U32(option);
    request.U32(value);
  };
  return Call(Operation::kSetOption, put, kNoResults);
}

Code EngineClient::GetOption(std::uint32_t option, std::uint32_t& value) {
  const auto put = [&](WireWriter& request) { request.U32(option); };
  return Call(Operation::kGetOption, put, [&](WireReader& reply) { value = reply.U32(); });
}

Code EngineClient::GetLayerId(const Guid& layer, std::uint16_t& id) {
  const auto put = [&](WireWriter& request) { request.Key(layer); };
  return Call(Operation::kGetLayerId, put, [&](WireReader& reply) { id = reply.U16(); });
}

Code EngineClient::SubscribeChanges(std::uint32_t flags, std::uint64_t& stream) {
  const auto put = [&](WireWriter& request) { request.U32(flags); };
  return Call(Operation::kSubscribeChanges, put, [&](WireReader& reply) { stream = reply.U64(); });
}

Code EngineClient::SubscribeEvents(std::uint64_t& stream) {
  const auto take = [&](WireReader& reply) { stream = reply.U64(); };
  return Call(Operation::kSubscribeEvents, kNoArguments, take);
}

Code EngineClient::Unsubscribe(std::uint64_t stream) {
  const auto put = [&](WireWriter& request) { request.U64(stream); };
  return Call(Operation::kUnsubscribe, put, kNoResults);
}

}  // namespace simulation
