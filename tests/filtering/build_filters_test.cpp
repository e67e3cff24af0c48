// The records that a configuration means, before any engine sees them.

#include "filtering/build_filters.h"

#include <set>

#include "base/text.h"
#include "filtering/app_id.h"
#include "filtering/filter_keys.h"
#include "filtering/hosted_services.h"
#include "tests/filtering/filter_world.h"

namespace kestrelon {
namespace {

struct Built {
  std::vector<platform::Filter> filters;
  std::vector<FilterTag> tags;
  std::vector<std::wstring> warnings;
};

// What `rules` and `entries` make, without what every set has.
Built Build(const std::vector<RuleEntry>& rules, const std::vector<PlanEntry>& entries) {
  Built built;
  Config config;
  config.rules = rules;
  config.allow_loopback = false;
  EXPECT_TRUE(BuildFilters(config, entries, built.warnings,
                           [&built](platform::Filter& filter, FilterTag& tag) {
                             if (tag.kind == FilterKind::kDefault) return true;
                             built.filters.push_back(filter);
                             built.tags.push_back(tag);
                             return true;
                           }));
  return built;
}

class BuiltFilters : public FilterWorld {};

TEST_F(BuiltFilters, EachIsPersistentIndexedAndOurs) {
  PlanEntry labelled = HeldApp();
  labelled.label = L"the label";
  const Built built = Build({Rule(true), Rule(false)}, {AllowedApp(), labelled});
  ASSERT_EQ(built.filters.size(), 8u + 2u + 4u);  // two rules, the application, the held file
  EXPECT_EQ(built.filters[8].name, L"Kestrelon - Allow app.exe");
  EXPECT_EQ(built.tags[8].tag, kApp);
  EXPECT_EQ(built.filters[10].name, L"Kestrelon - Integrity block the label");
  EXPECT_EQ(built.tags[10].tag, L"the label");
  for (const platform::Filter& filter : built.filters) {
    EXPECT_EQ(filter.flags, filter.action == platform::kActionPermit ? 65u : 73u);
    EXPECT_EQ(filter.provider, ProviderKey);
    EXPECT_EQ(filter.sublayer, SubLayerKey);
    EXPECT_EQ(filter.description, L"Kestrelon firewall");
    EXPECT_TRUE(std::holds_alternative<std::uint8_t>(filter.weight));
  }
}

TEST_F(BuiltFilters, WhatMakesNoSenseCostsItselfAndAWarning) {
  std::vector<RuleEntry> rules(6, Rule(true));
  rules[0].remote = L"1.2.3.4/33";
  rules[0].remote_ports = L"x";
  rules[1].remote_ports = L"90-80";
  rules[2].local_ports = L"web";
  rules[3].app = L"Q:\\x.exe";
  rules[4].user = L"nobody";  // silently: the document's reader has refused such a one
  rules[5].allow = false;
  std::vector<PlanEntry> entries(3, AllowedApp());
  entries[0].path = L"Q:\\x.exe";
  entries[1].package_sid = entries[2].service_sid = L"x";
  entries[1].label = L"app package P";
  entries[2].label = L"service S";
  entries.push_back(BlockedApp());
  const Built built = Build(rules, entries);
  EXPECT_EQ(built.filters.size(), 8u);  // the block rule and the blocked application
  EXPECT_EQ(built.warnings, (std::vector<std::wstring>{
                                L"Rule 'allow' skipped: invalid network (CIDR): 1.2.3.4/33",
                                L"Rule 'allow' skipped: invalid port or port range: 90-80",
                                L"Rule 'allow' skipped: invalid port or port range: web",
                                L"Rule 'allow' skipped: cannot resolve application Q:\\x.exe",
                                L"Cannot resolve application path: Q:\\x.exe",
                                L"App package rule skipped (invalid package SID): app package P",
                                L"Service rule skipped (invalid service SID): service S"}));
}

TEST_F(BuiltFilters, APackageIsMatchedByItsSid) {
  PlanEntry entry;
  entry.allow = true;
  entry.package_sid = L"S-1-15-2-1-2-3-4-5-6-7";
  Install({}, {entry});
  simulation::Connection connection = AppConnection();
  EXPECT_FALSE(Passes(connection));
  connection.package_sid = SidOf(entry.package_sid);
  EXPECT_TRUE(Passes(connection));
}

TEST_F(BuiltFilters, AppIdsAreLowerCaseDevicePaths) {
  const std::pair<const wchar_t*, const wchar_t*> cases[] = {
      {L"C:\\App\\App.EXE", L"\\device\\harddiskvolume3\\app\\app.exe"},
      {L"%SystemDrive%\\App\\app.exe", L"\\device\\harddiskvolume3\\app\\app.exe"},
      {L"C:\\App\\Missing.exe", L"\\device\\harddiskvolume3\\app\\missing.exe"},
      {L"D:\\Missing.exe", L"\\device\\harddiskvolume4\\missing.exe"},
      {L"\\\\Server\\Share\\X.exe", L"\\device\\mup\\server\\share\\x.exe"},
      {L"Bare.exe", L"bare.exe"},
      {L"system", L"System"},
      {L"Q:\\x.exe", nullptr},
      {L"", nullptr},
  };
  for (const auto& [path, expected] : cases) {
    SCOPED_TRACE(Utf8FromWide(path));
    const platform::Bytes untouched = {7};
    platform::Bytes id = untouched;
    EXPECT_EQ(AppIdFor(path, id), expected != nullptr);
    EXPECT_EQ(id, expected != nullptr ? Utf16BytesWithNull(expected) : untouched);
  }
}

TEST_F(BuiltFilters, HostedServicesAreKeptForTenMinutes) {
  const auto names = [] {
    std::set<std::wstring> found;
    for (const HostedService& service : HostedServices()) found.insert(service.name);
    return found;
  };
  const std::wstring svchost = L"%SystemRoot%\\System32\\SVCHOST.EXE -k netsvcs";
  const auto add = [this](const wchar_t* name, const std::wstring& path, std::uint32_t sid_type) {
    machine_.services.Add(
        {.name = name, .display_name = {}, .binary_path = path, .sid_type = sid_type});
  };
  add(L"Shared", svchost, 1);
  add(L"NoSid", svchost, 0);
  add(L"Own", L"C:\\own.exe", 1);
  const std::set<std::wstring> first = names();
  EXPECT_TRUE(first.contains(L"Shared"));
  EXPECT_FALSE(first.contains(L"NoSid"));
  EXPECT_FALSE(first.contains(L"Own"));
  machine_.services.Remove(L"Shared");
  machine_.clock.Advance(600000);
  EXPECT_EQ(names(), first);
  machine_.clock.Advance(1);
  EXPECT_FALSE(names().contains(L"Shared"));
}

}  // namespace
}  // namespace kestrelon
