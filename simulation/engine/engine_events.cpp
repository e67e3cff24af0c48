// Verdicts, and what is reported of them.
#include <utility>

#include "simulation/engine/engine.h"

namespace simulation {
namespace {

constexpr std::size_t kEventsKept = 128;

}  // namespace

Verdict Engine::Decide(const Connection& connection) {
  Verdict verdict = kernel_.Classify(connection);
  if (verdict.tied_conflict) ++tied_conflicts_;
  return verdict;
}

Verdict Engine::Judge(const Connection& connection) {
  const std::lock_guard lock(mutex_);
  return Decide(connection);
}

Verdict Engine::Classify(const Connection& connection) {
  const std::lock_guard lock(mutex_);
  Verdict verdict = Decide(connection);
  const Layer* layer = FindLayer(connection.layer);
  if (layer != nullptr && options_.Report(*layer, connection, verdict.permit)) {
    Report(*layer, connection, verdict);
  }
  return verdict;
}

void Engine::Report(const Layer& layer, const Connection& connection, const Verdict& verdict) {
  const auto event = std::make_shared<const NetEvent>(
      NetEvent{.type = verdict.permit ? NetEventType::kAllow : NetEventType::kDrop,
               .time = clock_ ? clock_() : 0,
               .filter_id = verdict.filter == nullptr ? 0 : verdict.filter->id,
               .layer_id = layer.id,
               .connection = connection});
  if (events_.size() == kEventsKept) events_.pop_front();
  events_.push_back(event);
  for (const auto& [id, session] : sessions_) {
    for (const auto& [number, subscription] : session.subscriptions) {
      const auto* subscribed = std::get_if<NetEventSubscription>(&subscription);
      if (subscribed == nullptr) continue;
      notifier_.Post(number, [callback = subscribed->callback, event] { callback(*event); });
    }
  }
}

std::vector<NetEvent> Engine::NetEvents() const {
  const std::lock_guard lock(mutex_);
  std::vector<NetEvent> events;
  events.reserve(events_.size());
  for (const auto& event : events_) events.push_back(*event);
  return events;
}

std::uint64_t Engine::TiedConflicts() const {
  const std::lock_guard lock(mutex_);
  return tied_conflicts_;
}

void Engine::SetClock(std::function<std::int64_t()> clock) {
  const std::lock_guard lock(mutex_);
  clock_ = std::move(clock);
}

Code Engine::SetOption(SessionId session, std::uint32_t option, std::uint32_t value) {
  std::unique_lock lock(mutex_);
  Session* entered = nullptr;
  if (const Code code = FindSession(session, entered)) return code;
  if (InTransaction(session)) return platform::kTransactionInProgress;
  if (const Code code = Enter(session, Need::kWrite, lock, entered)) return code;
  if (!Grants(DefaultSecurity(), entered->token.sids, kRightWrite)) return platform::kAccessDenied;
  if (entered->dynamic) return platform::kDynamicSessionInProgress;
  return options_.Set(option, value);
}

Code Engine::GetOption(SessionId session, std::uint32_t option, std::uint32_t& value) {
  std::unique_lock lock(mutex_);
  Session* entered = nullptr;
  if (const Code code = Enter(session, Need::kRead, lock, entered)) return code;
  if (!Grants(DefaultSecurity(), entered->token.sids, kRightRead)) return platform::kAccessDenied;
  return options_.Get(option, value);
}

Code Engine::LayerId(SessionId session, const Guid& layer, std::uint16_t& id) {
  std::unique_lock lock(mutex_);
  Session* entered = nullptr;
  if (const Code code = Enter(session, Need::kRead, lock, entered)) return code;
  const Layer* found = FindLayer(layer);
  if (found == nullptr) return platform::kLayerNotFound;
  if (!Grants(DefaultSecurity(), entered->token.sids, kRightRead)) return platform::kAccessDenied;
  id = found->id;
  return platform::kSuccess;
}

}  // namespace simulation
