#include "events/allow_events.h"

#include <array>
#include <atomic>

#include "core/error_text.h"
#include "core/service_log.h"
#include "events/engine_options.h"
#include "filtering/filter_keys.h"

namespace kestrelon {
namespace {

// Atomic because the engine's threads read them: they must not wait for ConfigGuard, whose holder
// may be waiting for them. The numbers stand in the order of kFilterLayers; 0 is not known.
std::atomic<bool> allow_events_on = false;
std::array<std::atomic<std::uint16_t>, kFilterLayers.size()> layer_ids;

}  // namespace

void LearnAllowLayers(platform::EngineHandle engine) {
  if (layer_ids[0] != 0) return;
  for (std::size_t i = 0; i < kFilterLayers.size(); ++i) {
    std::uint16_t id = 0;
    if (platform::LayerId(engine, kFilterLayers[i].key, id) == platform::kSuccess) {
      layer_ids[i] = id;
    }
  }
}

void SwitchAllowEvents(bool on) {
  if (allow_events_on.exchange(on) == on) return;
  const wchar_t* word = on ? L"on" : L"off";
  const platform::Code code =
      SetEngineOption(platform::kNetEventKeywords,
                      on ? kDropKeywords | platform::kKeywordClassifyAllow : kDropKeywords);
  if (code == platform::kSuccess) {
    LogService(L"Allowed-connection logging %s", word);
  } else {
    LogService(L"Allowed-connection logging %s failed: %s", word, ErrorText(code));
  }
}

bool AllowEventsOn() {
  return allow_events_on;
}

std::optional<std::uint32_t> DirectionOfLayer(std::uint16_t layer_id) {
  if (layer_id == 0) return std::nullopt;
  for (std::size_t i = 0; i < kFilterLayers.size(); ++i) {
    if (layer_ids[i] == layer_id) return kFilterLayers[i].direction;
  }
  return std::nullopt;
}

}  // namespace kestrelon
