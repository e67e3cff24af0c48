// One connection to BFE: a session, or the way out of what one subscription is told.
#pragma once

#include <map>

#include "simulation/bench/pipe_channel.h"
#include "simulation/bench/policy_file.h"
#include "simulation/bench/protocol.h"
#include "simulation/bench/stream_queue.h"
#include "simulation/engine/engine.h"

namespace simulation {

// What all connections share.
struct Bfe {
  Engine& engine;
  PolicyFile& policy;
  StreamQueues& streams;
};

class BfeConnection {
 public:
  BfeConnection(Bfe bfe, PipeChannel channel) : bfe_(bfe), channel_(std::move(channel)) {}

  // Serves requests until the other end goes; then ends the session, if one was opened.
  void Run();

 private:
  // Each handler reads its arguments, and writes its results, in the order that protocol.h gives.
  // What it wrote is sent only if it returns 0.
  Code Handle(Operation operation, WireReader& request, WireWriter& reply);
  Code HandleObjects(Operation operation, WireReader& request, WireWriter& reply);
  Code HandleTransaction(Operation operation, WireReader& request);
  Code HandleSettings(Operation operation, WireReader& request, WireWriter& reply);
  Code HandleStreams(Operation operation, WireReader& request, WireWriter& reply);
  Code Open(WireReader& request);
  Code Close(WireReader& request);
  Code Classify(WireReader& request, WireWriter& reply);
  Code AddFilter(WireReader& request, WireWriter& reply);
  Code OpenEnum(WireReader& request, WireWriter& reply);
  Code NextFilters(WireReader& request, WireWriter& reply);
  Code CloseEnum(WireReader& request);
  Code SetOption(WireReader& request);
  Code GetOption(WireReader& request, WireWriter& reply);
  Code GetLayerId(WireReader& request, WireWriter& reply);
  Code SubscribeChanges(WireReader& request, WireWriter& reply);
  Code SubscribeEvents(WireReader& request, WireWriter& reply);
  Code Unsubscribe(WireReader& request);
  Code Listen(WireReader& request);

  template <typename Record>
  Code Add(Code (Engine::*add)(SessionId, const Record&, const Bytes&), Record record,
           WireReader& request);
  template <typename Record>
  Code Get(Code (Engine::*get)(SessionId, const Guid&, Record&), WireReader& request,
           WireWriter& reply);
  Code Delete(Code (Engine::*remove)(SessionId, const Guid&), WireReader& request);
  Code SetDacl(Code (Engine::*set)(SessionId, const Guid&, const Bytes&), WireReader& request);

  // After a success outside of an explicit transaction: has it saved before the reply.
  Code SaveImplicit(Code code);
  // The other end listens to the queue by the number in the reply, until `unsubscribe` is called
  // for the engine's subscription.
  void AddStream(std::shared_ptr<StreamQueue> queue,
                 Code (Engine::*unsubscribe)(SessionId, SubscriptionId), SubscriptionId id,
                 WireWriter& reply);
  void SendStream();
  void EndSession();

  struct OpenStream {
    Code (Engine::*unsubscribe)(SessionId, SubscriptionId) = nullptr;
    SubscriptionId id = 0;
  };

  Bfe bfe_;
  PipeChannel channel_;
  SessionId session_ = 0;  // 0: none was opened
  bool in_transaction_ = false;
  std::map<StreamId, OpenStream> streams_;  // of the session
  std::shared_ptr<StreamQueue> listening_;  // set: the connection turns into the queue's way out
};

}  // namespace simulation
