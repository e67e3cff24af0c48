// What the audit finds of what somebody else did to the engine's objects, and how it tells it.

#include "filtering/filter_audit.h"

#include <algorithm>

#include "base/text.h"
#include "filtering/boot_filters.h"
#include "filtering/filter_conditions.h"
#include "filtering/filter_keys.h"
#include "tests/filtering/filter_world.h"

namespace kestrelon {
namespace {

using platform::Filter;

class FilterAudits : public FilterWorld {
 protected:
  FilterAudits() { EXPECT_EQ(platform::OpenEngineSession({}, other_), platform::kSuccess); }
  ~FilterAudits() override { platform::CloseEngineSession(other_); }

  // Both sets as the product has them. `installed_` are the regular filters in key order.
  void InstallBoth() {
    ASSERT_TRUE(InstallBootFilters(TheEngine, false, false, error_)) << Utf8FromWide(error_);
    Install({Rule(true, L"192.0.2.1")}, {AllowedApp(true)});
    installed_.clear();
    for (const auto& filter : machine_.engine.Filters()) installed_.push_back(*filter);
    ASSERT_TRUE(InstallBootFilters(TheEngine, true, false, error_)) << Utf8FromWide(error_);
  }

  void Delete(const Guid& key) { EXPECT_EQ(platform::DeleteFilter(other_, key), 0u); }
  void Add(const Filter& filter) {
    std::uint64_t id = 0;
    EXPECT_EQ(platform::AddFilter(other_, filter, {}, id), 0u);
  }
  void Change(std::size_t i, void (*change)(Filter&)) {
    Filter filter = installed_[i];
    change(filter);
    Delete(filter.key);
    Add(filter);
  }
  void AddForeign(const std::optional<Guid>& provider, const Guid& sublayer) {
    Filter filter = ForeignFilter(provider, sublayer);
    filter.flags = 0;
    Add(filter);
  }

  // Of the audit; no reason comes with any other result than a difference.
  void ExpectResult(AuditResult expected, const std::wstring& expected_reason = L"") {
    std::wstring reason;
    EXPECT_EQ(FilterAudit(TheEngine, reason), expected);
    EXPECT_EQ(reason, expected_reason);
  }
  void ExpectClean() { ExpectResult(AuditResult::kClean); }
  void ExpectDifference(const std::wstring& reason) { ExpectResult(AuditResult::kDiffers, reason); }

  platform::EngineHandle other_ = 0;
  std::vector<Filter> installed_;
};

// A number first, then the first filter in the order of the keys, then the boot-time ones.
TEST_F(FilterAudits, TellsTheFirstDifference) {
  const auto told = [this](std::size_t i, const wchar_t* what) {
    return L"filter " + WideFromUtf8(GuidText(installed_[i].key)) + what;
  };
  InstallBoth();
  ExpectClean();
  Change(installed_.size() - 1, [](Filter& f) { f.action ^= 3; });  // permit and block
  Delete(BootFilterKeys[0]);
  ExpectDifference(told(installed_.size() - 1, L" was modified"));
  Delete(installed_[7].key);
  Change(6, [](Filter& f) { f.weight = std::uint8_t{7}; });
  AddForeign(std::nullopt, SubLayerKey);
  ExpectDifference(told(6, L" was modified"));
  Delete(installed_[5].key);
  AddForeign(std::nullopt, SubLayerKey);
  ExpectDifference(told(5, L" is missing"));
  AddForeign(ProviderKey, Guid{});
  const std::wstring count = std::to_wstring(installed_.size());
  ExpectDifference(std::to_wstring(installed_.size() + 1) + L" filters present, " + count +
                   L" expected");
}

TEST_F(FilterAudits, WhatIsNobodysBusinessIsNoDifference) {
  InstallBoth();
  AddForeign(std::nullopt, Guid{});
  Change(0, [](Filter& f) { f.name = f.description = L"another name"; });
  // Who may use a filter is not compared: the engine gives descriptors back in a form of its own.
  const auto is_for_user = [](const Filter& f) {
    return !f.conditions.empty() && f.conditions.back().field == platform::kFieldUserId;
  };
  const auto found = std::find_if(installed_.begin(), installed_.end(), is_for_user);
  ASSERT_NE(found, installed_.end());
  Change(static_cast<std::size_t>(found - installed_.begin()), [](Filter& f) {
    platform::SecurityDescriptor other;
    EXPECT_TRUE(UserDescriptor(L"S-1-5-32-545", other));
    ASSERT_NE(f.conditions.back(), UserIs(other));
    f.conditions.back() = UserIs(other);
  });
  ExpectClean();
}

TEST_F(FilterAudits, SublayerMustStandAtTheTopEvenWithoutFilters) {
  Config disabled;
  disabled.enabled = false;
  ASSERT_TRUE(Apply(disabled, {}));
  ExpectClean();
  platform::Sublayer sublayer;
  ASSERT_EQ(platform::GetSublayer(other_, SubLayerKey, sublayer), platform::kSuccess);
  ASSERT_EQ(platform::DeleteSublayer(other_, SubLayerKey), platform::kSuccess);
  ExpectDifference(L"the Kestrelon sublayer is missing");
  sublayer.weight = 65534;
  ASSERT_EQ(platform::AddSublayer(other_, sublayer, {}), platform::kSuccess);
  ExpectDifference(L"sublayer priority changed to 65534");
}

TEST_F(FilterAudits, BootTimeFiltersCountOnceTheirNumberIsKnown) {
  ASSERT_TRUE(InstallBootFilters(TheEngine, true, true, error_));
  Filter leftover;
  ASSERT_EQ(platform::GetFilter(other_, BootFilterKeys[7], leftover), platform::kSuccess);
  ExpectClean();
  ASSERT_TRUE(InstallBootFilters(TheEngine, false, true, error_));
  ExpectClean();
  Add(leftover);
  ExpectDifference(L"1 boot-time filters present, 0 expected");
  {
    GuardLock lock(TheEngine.EngineGuard);
    TheEngine.BootExpected = -1;
  }
  ExpectClean();
}

}  // namespace
}  // namespace kestrelon
