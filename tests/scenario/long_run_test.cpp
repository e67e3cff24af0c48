// Days of the service on a held clock, with clients, changes, tampering and an engine that goes
// away: every pass ends in what the configuration means, and nothing grows.
#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

#include "base/text.h"
#include "blocklists/refresh_blocklists.h"
#include "config/config_file.h"
#include "core/core_loop.h"
#include "tests/scenario/client.h"
#include "tests/scenario/random_world.h"
#include "tests/scenario/threads.h"
#include "updates/update_state.h"

// Of the sanitizers' allocators, which mallinfo2 knows nothing of.
extern "C" std::size_t __sanitizer_get_current_allocated_bytes() __attribute__((weak));

namespace kestrelon::test {
namespace {

// With 15 seconds between idle passes.
constexpr int kPassesADay = 24 * 60 * 4;
constexpr int kAttemptsAPass = 3;
constexpr std::size_t kGrowthAllowedBytes = 64 << 10;

// What a leak would make larger.
struct Footprint {
  std::size_t threads = 0;
  std::size_t file_handles = 0;
  std::size_t pipe_handles = 0;
  std::size_t watches = 0;
  std::size_t sessions = 0;
  std::size_t processes = 0;
  std::size_t bytes = 0;
};

std::size_t AllocatedBytes() {
  if (&__sanitizer_get_current_allocated_bytes != nullptr) {
    return __sanitizer_get_current_allocated_bytes();
  }
  return mallinfo2().uordblks;
}

// The fewest of several looks: threads that have done their work are still on their way out.
std::size_t ThreadsAtRest() {
  std::size_t fewest = Threads();
  for (int look = 0; look < 100; ++look) {
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    fewest = std::min(fewest, Threads());
  }
  return fewest;
}

class LongRun : public Scenario {
 protected:
  void SetUp() override {
    seed_ = FirstSeed();
    dice_ = Dice(seed_);
    world.InstallModule(kRandomModule, kRandomGrant);
    world.PutConfig(RandomConfig(dice_, world));
    ASSERT_TRUE(world.Start());
  }

  // One thing that happens between two passes.
  void Happen() {
    simulation::Machine& machine = world.machine();
    switch (dice_.Below(40)) {
      case 0:
        (void)SetConfig(RandomConfig(dice_, world));
        break;
      case 5:
        machine.faults.FailOnce("CommitTransaction", platform::kTransactionTimeout);
        break;
      case 6:
        SetModule(dice_.OneIn(2));
        break;
      case 1:
      case 2:
      case 3:
      case 4:
      case 7:
        HappenTo(world, dice_, Happening::kAny);
        break;
      default:
        if (!machine.engine.running()) machine.engine.Start();
        break;
    }
  }

  // Whether the service took it.
  bool SetConfig(const Config& config) {
    Json request;
    request["cmd"] = Json("set_config");
    request["config"] = ConfigToJson(config);
    return Client().Ask(request).Get("ok").boolean();
  }

  void SetModule(bool enabled) {
    Json request;
    request["cmd"] = "set_module";
    request["id"] = kModuleId;
    request["enabled"] = enabled;
    request["grant"] = kRandomGrant;
    (void)Client().Ask(request);
  }

  // Only what the user approved runs, at most once for each session.
  void ExpectModulesMeant(const Config& config) {
    const bool approved = !config.modules.empty() && config.modules[0].enabled &&
                          config.modules[0].grant == world.facts().module_grant;
    for (const std::uint32_t session : {0U, 1U, 2U}) {
      const std::size_t most = approved && session != 0 ? 1 : 0;
      EXPECT_LE(world.machine().processes.Running(kModuleFile, session).size(), most) << seed_;
    }
  }

  // Nothing passes but what the configuration lets pass.
  void ExpectMeant() {
    Config config;
    {
      GuardLock lock(ConfigGuard);
      if (!Core.LastError.empty() || !world.machine().engine.running()) return;
      config = Core.CurrentConfig;
    }
    ASSERT_TRUE(ExpectJudged(world, config, dice_, kAttemptsAPass, seed_));
    ExpectModulesMeant(config);
  }

  void Live(int passes) {
    std::atomic<bool> over = false;
    std::thread chatter([&over] {
      for (unsigned i = 0; !over; ++i) {
        Client client;
        (void)client.Command("status");
        if (i % 4 == 0) (void)client.Command("get_config");
        if (i % 8 == 0) client.Subscribe();  // and goes away
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
      }
    });
    for (int i = 0; i < passes && !HasFatalFailure(); ++i) {
      Happen();
      world.machine().clock.Advance(15000);
      LoopPass();
      ExpectMeant();
    }
    over = true;
    chatter.join();
  }

  // What is in use in one and the same state of rest.
  Footprint Rest() {
    simulation::Machine& machine = world.machine();
    machine.faults.Clear();
    if (!machine.engine.running()) machine.engine.Start();
    LoopPass();
    EXPECT_TRUE(SetConfig(Config()));
    SetModule(false);
    LoopPass();
    for (const wchar_t* log : {L"service.log", L"service.log.old", L"activity.log"}) {
      machine.files.Remove(std::wstring(L"C:\\ProgramData\\Kestrelon\\") + log);
    }
    machine.console.debug_output.Clear();
    while (machine.pipes.open_handles() > 1 || BlocklistRefreshRunning() || UpdateSignals.busy) {
      std::this_thread::yield();
    }
    Footprint footprint;
    footprint.threads = ThreadsAtRest();
    footprint.file_handles = machine.files.open_handles();
    footprint.pipe_handles = machine.pipes.open_handles();
    footprint.watches = machine.watches.open_watches();
    footprint.processes = machine.processes.open_handles() + machine.sessions.open_handles();
    footprint.sessions = machine.engine.open_sessions();
    footprint.bytes = AllocatedBytes();
    return footprint;
  }

  std::uint32_t seed_ = 0;
  Dice dice_{0};
};

TEST_F(LongRun, TwoMoreDaysGrowNothing) {
  Live(2 * kPassesADay);  // until everything bounded is at its bound
  const Footprint before = Rest();
  Live(2 * kPassesADay);
  const Footprint after = Rest();
  SCOPED_TRACE("seed " + std::to_string(seed_));
  EXPECT_LE(after.threads, before.threads);
  EXPECT_EQ(after.file_handles, before.file_handles);
  EXPECT_EQ(after.pipe_handles, before.pipe_handles);
  EXPECT_EQ(after.watches, before.watches);
  EXPECT_EQ(after.sessions, before.sessions);
  EXPECT_EQ(after.processes, before.processes);
  EXPECT_LE(after.bytes, before.bytes + kGrowthAllowedBytes);
}

}  // namespace
}  // namespace kestrelon::test
