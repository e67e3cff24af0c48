// When a refresh runs, and what a download does to the list in force.
#include "blocklists/refresh_blocklists.h"

#include <gtest/gtest.h>

#include <limits>
#include <thread>

#include "base/text.h"
#include "blocklists/blocklist_store.h"
#include "blocklists/fetch_blocklist.h"
#include "core/error_text.h"
#include "simulation/machine/machine.h"

namespace kestrelon {
namespace {

const std::wstring kLog = L"C:\\ProgramData\\Kestrelon\\service.log";
constexpr std::size_t kStampLength = 21;  // "YYYY-MM-DD hh:mm:ss" and two blanks
constexpr std::uint64_t kHourMs = 3600000;
constexpr std::int64_t kHour = std::int64_t{kHourMs} * platform::kTimeStepsPerMs;

// A feed of the networks from one number up to another.
std::string Feed(std::size_t first, std::size_t end) {
  std::string text;
  for (; first < end; ++first) text += "5.6." + std::to_string(first) + ".0/24\n";
  return text;
}

class BlocklistRefresh : public testing::Test {
 protected:
  BlocklistRefresh() {
    machine.files.MakeDirectories(L"C:\\ProgramData\\Kestrelon");
    config.blocklists = {L"nonsense", L"DROP"};
    Serve({.body = Feed(0, 10)}, {});
  }
  void TearDown() override {
    StopBlocklistRefresh();
    EXPECT_EQ(machine.http.open_handles(), 0U);
  }

  void Serve(const simulation::HttpResponse& first, const simulation::HttpResponse& second) {
    machine.http.Serve(row.urls[0], first);
    machine.http.Serve(row.urls[1], second);
  }

  void Start(bool force) {
    GuardLock lock(ConfigGuard);
    StartBlocklistRefresh(config, force);
  }

  // How many URLs a refresh asked for; 0 when none was started.
  std::size_t Refresh(bool force = false) {
    const std::size_t before = machine.http.Requests().size();
    Start(force);
    while (BlocklistRefreshRunning()) std::this_thread::yield();
    return machine.http.Requests().size() - before;
  }

  static BlocklistState State() {
    GuardLock lock(BlocklistGuard);
    return BlocklistStates[L"drop"];
  }
  static void SetState(const std::wstring& source, std::int64_t updated) {
    GuardLock lock(BlocklistGuard);
    BlocklistStates[L"drop"] = {{L"9.9.9.9", L"8.8.8.8"}, updated, source, L""};
  }
  std::int64_t Now() { return machine.clock.SystemTime(); }

  // Whether the core has been told of a change since the last call.
  static bool Told() {
    return platform::WaitForAny({&Core.WakeEvent}, 0) == 0 &&
           Core.BlocklistsChanged.exchange(false);
  }

  // The one message of service.log since the last call.
  std::string Logged() {
    const std::string line = machine.files.Read(kLog).value_or("");
    machine.files.Remove(kLog);
    return line.empty() ? line : line.substr(kStampLength);
  }

