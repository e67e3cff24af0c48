#include "updates/update_traffic.h"

#include "core/own_way_out.h"
#include "platform/clock.h"
#include "updates/update_state.h"

namespace kestrelon {
namespace {

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

bool UpdateTrafficRules(const Config& config, std::vector<RuleEntry>& rules) {
  const bool wanted = TrafficIsWanted(config);
  if (!wanted || !config.enabled) return wanted || !config.enabled;
  AppendOwnWayOut(L"Kestrelon updates", rules);
  return true;
}

bool UpdateRuleIsDue(const Config& config) {
  return config.enabled && TrafficIsWanted(config) != UpdateSignals.UpdateRuleInstalled;
}

}  // namespace kestrelon
