// How long a large configuration takes to become filter records, and what is installed to be read
// back as signatures: 5,000 rules and 2,000 applications, each for both directions and families,
// and a list of 25,000 networks; some 28,000 filters.
//
// Each time stands beside a bound: copying the finished result, which allocates and moves the same
// bytes and does nothing else. What the engine's model and the simulated machine take for
// themselves is measured apart and taken off.
#include <cstdio>
#include <string>
#include <vector>

#include "bench/large_config.h"
#include "bench/measure.h"
#include "filtering/app_id.h"
#include "filtering/apply_filters.h"
#include "filtering/build_filters.h"
#include "filtering/lock_descriptors.h"
#include "filtering/read_filters.h"
#include "simulation/machine/machine.h"

namespace kestrelon {
namespace {

std::vector<PlanEntry> PlanOfApps(int apps) {
  std::vector<PlanEntry> entries;
  for (int i = 0; i < apps; ++i) {
    PlanEntry entry;
    entry.path = AppPath(i);
    entry.allow = true;
    entry.inbound = true;
    entries.push_back(entry);
  }
  return entries;
}

class FilterBench {
 public:
  FilterBench() : config_(ConfigOfNetworks({})), plan_(PlanOfApps(ConfigSize().apps)) {
    Build([this](platform::Filter& filter, FilterTag&) {
      records_.push_back(filter);
      return platform::NewGuid(records_.back().key) == platform::kSuccess;
    });
  }

  void Run() {
    PrintWhatIsMeasured();
    MeasureBuilding();
    MeasureReading();
    MeasureApplying();
  }

 private:
  void Build(const FilterSink& sink) const {
    std::vector<std::wstring> warnings;
    Require(BuildFilters(config_, plan_, warnings, sink) && warnings.empty());
  }

  void PrintWhatIsMeasured() const {
    std::size_t conditions = 0;
    for (const platform::Filter& record : records_) conditions += record.conditions.size();
    char paragraph[200];
    std::snprintf(paragraph, sizeof paragraph,
                  "5,000 rules, 2,000 applications and a list of 25,000 networks: %zu filters with "
                  "%zu conditions.",
                  records_.size(), conditions);
    PrintSection("Filters", paragraph);
  }

  // What the machine takes to say which application a path is.
  void ResolveApps() const {
    platform::Bytes app_id;
    for (const RuleEntry& rule : config_.rules) {
      if (!rule.app.empty()) (void)platform::AppIdOfFile(rule.app, app_id);
    }
    for (const PlanEntry& entry : plan_) (void)platform::AppIdOfFile(entry.path, app_id);
  }

  void MeasureBuilding() {
    std::size_t count = 0;
    const std::vector<double> taken = InTurn({
        [&] { Build([&count](platform::Filter&, FilterTag&) { return ++count != 0; }); },
        [&] { ResolveApps(); },
        [&] { const std::vector<platform::Filter> copy = records_; },
    });
    Print({.what = "building all records",
           .taken = taken[0] - taken[1],
           .bound = "copying them",
           .bound_taken = taken[2],
           .most_taken = 100e6,
           .simulation = taken[1]});
  }

  void Apply() {
    std::wstring error;
    FilterPlan plan;
    plan.entries = plan_;
    Require(ApplyFilters(TheEngine, config_, plan, error));
  }

  void MeasureReading() {
    Apply();
    std::vector<Guid> keys;
    FilterRecordTable signatures;
    std::wstring error;
    const std::vector<double> taken = InTurn({
        [&] {
          GuardLock lock(TheEngine.EngineGuard);
          Require(ReadFilters(TheEngine, keys, error, &signatures));
        },
        [&] {
          GuardLock lock(TheEngine.EngineGuard);
          Require(ReadFilters(TheEngine, keys, error));
        },
        [&] { const FilterRecordTable copy = signatures; },
    });
    Print({.what = "reading all back as signatures",
           .taken = taken[0] - taken[1],
           .bound = "copying the table",
           .bound_taken = taken[2],
           .most_taken = 100e6,
           .simulation = taken[1]});
  }

  // The least that the engine has to do with the same filters, and what is asked of it anyway.
  void ReplaceInEngine() {
    std::vector<Guid> installed;
    std::wstring error;
    GuardLock lock(TheEngine.EngineGuard);
    Require(ReadFilters(TheEngine, installed, error));
    Require(platform::BeginTransaction(TheEngine.handle, 0) == platform::kSuccess);
    for (const Guid& key : installed) {
      Require(platform::DeleteFilter(TheEngine.handle, key) == platform::kSuccess);
    }
    for (const platform::Filter& record : records_) {
      std::uint64_t id = 0;
      Require(platform::AddFilter(TheEngine.handle, record, LockDescriptor(), id) ==
              platform::kSuccess);
    }
    Require(platform::CommitTransaction(TheEngine.handle) == platform::kSuccess);
    Require(ReadFilters(TheEngine, installed, error));
  }

  void MeasureApplying() {
    const std::vector<double> taken = InTurn({[this] { Apply(); }, [this] { ReplaceInEngine(); }});
    Print({.what = "replacing all filters and recording them",
           .taken = taken[0],
           .bound = "the engine model's work alone",
           .bound_taken = taken[1]});
  }

  Config config_;
  std::vector<PlanEntry> plan_;
  std::vector<platform::Filter> records_;
};

}  // namespace
}  // namespace kestrelon

int main() {
  simulation::TheMachine();
  std::wstring error;
  kestrelon::Require(kestrelon::OpenEngine(kestrelon::TheEngine, error));
  kestrelon::FilterBench().Run();
  kestrelon::CloseEngine(kestrelon::TheEngine);
}
