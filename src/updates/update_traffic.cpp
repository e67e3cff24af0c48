#include "updates/update_traffic.h"

#include <utility>

#include "identity/paths.h"
#include "platform/clock.h"
#include "updates/update_state.h"

namespace kestrelon {
namespace {

constexpr std::uint32_t kTcp = 6;

constexpr std::uint32_t kStepMs = 100;
constexpr int kMostSteps = 50;
// Until filters that were just put in force govern new connections.
constexpr int kSettleSteps = 3;

bool TrafficIsWanted(const Config& config) {
  return config.updates_auto_check || UpdateSignals.UpdateRuleWanted;
}

void WakeLoop() {
  UpdateSignals.UpdateStatusChanged = true;
  Core.WakeEvent.Set();
}

void AwaitRule() {
  for (int step = 0; step < kMostSteps; ++step) {
    if (UpdateSignals.UpdateRuleInstalled || UpdateSignals.stop) return;
    platform::SleepMilliseconds(kStepMs);
  }
}

void Settle() {
  for (int step = 0; step < kSettleSteps && !UpdateSignals.stop; ++step) {
    platform::SleepMilliseconds(kStepMs);
  }
}

}  // namespace

void NeedUpdateTraffic() {
  UpdateSignals.UpdateRuleWanted = true;
  if (!UpdateSignals.UpdateRuleInstalled) {
    WakeLoop();
    AwaitRule();
  }
  Settle();
}

void EndUpdateTraffic() {
  UpdateSignals.UpdateRuleWanted = false;
  WakeLoop();
}

// Without the executable's path there is no rule: one without an application would be for all of
// them.
bool UpdateTrafficRules(const Config& config, std::vector<RuleEntry>& rules) {
  const bool wanted = TrafficIsWanted(config);
  if (!wanted || !config.enabled) return wanted || !config.enabled;
  RuleEntry rule;
  rule.name = L"Kestrelon updates";
  rule.direction = kDirectionOut;
  rule.protocol = kTcp;
  rule.remote_ports = L"443";
  rule.app = ExecutablePath();
  if (!rule.app.empty()) rules.push_back(std::move(rule));
  return true;
}

bool UpdateRuleIsDue(const Config& config) {
  return config.enabled && TrafficIsWanted(config) != UpdateSignals.UpdateRuleInstalled;
}

}  // namespace kestrelon
