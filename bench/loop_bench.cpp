// What a start costs until its filters are in force, and a pass of the core's loop when nothing has
// changed: with the default configuration, and with 500 applications, 5,000 rules and a list of
// 25,000 networks.
//
// The engine model's share of a pass is a bare enumeration of the same filters, measured apart and
// taken off; the bound beside it is copying the record, which moves the bytes that the audit
// compares.
#include <algorithm>
#include <cstdio>
#include <string>

#include "bench/large_config.h"
#include "bench/measure.h"
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

constexpr const wchar_t* kConfigFile = L"C:\\ProgramData\\Kestrelon\\config.json";
constexpr int kStarts = 5;

Config LargeConfig() {
  const ConfigSize size{.apps = 500};
  Config config = ConfigOfNetworks(size);
  config.presets_version = kPresetsGeneration;
  for (int i = 0; i < size.apps; ++i) {
    AppEntry app;
    app.path = AppPath(i);
    app.inbound = true;
    simulation::TheMachine().files.Write(app.path, "program");
    config.apps.push_back(app);
  }
  return config;
}

// Until the filters of a stored configuration are in force again and the service answers.
double BestStart() {
  double best = 0;
  for (int i = 0; i < kStarts; ++i) {
    Core.Stopping = false;
    const double begin = ThreadNanoseconds();
    Require(CoreStart());
    const double taken = ThreadNanoseconds() - begin;
    best = i == 0 ? taken : std::min(best, taken);
    if (i + 1 < kStarts) CoreStop();
  }
  return best;
}

void EnumerateFilters() {
  GuardLock lock(TheEngine.EngineGuard);
  std::wstring error;
  const auto ignore = [](const platform::Filter&) {};
  Require(VisitFilters(TheEngine, ignore, error));
}

void Measure(const char* name, const Config& config, double most_of_pass) {
  const std::string text = ConfigText(config);
  simulation::TheMachine().files.Write(kConfigFile, text);
  const double started = BestStart();
  const std::uint32_t applies = Core.ApplyCount;
  const std::vector<double> taken = InTurn({
      &LoopPass,
      [] {
        std::wstring reason;
        Require(FilterAudit(TheEngine, reason) == AuditResult::kClean);
      },
      [] {
        GuardLock lock(ConfigGuard);
        Require(!IdentitiesDrifted(Core.CurrentConfig));
      },
      &EnumerateFilters,
      [] {
        GuardLock lock(TheEngine.EngineGuard);
        const FilterRecordTable copy = TheEngine.FilterRecord;
      },
      [&text] {
        Json document;
        Config read;
        std::wstring error;
        Require(Json::Parse(text, document) && ConfigFromJson(document, read, error));
      },
  });
  Require(Core.ApplyCount == applies);  // else one of the passes was no idle one
  const double enumerated = taken[3];
  const double copied = taken[4];
  const double read = taken[5];

  char paragraph[200];
  std::snprintf(paragraph, sizeof paragraph, "%zu filters in force, with the engine model.",
                FilterCount(TheEngine));
  PrintSection(name, paragraph);
  constexpr const char* kCopying = "copying the record";
  Print({"start until clients are answered", started, "reading the configuration", read});
  Print({.what = "an idle pass",
         .taken = taken[0] - enumerated,
         .bound = kCopying,
         .bound_taken = copied,
         .most_taken = most_of_pass,
         .simulation = enumerated});
  Print({.what = "of it the audit",
         .taken = taken[1] - enumerated,
         .bound = kCopying,
         .bound_taken = copied,
         .simulation = enumerated});
  Print({"of it looking for drift", taken[2], kCopying, copied});
  CoreStop();
}

}  // namespace
}  // namespace kestrelon

int main() {
  kestrelon::Measure("Loop, default configuration", kestrelon::DefaultConfig(), 1e6);
  kestrelon::Measure("Loop, 500 applications, 5,000 rules, 25,000 networks",
                     kestrelon::LargeConfig(), 50e6);
}
