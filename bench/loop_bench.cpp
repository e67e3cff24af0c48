// What a pass of the core's loop costs when nothing has changed: with the default configuration,
// and with 500 applications, 5,000 rules and a list of 25,000 networks.
//
// The engine model's share is a bare enumeration of the same filters, measured apart and taken off;
// the bound beside it is copying the record, which moves the bytes that the audit compares.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "base/text.h"
#include "bench/large_config.h"
#include "config/config_file.h"
#include "config/presets.h"
#include "core/core_loop.h"
#include "core/core_start.h"
#include "filtering/apply_config.h"
#include "filtering/filter_audit.h"
#include "filtering/filter_engine.h"
#include "filtering/read_filters.h"
#include "simulation/machine/machine.h"

namespace kestrelon {
namespace {

constexpr int kApps = 500;

Config ConfigWithApps() {
  Config config = LargeConfig(kApps);
  config.presets_version = kPresetsGeneration;
  for (int i = 0; i < kApps; ++i) {
    AppEntry app;
    app.path = AppPath(i);
    app.inbound = true;
    simulation::TheMachine().files.Write(app.path, "program");
    config.apps.push_back(app);
  }
  return config;
}

double EnumerationAlone() {
  return Milliseconds([] {
    GuardLock lock(TheEngine.EngineGuard);
    std::wstring error;
    if (!VisitFilters(
            TheEngine, [](const platform::Filter&) {}, error))
      std::abort();
  });
}

double CopyOfRecord() {
  return Milliseconds([] {
    GuardLock lock(TheEngine.EngineGuard);
    const FilterRecordTable copy = TheEngine.FilterRecord;
  });
}

void Measure(const char* name, const Config& config) {
  simulation::Machine& machine = simulation::TheMachine();
  machine.files.Write(L"C:\\ProgramData\\Kestrelon\\config.json", ConfigText(config));
  Core.Stopping = false;
  if (!CoreStart()) std::abort();
  const std::uint32_t applies = Core.ApplyCount;
  const double enumerated = EnumerationAlone();
  const double copied = CopyOfRecord();
  std::printf("%s: %zu filters\n", name, FilterCount(TheEngine));
  const double pass = Milliseconds(&LoopPass);
  Print("an idle pass", pass, pass - enumerated, "copying the record", copied);
  const double audit = Milliseconds([] {
    std::wstring reason;
    if (FilterAudit(TheEngine, reason) != AuditResult::kClean) std::abort();
  });
  Print("  of it the audit", audit, audit - enumerated, "copying the record", copied);
  const double drift = Milliseconds([] {
    GuardLock lock(ConfigGuard);
    if (IdentitiesDrifted(Core.CurrentConfig)) std::abort();
  });
  Print("  of it looking for drift", drift, drift, "copying the record", copied);
  if (Core.ApplyCount != applies) std::abort();  // then it was no idle pass
  CoreStop();
}

}  // namespace
}  // namespace kestrelon

int main() {
  kestrelon::Measure("default configuration", kestrelon::DefaultConfig());
  kestrelon::Measure("500 applications, 5,000 rules, 25,000 networks", kestrelon::ConfigWithApps());
}