  simulation::Machine& machine = simulation::TheMachine();
  const BlocklistRow& row = BlocklistCatalog().front();
  Config config;
};

TEST_F(BlocklistRefresh, RunsWhenTheConfigurationAllowsAndAListIsDue) {
  constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();
  struct Case {
    bool enabled, auto_update, force;
    const wchar_t* source;
    std::int64_t age;
    bool runs;
  };
  const Case cases[] = {
      {true, true, false, L"", 0, true},
      {true, true, false, L"bundled", 0, true},
      {true, true, false, L"download", 23 * kHour, false},
      {true, true, false, L"download", 24 * kHour, false},
      {true, true, false, L"download", 24 * kHour + 1, true},
      {true, true, false, L"download", kNever, true},
      {true, true, false, L"download", -1, true},  // the clock was ahead then
      {true, true, true, L"download", 23 * kHour, true},
      {true, false, false, L"bundled", 0, false},
      {true, false, true, L"download", 0, true},
      {false, true, true, L"bundled", 0, false},
  };
  config.blocklists = {L"DROP", L"unknown", L"drop"};  // the same one twice is fetched once
  for (const Case& c : cases) {
    config.enabled = c.enabled;
    config.blocklists_auto_update = c.auto_update;
    machine.clock.Advance(kHourMs);
    SetState(c.source, c.age == kNever ? -kNever : Now() - c.age);
    EXPECT_EQ(Refresh(c.force), c.runs ? 2U : 0U) << "case " << &c - cases;
  }
  Core.Stopping = true;
  config.enabled = true;
  EXPECT_EQ(Refresh(true), 0U) << "the service stops";
}

TEST_F(BlocklistRefresh, StartsOnceAnHourAlsoAfterAFailure) {
  Serve({.failure = 12029}, {});
  SetState(L"download", Now() - 24 * kHour);
  const struct {
    std::uint64_t later_ms;
    bool force;
    std::size_t requests;
  } steps[] = {
      {0, false, 0}, {1, false, 1},           {kHourMs - 1, false, 0},
      {0, true, 1},  {kHourMs - 1, false, 0}, {1, false, 1},
  };
  for (const auto& [later_ms, force, requests] : steps) {
    machine.clock.Advance(later_ms);
    EXPECT_EQ(Refresh(force), requests) << "step " << machine.clock.Tick();
  }
}

TEST_F(BlocklistRefresh, ReplacesTheListByAUsableDownloadOnly) {
  const std::string page = "<html><p>1.2.3.4</p>\n1.2.3.5</html>";
  const std::string nine = Feed(0, 9);
  const std::string only = "the downloaded list has only ";
  const std::string kept = " usable entries - kept the previous one";
  const std::string url1 = Utf8FromWide(row.urls[0]) + ": ";
  const std::string url2 = Utf8FromWide(row.urls[1]) + ": ";
  struct Case {
    simulation::HttpResponse first, second;
    bool changed;
    std::string error = {};
  };
  const Case cases[] = {
      {{.failure = 12007}, {.body = nine}, false, url1 + Utf8FromWide(ErrorText(12007))},
      {{.body = Feed(0, 20)}, {.status = 503}, false, url2 + "HTTP 503"},
      {{.body = page}, {.body = page}, false, only + "2" + kept},
      {{.body = Feed(0, 5)}, {.body = Feed(5, 10)}, true},  // the texts of both are one list
      {{.body = nine}, {.body = nine}, false, only + "9" + kept},
      {{.body = Feed(0, 10)}, {}, false},
      {{.body = Feed(5, 10)}, {.body = Feed(0, 5)}, true},  // the order counts
      {{.body = Feed(5, 11)}, {.body = Feed(0, 5)}, true},
  };
  SetState(L"bundled", 77);
  for (const auto& [first, second, changed, error] : cases) {
    const BlocklistState before = State();
    const auto cache = machine.files.Read(BlocklistCachePath(row));
    machine.clock.Advance(1);
    Serve(first, second);
    Refresh(true);
    const BlocklistState state = State();
    const std::string size = std::to_string(state.entries.size());
    EXPECT_EQ(Logged(), error.empty() ? "Blocklist 'drop' downloaded: " + size + " entries" +
                                            (changed ? "\r\n" : " (unchanged)\r\n")
                                      : "Blocklist 'drop' was not updated: " + error + "\r\n");
    EXPECT_EQ(Told(), changed);
    EXPECT_EQ(state.entries != before.entries, changed);
    EXPECT_EQ(state.updated, error.empty() ? Now() : before.updated);
    EXPECT_EQ(state.source, error.empty() ? L"download" : before.source);
    EXPECT_EQ(Utf8FromWide(state.error), error);
    EXPECT_EQ(machine.files.Read(BlocklistCachePath(row)),
              error.empty() ? BlocklistCacheText(row, state) : cache);
  }
}

TEST_F(BlocklistRefresh, UsesAListWhoseCacheCannotBeWritten) {
  machine.faults.FailOnce("RenameFile", platform::kAccessDenied);
  Refresh();
  EXPECT_TRUE(Logged().starts_with("Cannot save blocklist 'drop': cannot replace C:\\"));
  EXPECT_EQ(State().entries.size(), 10U);
  EXPECT_TRUE(Told());
}

TEST_F(BlocklistRefresh, EndsAtOnceWhileAServerDoesNotAnswer) {
  Serve({.silent = true}, {});
  Start(false);
  machine.http.WaitForBlocked();
  Start(true);  // dropped: one is running
  StopBlocklistRefresh();
  EXPECT_EQ(State().error, row.urls[0] + L": stopped");
  EXPECT_EQ(machine.http.Requests().size(), 1U);
  Start(true);
  EXPECT_FALSE(BlocklistRefreshRunning()) << "after a stop none starts";
}

TEST_F(BlocklistRefresh, JudgesWhatHadComeBeforeAStop) {
  machine.faults.RunBefore("CloseHttp", CancelBlocklistFetches);
  EXPECT_EQ(Refresh(), 1U);
  EXPECT_EQ(State().entries.size(), 10U);
}

}  // namespace
}  // namespace kestrelon
