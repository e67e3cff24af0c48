#include "simulation/bench/bfe_connection.h"

#include <algorithm>
#include <utility>

#include "simulation/bench/verdict_wire.h"
namespace simulation {
namespace {

using kestrelon::platform::kObjectNotFound;
using kestrelon::platform::kSuccess;

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
  if (listening_ != nullptr) SendChanges();
  EndSession();
}

Code BfeConnection::Handle(Operation operation, WireReader& request, WireWriter& reply) {
  switch (operation) {
    case Operation::kOpen:
      return Open(request);
    case Operation::kListen:
      return Listen(request);
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
    case Operation::kSubscribe:
      return Subscribe(request, reply);
    case Operation::kUnsubscribe:
      return Unsubscribe(request);
    default:
      return HandleObjects(operation, request, reply);
  }
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

Code BfeConnection::Subscribe(WireReader& request, WireWriter& reply) {
  const std::uint32_t flags = request.U32();
  if (!request.Finished()) return kBadStubData;
  auto queue = std::make_shared<ChangeQueue>();
  SubscriptionId id = 0;
  const Code code = bfe_.engine.SubscribeFilterChanges(
      session_, flags, [queue](const FilterChange& change) { queue->Push(change); }, id);
  if (code != kSuccess) return code;
  bfe_.changes.Add(id, std::move(queue));
  subscriptions_.insert(id);
  reply.U64(id);
  return kSuccess;
}

Code BfeConnection::Unsubscribe(WireReader& request) {
  const SubscriptionId id = request.U64();
  if (!request.Finished()) return kBadStubData;
  const Code code = bfe_.engine.UnsubscribeFilterChanges(session_, id);
  // The way closes whatever the code: the client waits for its end.
  if (subscriptions_.erase(id) > 0) bfe_.changes.Remove(id);
  return code;
}

Code BfeConnection::Listen(WireReader& request) {
  const SubscriptionId id = request.U64();
  if (!request.Finished() || session_ != 0) return kBadStubData;
  listening_ = bfe_.changes.Find(id);
  return listening_ == nullptr ? kObjectNotFound : kSuccess;
}

void BfeConnection::SendChanges() {
  FilterChange change;
  while (listening_->Take(change)) {
    WireWriter message = channel_.Begin();
    message.U8(change.added ? 1 : 0);
    message.Key(change.key);
    message.U64(change.id);
    if (!channel_.Send()) return;
  }
}

void BfeConnection::EndSession() {
  if (session_ == 0) return;
  (void)bfe_.engine.CloseSession(std::exchange(session_, 0));
  for (const SubscriptionId id : subscriptions_) bfe_.changes.Remove(id);
}

}  // namespace simulation
