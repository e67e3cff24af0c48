// How long a large configuration takes to become filter records, and what is installed to be read
// back as signatures and to be audited: 5,000 rules and 2,000 applications, each for both
// directions and families, and a list of 25,000 networks; some 28,000 filters.
//
// Each time stands beside a bound of the same run: copying the finished result, which allocates and
// moves the same bytes and does nothing else. What the engine's model and the simulated machine
// take for themselves is measured apart and taken off.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include "base/format.h"
#include "base/text.h"
#include "filtering/app_id.h"
#include "filtering/apply_config.h"
#include "filtering/apply_filters.h"
#include "filtering/build_filters.h"
#include "filtering/filter_audit.h"
#include "filtering/read_filters.h"
#include "simulation/machine/machine.h"

namespace kestrelon {
namespace {

constexpr int kRules = 5000;
constexpr int kApps = 2000;
constexpr int kWatchedApps = 500;
constexpr int kNetworks = 25000;
constexpr int kRounds = 9;

// Processor time of the best of some rounds: what the code takes when nothing else runs.
double Milliseconds(const std::function<void()>& work) {
  double best = 0;
  for (int round = 0; round < kRounds; ++round) {
    const std::clock_t start = std::clock();
    work();
    const double taken = 1000.0 * static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
    best = round == 0 ? taken : std::min(best, taken);
  }
  return best;
}

std::wstring AppPath(int i) {
  return Format(L"C:\\Program Files\\Vendor %d\\Application.exe", i);
}

Config LargeConfig() {
  Config config;
  for (int i = 0; i < kRules; ++i) {
    RuleEntry rule;
    rule.name = Format(L"Rule number %d", i);
    rule.allow = i % 5 != 0;
    rule.direction = kDirectionBoth;
    rule.protocol = 6;
    rule.remote =
        Format(L"10.%d.%d.0/24, 2001:db8:%x::/48", i / 256, i % 256, static_cast<unsigned>(i));
    rule.remote_ports = L"443";
    if (i % 2 == 0) rule.app = AppPath(i % kApps);
    config.rules.push_back(rule);
  }
  RuleEntry list;
  list.name = L"Networks";
  list.allow = false;
  list.direction = kDirectionBoth;
  for (int i = 0; i < kNetworks; ++i) {
    list.remote += Format(L"%d.%d.%d.0/24, ", 20 + i / 65536, i / 256 % 256, i % 256);
  }
  config.rules.push_back(list);
  return config;
}

std::vector<PlanEntry> LargePlan() {
  std::vector<PlanEntry> entries;
  for (int i = 0; i < kApps; ++i) {
    PlanEntry entry;
    entry.path = AppPath(i);
    entry.allow = true;
    entry.inbound = true;
    entries.push_back(entry);
  }
  return entries;
}

void Print(const char* what, double milliseconds, double own, const char* bound, double bound_ms) {
  std::printf("%-28s %8.1f ms, without the simulation's share %8.1f ms = %5.2f x %s (%.1f ms)\n",
              what, milliseconds, own, own / bound_ms, bound, bound_ms);
}

void BuildRecords(const Config& config, const std::vector<PlanEntry>& entries) {
  std::vector<std::wstring> warnings;
  std::vector<platform::Filter> records;
  const auto build = [&](const FilterSink& sink) {
    if (!BuildFilters(config, entries, warnings, sink)) std::abort();
  };
  build([&](platform::Filter& filter, FilterTag&) {
    records.push_back(filter);
    return true;
  });
  std::size_t conditions = 0;
  for (const platform::Filter& record : records) conditions += record.conditions.size();
  std::printf("%zu filters with %zu conditions, %zu warnings\n", records.size(), conditions,
              warnings.size());

  std::size_t count = 0;
  const double built = Milliseconds(
      [&] { build([&count](platform::Filter&, FilterTag&) { return ++count != 0; }); });
  // What the machine takes to say which application a path is.
  const double resolving = Milliseconds([&] {
    platform::Bytes app_id;
    for (const RuleEntry& rule : config.rules) {
      if (!rule.app.empty()) (void)platform::AppIdOfFile(rule.app, app_id);
    }
    for (const PlanEntry& entry : entries) (void)platform::AppIdOfFile(entry.path, app_id);
  });
  const double copied = Milliseconds([&] { std::vector<platform::Filter> copy = records; });
  Print("building the records", built, built - resolving, "copying them", copied);
}

// What an idle pass of the loop does: all that is present is held against the record, and the
// applications are compiled to see whether their files are what they were.
void IdlePass(const Config& config, double enumerated, double copied) {
  const double audited = Milliseconds([] {
    std::wstring reason;
    if (FilterAudit(TheEngine, reason) == AuditResult::kClean) return;
    std::printf("%s\n", Utf8FromWide(reason).c_str());
    std::abort();
  });
  Print("auditing", audited, audited - enumerated, "copying the table", copied);

  Config watched = config;
  for (int i = 0; i < kWatchedApps; ++i) {
    AppEntry app;
    app.path = AppPath(i);
    simulation::TheMachine().files.Write(app.path, "program");
    watched.apps.push_back(app);
  }
  const double compiled = Milliseconds([&watched] {
    GuardLock lock(ConfigGuard);
    (void)IdentitiesDrifted(watched);
  });
  std::printf("%-28s %8.1f ms for %d applications, the simulated machine's share included\n",
              "looking for drift", compiled, kWatchedApps);
  std::printf("%-28s %8.1f ms without the engine's model\n", "an idle pass",
              audited - enumerated + compiled);
}

void ReadBack(const Config& config, const std::vector<PlanEntry>& entries) {
  std::wstring error;
  FilterPlan plan;
  plan.entries = entries;
  const double applied = Milliseconds([&] {
    if (!ApplyFilters(TheEngine, config, plan, error)) std::abort();
  });
  std::printf("%-28s %8.1f ms, the engine's model and all\n", "the whole application", applied);

  std::vector<Guid> keys;
  FilterRecordTable signatures;
  const double enumerated = Milliseconds([&] {
    GuardLock lock(TheEngine.EngineGuard);
    if (!ReadFilters(TheEngine, keys, error)) std::abort();
  });
  const double read = Milliseconds([&] {
    GuardLock lock(TheEngine.EngineGuard);
    if (!ReadFilters(TheEngine, keys, error, &signatures)) std::abort();
  });
  const double copied = Milliseconds([&] { FilterRecordTable copy = signatures; });
  Print("reading with signatures", read, read - enumerated, "copying the table", copied);
  std::size_t bytes = 0;
  for (const auto& [key, signature] : signatures) bytes += sizeof key + signature.size();
  std::printf("%-28s %8.1f MB in %zu signatures\n", "the record", static_cast<double>(bytes) / 1e6,
              signatures.size());
  IdlePass(config, enumerated, copied);
}

int Run() {
  simulation::TheMachine();
  std::wstring error;
  if (!OpenEngine(TheEngine, error)) {
    std::printf("%s\n", Utf8FromWide(error).c_str());
    return 1;
  }
  const Config config = LargeConfig();
  const std::vector<PlanEntry> entries = LargePlan();
  BuildRecords(config, entries);
  ReadBack(config, entries);
  CloseEngine(TheEngine);
  return 0;
}

}  // namespace
}  // namespace kestrelon

int main() {
  return kestrelon::Run();
}
