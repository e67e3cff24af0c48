#include "tests/filtering/filter_world.h"

#include <set>

#include "base/text.h"
#include "filtering/apply_filters.h"
#include "filtering/filter_signature.h"
#include "identity/file_watch.h"
#include "platform/security.h"

namespace kestrelon {

RuleEntry Rule(bool allow, const std::wstring& remote) {
  RuleEntry rule;
  rule.name = allow ? L"allow" : L"block";
  rule.allow = allow;
  rule.direction = kDirectionBoth;
  rule.remote = remote;
  return rule;
}

PlanEntry AllowedApp(bool inbound) {
  PlanEntry entry;
  entry.path = kApp;
  entry.allow = true;
  entry.inbound = inbound;
  return entry;
}

PlanEntry BlockedApp() {
  PlanEntry entry;
  entry.path = kApp;
  return entry;
}

PlanEntry HeldApp() {
  PlanEntry entry = BlockedApp();
  entry.integrity_block = true;
  return entry;
}

simulation::Connection AppConnection(const Guid& layer) {
  simulation::Connection connection;
  connection.layer = layer;
  connection.app_id = DeviceAppId(L"\\device\\harddiskvolume3\\app\\app.exe");
  connection.user_sids = {SidOf(L"S-1-5-18")};
  connection.remote_v4 = 0xC6336407;
  connection.remote_v6 = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 7};
  connection.remote_port = 443;
  connection.local_port = 50000;
  return connection;
}

platform::Filter ForeignFilter(const std::optional<Guid>& provider, const Guid& sublayer) {
  platform::Filter filter;
  EXPECT_EQ(platform::NewGuid(filter.key), platform::kSuccess);
  filter.name = L"foreign";
  filter.flags = platform::kFilterPersistent;
  filter.provider = provider;
  filter.layer = platform::kLayerConnectV4;
  filter.sublayer = sublayer;
  filter.weight = std::uint8_t{0};
  return filter;
}

platform::Bytes DeviceAppId(const std::wstring& device_path) {
  return Utf16BytesWithNull(device_path);
}

platform::Sid SidOf(const std::wstring& text) {
  platform::Sid sid;
  EXPECT_EQ(platform::SidFromText(text, sid), platform::kSuccess);
  return sid;
}

std::size_t LogCount(const std::string& text) {
  const std::string log =
      simulation::TheMachine().files.Read(L"C:\\ProgramData\\Kestrelon\\service.log").value_or("");
  std::size_t count = 0;
  for (std::size_t at = log.find(text); at != std::string::npos; at = log.find(text, at + 1)) {
    ++count;
  }
  return count;
}

FilterWorld::FilterWorld() {
  machine_.files.MakeDirectories(L"C:\\ProgramData\\Kestrelon");
  machine_.files.Write(kApp, "app");
  machine_.files.Write(kOtherApp, "other");
  EXPECT_TRUE(OpenEngine(TheEngine, error_)) << Utf8FromWide(error_);
}

FilterWorld::~FilterWorld() {
  machine_.faults.Clear();
  EXPECT_FALSE(machine_.engine.transaction_open());
  EXPECT_EQ(machine_.engine.TiedConflicts(), 0u);
  SyncFileWatch({}, nullptr);
  CloseEngine(TheEngine);
  EXPECT_EQ(machine_.engine.open_sessions(), 0u);
}

void FilterWorld::Install(const std::vector<RuleEntry>& rules,
                          const std::vector<PlanEntry>& entries) {
  Config config;
  config.rules = rules;
  ASSERT_TRUE(Apply(config, entries)) << Utf8FromWide(error_);
}

bool FilterWorld::Apply(const Config& config, const std::vector<PlanEntry>& entries) {
  FilterPlan plan;
  plan.entries = entries;
  const bool applied = ApplyFilters(TheEngine, config, plan, error_);
  warnings_ = plan.warnings;
  return applied;
}

bool FilterWorld::Passes(const simulation::Connection& connection) {
  return machine_.engine.Classify(connection).permit;
}

std::wstring FilterWorld::DecidedBy(const simulation::Connection& connection) {
  const simulation::Verdict verdict = machine_.engine.Classify(connection);
  return verdict.filter ? verdict.filter->name : L"";
}

void FilterWorld::ExpectRecordFits() {
  FilterRecordTable record;
  std::set<std::uint64_t> ids;
  for (const auto& filter : machine_.engine.Filters()) {
    AppendFilterSignature(*filter, record[filter->key]);
    ids.insert(filter->id);
  }
  GuardLock lock(TheEngine.EngineGuard);
  EXPECT_EQ(TheEngine.FilterRecord, record);
  GuardLock record_lock(TheEngine.RecordGuard);
  std::set<std::uint64_t> tagged;
  for (const auto& [id, tag] : TheEngine.FilterTags) tagged.insert(id);
  EXPECT_EQ(tagged, ids);
}

}  // namespace kestrelon
