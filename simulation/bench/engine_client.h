// A session with the bench's BFE, in records: what the library that stands for the platform's and
// wfpctl are both made of.
#pragma once

#include <windows.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/guard.h"
#include "platform/codes.h"
#include "simulation/bench/pipe_channel.h"
#include "simulation/bench/protocol.h"

namespace simulation {

using kestrelon::platform::Code;

// Connects to BFE's pipe and says what for. The endpoint is not registered (1753) while there is
// no BFE.
[[nodiscard]] Code ConnectToEngine(PipeChannel& channel);

// Says SYSTEM, or an administrator if the environment variable WFP_BENCH_CALLER is "administrator".
BenchCaller CallerOfEnvironment();

// What a deletion or a change of access is about.
enum class TargetKind { kProvider, kSublayer, kFilter };

struct SessionArguments {
  BenchCaller caller = BenchCaller::kSystem;
  std::wstring name;
  std::uint32_t flags = 0;
  std::uint32_t transaction_wait_ms = 0;
};

// One session. Calls from several threads take turns. Each gives the engine's code, or one of
// the three of the protocol.
class EngineClient {
 public:
  [[nodiscard]] static Code Open(const SessionArguments& arguments,
                                 std::unique_ptr<EngineClient>& client);
  // Returns once the session has ended, so that its locks and dynamic objects are gone.
  ~EngineClient();
  EngineClient(const EngineClient&) = delete;
  EngineClient& operator=(const EngineClient&) = delete;

  // An empty descriptor stands for none.
  [[nodiscard]] Code AddProvider(const Provider& provider, const Bytes& descriptor);
  [[nodiscard]] Code AddSublayer(const Sublayer& sublayer, const Bytes& descriptor);
  [[nodiscard]] Code AddFilter(const Filter& filter, const Bytes& descriptor, std::uint64_t& id);
  [[nodiscard]] Code Delete(TargetKind kind, const Guid& key);
  [[nodiscard]] Code SetDacl(TargetKind kind, const Guid& key, const Bytes& descriptor);
  [[nodiscard]] Code GetProvider(const Guid& key, Provider& provider);
  [[nodiscard]] Code GetSublayer(const Guid& key, Sublayer& sublayer);
  [[nodiscard]] Code GetFilter(const Guid& key, Filter& filter);

  [[nodiscard]] Code Begin(std::uint32_t flags);
  [[nodiscard]] Code Commit();
  [[nodiscard]] Code Abort();

  [[nodiscard]] Code OpenEnum(std::uint64_t& enumeration);
  // Replaces `filters` by at most `count` further ones; fewer mean the end.
  [[nodiscard]] Code NextFilters(std::uint64_t enumeration, std::uint32_t count,
                                 std::vector<Filter>& filters);
  [[nodiscard]] Code CloseEnum(std::uint64_t enumeration);

  [[nodiscard]] Code SetOption(std::uint32_t option, std::uint32_t value);
  [[nodiscard]] Code GetOption(std::uint32_t option, std::uint32_t& value);
  [[nodiscard]] Code GetLayerId(const Guid& layer, std::uint16_t& id);

  // The filter changes, or the net events, come by a StreamListener with this number.
  [[nodiscard]] Code SubscribeChanges(std::uint32_t flags, std::uint64_t& stream);
  [[nodiscard]] Code SubscribeEvents(std::uint64_t& stream);
  [[nodiscard]] Code Unsubscribe(std::uint64_t stream);

 private:
  EngineClient() = default;

  // One round trip: `put` writes the arguments, `take` reads the results of a success.
  template <typename PutArguments, typename TakeResults>
  Code Call(Operation operation, const PutArguments& put, const TakeResults& take);

  kestrelon::Guard guard_{"EngineClient", kestrelon::GuardRank::kLeaf};
  PipeChannel channel_ GUARDED_BY(guard_);
};

}  // namespace simulation
