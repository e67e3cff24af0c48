#include "filtering/boot_filters.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>

#include "core/error_text.h"
#include "core/service_log.h"
#include "filtering/filter_conditions.h"
#include "filtering/filter_keys.h"
#include "filtering/filter_transaction.h"
#include "platform/clock.h"
#include "platform/wfp.h"

namespace kestrelon {
namespace {

using FilterSet = std::vector<platform::Filter>;

constexpr std::uint64_t kFirstRetryMs = 60'000;
constexpr std::uint64_t kLastRetryMs = 1'800'000;
constexpr std::uint64_t kMsPerMinute = 60'000;

// To whom the filters belong, and how firm their block is.
struct BootForm {
  std::uint32_t block_flags = 0;
  std::optional<Guid> provider;
  Guid sublayer;
};

// The second is for an engine that refuses the first: in the engine's own sublayer, of nobody's,
// and with a block that another sublayer may overrule, it still protects.
constexpr std::array<BootForm, 2> kBootForms = {{
    {platform::kFilterBootTime | platform::kFilterClearActionRight, ProviderKey, SubLayerKey},
    {platform::kFilterBootTime, std::nullopt, Guid{}},
}};

// Keys are handed out in the order of adding.
void AppendForEachLayer(platform::Filter filter, FilterSet& set) {
  for (const FilterLayer& layer : kFilterLayers) {
    filter.key = BootFilterKeys[set.size()];
    filter.layer = layer.key;
    set.push_back(filter);
  }
}

FilterSet MakeBootSet(const BootForm& form, bool allow_loopback) {
  platform::Filter filter;
  filter.name = L"Kestrelon - Boot-time block";
  filter.description = L"Kestrelon firewall";
  filter.flags = form.block_flags;
  filter.provider = form.provider;
  filter.sublayer = form.sublayer;
  filter.weight = kWeightBlockAll;
  filter.action = platform::kActionBlock;
  FilterSet set;
  AppendForEachLayer(filter, set);
  if (!allow_loopback) return set;
  filter.name = L"Kestrelon - Boot-time loopback";
  filter.flags = platform::kFilterBootTime;
  filter.weight = kWeightLoopback;
  filter.conditions = {IsLoopback()};
  filter.action = platform::kActionPermit;
  AppendForEachLayer(filter, set);
  return set;
}

bool AddSet(platform::EngineHandle engine, const FilterSet& set, std::wstring& error) {
  for (const platform::Filter& filter : set) {
    std::uint64_t id = 0;
    const platform::Code code = platform::AddFilter(engine, filter, {}, id);
    if (code == platform::kSuccess) continue;
    error = L"FwpmFilterAdd0 (" + filter.name + L"): " + ErrorText(code);
    return false;
  }
  return true;
}

// Puts the next attempt off: by a minute at first, by twice as long each time, by half an hour at
// most.
void PostponeRetry() REQUIRES(ConfigGuard) {
  const std::uint64_t doubled = std::min(Core.BootRetryStep * 2, kLastRetryMs);
  Core.BootRetryStep = Core.BootRetryStep == 0 ? kFirstRetryMs : doubled;
  Core.BootRetryAt = platform::TickMilliseconds() + Core.BootRetryStep;
}

void ForgetRetry() REQUIRES(ConfigGuard) {
  Core.BootRetryStep = 0;
  Core.BootRetryAt = 0;
}

}  // namespace

bool InstallBootFilters(FilterEngine& engine, bool wanted, bool allow_loopback,
                        std::wstring& error) {
  GuardLock lock(engine.EngineGuard);
  if (!RequireSession(engine, error)) return false;
  std::wstring first_refusal;
  std::wstring refusal;
  const std::size_t attempts = wanted ? kBootForms.size() : 1;
  for (std::size_t attempt = 0; attempt < attempts; ++attempt) {
    FilterTransaction transaction(engine.handle, L" (boot)");
    if (!transaction.Begin(error)) return false;
    const FilterSet set = wanted ? MakeBootSet(kBootForms[attempt], allow_loopback) : FilterSet{};
    if (transaction.DeleteFilters(BootFilterKeys, refusal) && AddSet(engine.handle, set, refusal) &&
        transaction.Commit(refusal)) {
      engine.BootExpected = static_cast<int>(set.size());
      return true;
    }
    if (attempt == 0) first_refusal = refusal;
  }
  error = first_refusal == refusal ? refusal : first_refusal + L"; " + refusal;
  // A failure that is known and retried is no tampering.
  engine.BootExpected = CountBootFilters(engine);
  return false;
}

int CountBootFilters(FilterEngine& engine) {
  int count = 0;
  platform::Filter filter;
  for (const Guid& key : BootFilterKeys) {
    if (platform::GetFilter(engine.handle, key, filter) == platform::kSuccess) ++count;
  }
  return count;
}

void ApplyBootFilters(const Config& config, std::vector<std::wstring>& warnings) {
  const bool wanted = config.enabled && config.boot_time_filter;
  std::wstring error;
  const bool done = InstallBootFilters(TheEngine, wanted, config.allow_loopback, error);
  Core.BootInstalled = done && wanted;
  if (done || !wanted) {
    ForgetRetry();
  } else {
    PostponeRetry();
  }
  if (done) return;
  warnings.push_back((wanted ? L"Boot-time filter could not be installed: "
                             : L"Boot-time filter could not be removed: ") +
                     error);
}

void RetryBootFilters() {
  const Config& config = Core.CurrentConfig;
  if (!config.enabled || !config.boot_time_filter) return;
  if (Core.BootRetryAt == 0 || platform::TickMilliseconds() < Core.BootRetryAt) return;
  std::wstring error;
  if (!InstallBootFilters(TheEngine, true, config.allow_loopback, error)) {
    PostponeRetry();
    LogService(L"Boot-time filters still cannot be installed (%s) - next try in %llu min", error,
               Core.BootRetryStep / kMsPerMinute);
    return;
  }
  ForgetRetry();
  Core.BootInstalled = true;
  LogService(L"Boot-time filters installed (retry)");
}

}  // namespace kestrelon
