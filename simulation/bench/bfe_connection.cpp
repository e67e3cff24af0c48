#include "simulation/bench/bfe_connection.h"

#include <cstdint>
#include <utility>

#include "simulation/bench/bench_wire.h"

namespace simulation {
namespace {

using kestrelon::platform::kObjectNotFound;
using kestrelon::platform::kSuccess;

// Of filter changes none is lost, however many a commit makes. Net events are the platform's best
// effort: a reader who is behind by so many loses the next ones.
constexpr std::size_t kMostChanges = SIZE_MAX;
constexpr std::size_t kMostEvents = 16384;

template <typename Record>
Bytes MessageOf(const Record& record) {
  Bytes message;
  WireWriter writer(message);
  Put(writer, record);
  return message;
}

}  // namespace

void BfeConnection::Run() {
  WireReader request;
  while (listening_ == nullptr && channel_.Receive(request)) {
    const auto operation = static_cast<Operation>(request.U8());
    WireWriter reply = channel_.Begin();
    reply.U32(kSuccess);
    const Code code = Handle(operation, request, reply);
    if (code != kSuccess) channel_.Begin().U32(code);
    if (!channel_.Send()) break;
  }
  if (listening_ != nullptr) SendStream();
  EndSession();
}

Code BfeConnection::Handle(Operation operation, WireReader& request, WireWriter& reply) {
  switch (operation) {
    case Operation::kOpen:
      return Open(request);
    case Operation::kClose:
      return Close(request);
    case Operation::kClassify:
      return Classify(request, reply);
    case Operation::kBegin:
    case Operation::kCommit:
    case Operation::kAbort:
      return HandleTransaction(operation, request);
    case Operation::kOpenEnum:
      return OpenEnum(request, reply);
    case Operation::kNextFilters:
      return NextFilters(request, reply);
    case Operation::kCloseEnum:
      return CloseEnum(request);
    case Operation::kSetOption:
    case Operation::kGetOption:
    case Operation::kGetLayerId:
      return HandleSettings(operation, request, reply);
    case Operation::kListen:
    case Operation::kSubscribeChanges:
    case Operation::kSubscribeEvents:
    case Operation::kUnsubscribe:
      return HandleStreams(operation, request, reply);
    default:
      return HandleObjects(operation, request, reply);
  }
}

Code BfeConnection::HandleSettings(Operation operation, WireReader& request, WireWriter& reply) {
  if (operation == Operation::kSetOption) return SetOption(request);
  if (operation == Operation::kGetOption) return GetOption(request, reply);
  return GetLayerId(request, reply);
}

Code BfeConnection::HandleStreams(Operation operation, WireReader& request, WireWriter& reply) {
  if (operation == Operation::kListen) return Listen(request);
  if (operation == Operation::kSubscribeChanges) return SubscribeChanges(request, reply);
  if (operation == Operation::kSubscribeEvents) return SubscribeEvents(request, reply);
  return Unsubscribe(request);
}

Code BfeConnection::HandleObjects(Operation operation, WireReader& request, WireWriter& reply) {
  switch (operation) {
    case Operation::kAddProvider:
      return Add(&Engine::AddProvider, TakeProvider(request), request);
    case Operation::kAddSublayer:
      return Add(&Engine::AddSublayer, TakeSublayer(request), request);
    case Operation::kAddFilter:
      return AddFilter(request, reply);
    case Operation::kDeleteProvider:
      return Delete(&Engine::DeleteProvider, request);
    case Operation::kDeleteSublayer:
      return Delete(&Engine::DeleteSublayer, request);
    case Operation::kDeleteFilter:
      return Delete(&Engine::DeleteFilter, request);
    case Operation::kGetProvider:
      return Get(&Engine::GetProvider, request, reply);
    case Operation::kGetSublayer:
      return Get(&Engine::GetSublayer, request, reply);
    case Operation::kGetFilter:
      return Get(&Engine::GetFilter, request, reply);
    case Operation::kSetProviderDacl:
      return SetDacl(&Engine::SetProviderDacl, request);
    case Operation::kSetSublayerDacl:
      return SetDacl(&Engine::SetSublayerDacl, request);
    case Operation::kSetFilterDacl:
      return SetDacl(&Engine::SetFilterDacl, request);
    default:
      return kBadStubData;
  }
}

Code BfeConnection::Open(WireReader& request) {
  const std::uint8_t caller = request.U8();
  kestrelon::platform::SessionOptions options;
  options.name = request.Text();
  options.flags = request.U32();
  options.transaction_wait_ms = request.U32();
  if (!request.Finished() || session_ != 0) return kBadStubData;
  const bool administrator = caller == static_cast<std::uint8_t>(BenchCaller::kAdministrator);
  return bfe_.engine.OpenSession(
      options, administrator ? AdministratorCaller() : LocalSystemCaller(), session_);
}

Code BfeConnection::Close(WireReader& request) {
  if (!request.Finished()) return kBadStubData;
  EndSession();
  return kSuccess;
}

Code BfeConnection::Classify(WireReader& request, WireWriter& reply) {
  std::vector<Connection> connections(request.Count(kSmallestConnection));
  for (Connection& connection : connections) connection = TakeConnection(request);
  if (!request.Finished()) return kBadStubData;
  for (const Connection& connection : connections) {
    Put(reply, Summarize(bfe_.engine.Classify(connection)));
  }
  return kSuccess;
}

Code BfeConnection::HandleTransaction(Operation operation, WireReader& request) {
  const std::uint32_t flags = operation == Operation::kBegin ? request.U32() : 0;
  if (!request.Finished()) return kBadStubData;
  if (operation == Operation::kBegin) {
    const Code code = bfe_.engine.Begin(session_, flags);
    if (code == kSuccess) in_transaction_ = true;
    return code;
  }
  const bool commit = operation == Operation::kCommit;
  const Code code = commit ? bfe_.engine.Commit(session_) : bfe_.engine.Abort(session_);
  // Also after a failure: a save too many does no harm.
  in_transaction_ = false;
  return commit && code == kSuccess ? bfe_.policy.Save() : code;
}

Code BfeConnection::SaveImplicit(Code code) {
  if (code != kSuccess || in_transaction_) return code;
  return bfe_.policy.Save();
}

template <typename Record>
Code BfeConnection::Add(Code (Engine::*add)(SessionId, const Record&, const Bytes&), Record record,
                        WireReader& request) {
  const Bytes descriptor = request.Blob();
  if (!request.Finished()) return kBadStubData;
  return SaveImplicit((bfe_.engine.*add)(session_, record, descriptor));
}

Code BfeConnection::AddFilter(WireReader& request, WireWriter& reply) {
  const Filter filter = TakeFilter(request);
  const Bytes descriptor = request.Blob();
  if (!request.Finished()) return kBadStubData;
  std::uint64_t id = 0;
  const Code code = bfe_.engine.AddFilter(session_, filter, descriptor, id);
  reply.U64(id);
  return SaveImplicit(code);
}

Code BfeConnection::Delete(Code (Engine::*remove)(SessionId, const Guid&), WireReader& request) {
  const Guid key = request.Key();
  if (!request.Finished()) return kBadStubData;
  return SaveImplicit((bfe_.engine.*remove)(session_, key));
}

template <typename Record>
Code BfeConnection::Get(Code (Engine::*get)(SessionId, const Guid&, Record&), WireReader& request,
                        WireWriter& reply) {
  const Guid key = request.Key();
  if (!request.Finished()) return kBadStubData;
  Record record;
  const Code code = (bfe_.engine.*get)(session_, key, record);
  Put(reply, record);
  return code;
}

Code BfeConnection::SetDacl(Code (Engine::*set)(SessionId, const Guid&, const Bytes&),
                            WireReader& request) {
  const Guid key = request.Key();
  const Bytes descriptor = request.Blob();
  if (!request.Finished()) return kBadStubData;
  const Code code = (bfe_.engine.*set)(session_, key, descriptor);
  // No transaction holds these, and an administrator's program opens its filters one by one, all
  // of them: a save for each would take minutes.
  if (code == kSuccess) bfe_.policy.SaveSoon();
  return code;
}

Code BfeConnection::OpenEnum(WireReader& request, WireWriter& reply) {
  if (!request.Finished()) return kBadStubData;
  EnumId enumeration = 0;
  const Code code = bfe_.engine.OpenFilterEnum(session_, enumeration);
  reply.U64(enumeration);
  return code;
}

Code BfeConnection::NextFilters(WireReader& request, WireWriter& reply) {
  const EnumId enumeration = request.U64();
  const std::uint32_t wanted = request.U32();
  if (!request.Finished()) return kBadStubData;
  // The end and the count stand before the filters, so these are written apart.
  Bytes filters;
  WireWriter writer(filters);
  std::uint32_t count = 0;
  bool end = false;
  while (!end && count < wanted && filters.size() < kEnumReplyBytes) {
    // One by one: each may be of any size, and none can be put back.
    FilterList fetched;
    const Code code = bfe_.engine.NextFilters(session_, enumeration, 1, fetched);
    if (code != kSuccess) return code;
    end = fetched.empty();
    for (const auto& filter : fetched) Put(writer, *filter);
    count += end ? 0 : 1;
  }
  reply.U8(end ? 1 : 0);
  reply.U32(count);
  reply.Raw(filters.data(), filters.size());
  return kSuccess;
}

Code BfeConnection::CloseEnum(WireReader& request) {
  const EnumId enumeration = request.U64();
  if (!request.Finished()) return kBadStubData;
  return bfe_.engine.CloseFilterEnum(session_, enumeration);
}

Code BfeConnection::SetOption(WireReader& request) {
  const std::uint32_t option = request.U32();
  const std::uint32_t value = request.U32();
  if (!request.Finished()) return kBadStubData;
  return SaveImplicit(bfe_.engine.SetOption(session_, option, value));
}

Code BfeConnection::GetOption(WireReader& request, WireWriter& reply) {
  const std::uint32_t option = request.U32();
  if (!request.Finished()) return kBadStubData;
  std::uint32_t value = 0;
  const Code code = bfe_.engine.GetOption(session_, option, value);
  reply.U32(value);
  return code;
}

Code BfeConnection::GetLayerId(WireReader& request, WireWriter& reply) {
  const Guid key = request.Key();
  if (!request.Finished()) return kBadStubData;
  std::uint16_t id = 0;
  const Code code = bfe_.engine.LayerId(session_, key, id);
  reply.U16(id);
  return code;
}

Code BfeConnection::SubscribeChanges(WireReader& request, WireWriter& reply) {
  const std::uint32_t flags = request.U32();
  if (!request.Finished()) return kBadStubData;
  const auto queue = std::make_shared<StreamQueue>(kMostChanges);
  const auto tell = [queue](const FilterChange& change) { queue->Push(MessageOf(change)); };
  SubscriptionId id = 0;
  const Code code = bfe_.engine.SubscribeFilterChanges(session_, flags, tell, id);
  if (code == kSuccess) AddStream(queue, &Engine::UnsubscribeFilterChanges, id, reply);
  return code;
}

Code BfeConnection::SubscribeEvents(WireReader& request, WireWriter& reply) {
  if (!request.Finished()) return kBadStubData;
  const auto queue = std::make_shared<StreamQueue>(kMostEvents);
  const auto tell = [queue](const NetEvent& event) { queue->Push(MessageOf(event)); };
  SubscriptionId id = 0;
  const Code code = bfe_.engine.SubscribeNetEvents(session_, tell, id);
  if (code == kSuccess) AddStream(queue, &Engine::UnsubscribeNetEvents, id, reply);
  return code;
}

void BfeConnection::AddStream(std::shared_ptr<StreamQueue> queue,
                              Code (Engine::*unsubscribe)(SessionId, SubscriptionId),
                              SubscriptionId id, WireWriter& reply) {
  const StreamId stream = bfe_.streams.Add(std::move(queue));
  streams_[stream] = {unsubscribe, id};
  reply.U64(stream);
}

Code BfeConnection::Unsubscribe(WireReader& request) {
  const StreamId stream = request.U64();
  if (!request.Finished()) return kBadStubData;
  const auto found = streams_.find(stream);
  if (found == streams_.end()) return kObjectNotFound;
  const Code code = (bfe_.engine.*found->second.unsubscribe)(session_, found->second.id);
  // The way closes whatever the code: the client waits for its end.
  streams_.erase(found);
  bfe_.streams.Remove(stream);
  return code;
}

Code BfeConnection::Listen(WireReader& request) {
  const StreamId stream = request.U64();
  if (!request.Finished() || session_ != 0) return kBadStubData;
  listening_ = bfe_.streams.Find(stream);
  return listening_ == nullptr ? kObjectNotFound : kSuccess;
}

void BfeConnection::SendStream() {
  Bytes message;
  while (listening_->Take(message)) {
    channel_.Begin().Raw(message.data(), message.size());
    if (!channel_.Send()) break;
  }
  // Nobody takes any more: a reader who died leaves nothing to gather.
  listening_->Close();
}

void BfeConnection::EndSession() {
  if (session_ == 0) return;
  (void)bfe_.engine.CloseSession(std::exchange(session_, 0));
  for (const auto& [stream, open] : streams_) bfe_.streams.Remove(stream);
  streams_.clear();
}

}  // namespace simulation
