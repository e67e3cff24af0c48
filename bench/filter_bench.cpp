// How long a large configuration takes to become filter records, and what is installed to be read
// back as signatures: 5,000 rules and 2,000 applications, each for both directions and families,
// and a list of 25,000 networks; some 28,000 filters.
//
// Each time stands beside a bound of the same run: copying the finished result, which allocates and
// moves the same bytes and does nothing else. What the engine's model and the simulated machine
// take for themselves is measured apart and taken off.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "base/text.h"
#include "bench/large_config.h"
#include "filtering/app_id.h"
#include "filtering/apply_filters.h"
#include "filtering/build_filters.h"
#include "filtering/read_filters.h"
#include "simulation/machine/machine.h"

namespace kestrelon {
namespace {

constexpr int kApps = 2000;

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
}

int Run() {
  simulation::TheMachine();
  std::wstring error;
  if (!OpenEngine(TheEngine, error)) {
    std::printf("%s\n", Utf8FromWide(error).c_str());
    return 1;
  }
  const Config config = LargeConfig(kApps);
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
