// A machine with an open engine, and the means to install filters and to ask for verdicts.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "config/config.h"
#include "filtering/filter_engine.h"
#include "filtering/filter_plan.h"
#include "simulation/machine/machine.h"

namespace kestrelon {

inline constexpr const wchar_t* kApp = L"C:\\App\\app.exe";
inline constexpr const wchar_t* kOtherApp = L"C:\\App\\other.exe";

// The rule of a test: permits everything until narrowed.
[[nodiscard]] RuleEntry Rule(bool allow, const std::wstring& remote = L"");
[[nodiscard]] PlanEntry AllowedApp(bool inbound = false);
[[nodiscard]] PlanEntry BlockedApp();
[[nodiscard]] PlanEntry HeldApp();

// A connection of kApp to 198.51.100.7 and 2001:db8::7, TCP port 443, from port 50000.
[[nodiscard]] simulation::Connection AppConnection(const Guid& layer = platform::kLayerConnectV4);

// What somebody else may add: a persistent block that names these, under a key of its own.
[[nodiscard]] platform::Filter ForeignFilter(const std::optional<Guid>& provider,
                                             const Guid& sublayer);

[[nodiscard]] platform::Bytes DeviceAppId(const std::wstring& device_path);
[[nodiscard]] platform::Sid SidOf(const std::wstring& text);

// What service.log holds, and how often a text stands in it.
[[nodiscard]] std::size_t LogCount(const std::string& text);

class FilterWorld : public testing::Test {
 protected:
  FilterWorld();
  ~FilterWorld() override;

  // Installs these rules and entries through ApplyFilters; fails the test if that fails.
  void Install(const std::vector<RuleEntry>& rules, const std::vector<PlanEntry>& entries);
  // The same for a whole configuration; false with the product's sentence in `error_`.
  [[nodiscard]] bool Apply(const Config& config, const std::vector<PlanEntry>& entries);

  [[nodiscard]] bool Passes(const simulation::Connection& connection);
  // Display name of the filter that decides.
  [[nodiscard]] std::wstring DecidedBy(const simulation::Connection& connection);
  // Expects that record and tags stand for exactly what is installed.
  void ExpectRecordFits();

  simulation::Machine& machine_ = simulation::TheMachine();
  std::wstring error_;
  std::vector<std::wstring> warnings_;  // of the last Apply
};

}  // namespace kestrelon
