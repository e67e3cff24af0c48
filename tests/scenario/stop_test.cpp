// Stops at any moment, with every thread of the product alive: each ends within what the manager is
// promised and leaves nothing behind, and the next start finds all in order. A failure prints the
// seed; KESTRELON_SEED runs that round again, KESTRELON_STOP_ROUNDS has it try more often.
#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <new>
#include <thread>
#include <utility>

#include "base/format.h"
#include "base/text.h"
#include "blocklists/blocklist_catalog.h"
#include "blocklists/refresh_blocklists.h"
#include "config/config_file.h"
#include "control/frames.h"
#include "control/pipe_server.h"
#include "core/service_entry.h"
#include "modules/module_pipe.h"
#include "platform/service_host.h"
#include "simulation/machine/acting_process.h"
#include "tests/scenario/child.h"
#include "tests/scenario/client.h"
#include "tests/scenario/random_world.h"
#include "tests/scenario/threads.h"
#include "tests/updates/update_world.h"

namespace kestrelon::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr std::int64_t kBoundMs = 10000;  // the hint that goes with "stop pending"
constexpr std::int64_t kUsualMs = 2000;   // less than what a client that hangs is given
constexpr std::chrono::seconds kStandsStill(90);
constexpr int kRounds = 8;
constexpr int kManyRounds = 200;  // in which everything happens

const std::string kSetupContent(100'000, 's');
constexpr std::size_t kVersions = 9;  // of an application that moves

std::wstring Version(std::size_t i) {
  return Format(L"C:\\Apps\\App-1.%zu\\app.exe", i);
}

void Pause(std::size_t ms) {
  std::this_thread::sleep_for(milliseconds(ms));
}

void Await(const std::function<bool()>& condition) {
  while (!condition()) Pause(1);
}

// The service as its manager runs it, on clocks that run.
class Service {
 public:
  Service() {
    machine.service_host.started_by_manager = true;
    machine.clock.Run();
    machine.sessions.SignIn(1);
    world.InstallModule(kRandomModule, kRandomGrant);
  }

  // As in a process of its own, but for transfers: these stay cancelled.
  void Start() {
    Core.Stopping = false;
    Core.StopEvent.Clear();
    UpdateSignals.stop = false;
    {
      GuardLock lock(ConfigGuard);
      Core.LastError.clear();
    }
    thread_ = std::thread([] { (void)platform::RunAsService(L"KestrelonSvc", &ServiceEntry); });
  }

  // Only a service that runs accepts this control, which does no more than wake the loop.
  void AwaitRunning() {
    Await(
        [this] { return machine.service_host.SendControl(platform::kControlSessionChange) == 0; });
  }

  // Also during the start. Gives how many milliseconds it took to end.
  std::int64_t Stop() {
    const auto begin = steady_clock::now();
    (void)HandleServiceControl(platform::kControlStop);
    thread_.join();
    return std::chrono::duration_cast<milliseconds>(steady_clock::now() - begin).count();
  }

  World world;
  simulation::Machine& machine = world.machine();

 private:
  std::thread thread_;
};

Round StopWithEveryThread() {
  EndWithin(kStandsStill);
  const std::size_t before = Threads();
  Service service;
  simulation::Machine& machine = service.machine;
  Config config = ConfigOf({});
  config.blocklists = {L"drop"};
  config.modules = {ApprovedModule(kRandomGrant)};
  for (std::size_t i = 0; i < platform::kMostWatchesInWait; ++i) {
    config.apps.push_back(Allowed(Version(i)));
    service.world.Program(Version(i), "version");
  }
  service.world.PutConfig(config);
  machine.http.Serve(BlocklistCatalog()[0].urls[0], {.silent = true});
  machine.http.Serve(kManifestUrl, {.silent = true});
  service.Start();
  service.AwaitRunning();
  Client client;
  EXPECT_TRUE(client.Command("check_update").Get("ok").boolean());
  Client subscriber;
  subscriber.Subscribe();
  Await([&] { return !machine.processes.Running(kModuleFile, 1).empty(); });
  const simulation::AsProcess as(machine.processes.Running(kModuleFile, 1)[0]);
  platform::Pipe module;
  Await([&] { return platform::OpenPipe(kModulePipeName, true, module) == platform::kSuccess; });
  // Two threads accept clients and two serve some; a third one has no event for its subscriber.
  Await([&] { return machine.http.Requests().size() == 2 && machine.pipes.waiting() == 4; });
  EXPECT_EQ(machine.watches.waiting_threads(), 2U);
  EXPECT_EQ(machine.network.notifications(), 1U);
  // These five, the two transfers', the two that watch, main and the follow worker. Of the machine:
  // the manager's dispatcher and the engine's thread for callbacks.
  Await([&] { return Threads() == before + 11 + 2; });
  EXPECT_LT(service.Stop(), kBoundMs);
  Await([&] { return Threads() == before + 1; });  // the engine goes on
  return Round::kStruck;
}

TEST(Stop, EndsEveryThreadOfTheProduct) {
  EXPECT_EQ(RunRound(StopWithEveryThread), Round::kStruck);
}

// Everything that may go on around a service at once: clients, modules, connections, transfers,
// and what happens to the machine.
class Trouble {
 public:
  Trouble(Service& service, Dice& dice, Happening kind)
      : world_(service.world), machine_(service.machine), kind_(kind) {
    for (std::size_t i = 0; i < kVersions; ++i) world_.Signed(Version(i), "version", kPublisher);
    OfferInstaller();
    Serve(dice);
    world_.PutConfig(Troubled(dice));
    MakeRequests(dice);
    for (int i = 0; i < 3; ++i) Again(dice, [this](Dice& own) { Ask(kControlPipeName, own); });
    Again(dice, [this](Dice& own) { AskAsModule(own); });
    Again(dice, [this](Dice& own) { Connect(own); });
    Again(dice, [this](Dice& own) { Change(own); });
  }
  ~Trouble() {
    over_ = true;
    for (std::thread& thread : threads_) thread.join();
    if (!machine_.engine.running()) machine_.engine.Start();
  }
  Trouble(const Trouble&) = delete;
  Trouble& operator=(const Trouble&) = delete;

 private:
  void Again(Dice& dice, std::function<void(Dice&)> act) {
    const auto seed = static_cast<std::uint32_t>(dice.Below(1U << 31));
    threads_.emplace_back([this, act = std::move(act), own = Dice(seed)]() mutable {
      while (!over_) act(own);
    });
  }

  // With an application that moves, a list to fetch, a module, a permission that ends in a moment,
  // and a way out for updates that does not come and go with them.
  Config Troubled(Dice& dice) {
    Config config = RandomConfig(dice, world_);
    config.updates_auto_check = true;
    if (dice.OneIn(2)) config.blocklists = {L"drop"};
    if (dice.OneIn(2)) config.modules = {ApprovedModule(kRandomGrant)};
    config.apps.push_back(Allowed(Version(0)));
    config.apps.back().signer = kPublisher;
    config.apps.push_back(Allowed(L"C:\\Tools\\for a moment.exe"));
    config.apps.back().expires =
        machine_.clock.SystemTime() + static_cast<std::int64_t>(dice.Below(500)) * 10'000;
    return config;
  }

  void MakeRequests(Dice& dice) {
    for (const char* command :
         {"status", "get_config", "get_modules", "get_log", "get_allowed", "update_blocklists",
          "check_update", "install_update", "clear_allowed", "clear_log", "subscribe", "hello"}) {
      requests_.push_back(std::string(R"({"cmd":")") + command + R"("})");
    }
    requests_.push_back(R"({"cmd":"file_info","path":"C:\\Tools\\browser.exe"})");
    requests_.push_back(R"({"cmd":"set_module","id":"lan-messages","enabled":true,"grant":")" +
                        Utf8FromWide(kRandomGrant) + R"("})");
    Json request;
    request["cmd"] = "set_config";
    for (int i = 0; i < 6; ++i) {
      request["config"] = ConfigToJson(Troubled(dice));
      requests_.push_back(request.Dump(false));
    }
  }

  // As if a check had told of one that proves good; its helper does nothing.
  void OfferInstaller() {
    UpdateMachine vendor;
    world_.Program(kService, "version 1.2.2");
    machine_.processes.OnStart(kHelper,
                               [this](std::uint32_t id) { machine_.processes.End(id, 0); });
    GuardLock lock(UpdateGuard);
    Update.available = true;
    Update.latest = vendor.Publish({.content = kSetupContent});
  }

  // Each file as a good server would, or not.
  void Serve(Dice& dice) {
    std::string list;
    for (std::size_t i = dice.Below(2); i < 12; ++i) list += "5.0." + std::to_string(i) + ".0/24 ";
    const std::vector<std::wstring>& urls = BlocklistCatalog()[0].urls;
    for (const auto& [url, body] :
         {std::pair(urls[0], list), std::pair(urls[1], list), std::pair(kManifestUrl, list),
          std::pair(kSetupUrl, kSetupContent)}) {
      simulation::HttpResponse response{.body = body};
      response.silent = dice.OneIn(6);
      response.stalls = dice.OneIn(6);
      if (response.stalls) response.fail_after = body.size() / 2;
      if (dice.OneIn(3)) response.chunk = 16;
      machine_.http.Serve(url, response);
    }
  }

  // The service may end the connection at any moment, and so may the client: also without a look
  // at the reply.
  void Ask(const wchar_t* pipe_name, Dice& dice) {
    platform::Pipe pipe;
    std::string reply;
    if (platform::OpenPipe(pipe_name, true, pipe)) return Pause(1);
    for (std::size_t left = dice.Below(8); left > 0; --left) {
      if (!WriteFrame(pipe, requests_[dice.Below(requests_.size())])) return;
      if (dice.OneIn(5)) return Pause(dice.Below(100));
      if (!ReadFrame(pipe, reply)) return;
    }
  }

  void AskAsModule(Dice& dice) {
    Pause(dice.Below(20));
    const std::vector<std::uint32_t> running = machine_.processes.Running(kModuleFile, 1);
    if (running.empty()) return;
    const simulation::AsProcess as(running[0]);
    Ask(kModulePipeName, dice);
  }

  void Connect(Dice& dice) {
    Pause(dice.Below(3));
    Attempt attempt = RandomAttempt(dice);
    if (dice.OneIn(10)) attempt.program = Version(dice.Below(kVersions));
    (void)machine_.engine.Classify(ConnectionOf(attempt));
  }

  void Change(Dice& dice) {
    Pause(dice.Below(30));
    if (!machine_.engine.running()) return machine_.engine.Start();
    if (dice.OneIn(6)) return Serve(dice);
    (void)machine_.service_host.SendControl(platform::kControlSessionChange);
    HappenTo(world_, dice, kind_);
  }

  World& world_;
  simulation::Machine& machine_;
  const Happening kind_;
  std::vector<std::string> requests_;
  std::atomic<bool> over_ = false;
  std::vector<std::thread> threads_;
};

// What stops met, in memory that the rounds share with their test.
struct Tally {
  std::atomic<std::int64_t> stops, sum_ms, longest_ms;
  std::atomic<std::int64_t> starting, refreshing, updating, moved, modules;
};

class RandomRound {
 public:
  RandomRound(std::uint32_t seed, Tally& tally) : seed_(seed), dice_(seed), tally_(tally) {}

  Round Run() {
    EndWithin(kStandsStill);
    threads_ = Threads() + 1;  // with the engine's for callbacks
    const Happening kind = dice_.OneIn(2) ? Happening::kAny : Happening::kHarmless;
    StopInTrouble(kind);
    ExpectNothingLeft();
    if (kind == Happening::kHarmless && service_.world.LastError().empty()) ExpectMeant();
    service_.Start();
    service_.AwaitRunning();
    Stop();
    ExpectNothingLeft();
    EXPECT_EQ(service_.world.LastError(), L"");
    ExpectMeant();
    return Round::kStruck;
  }

 private:
  void StopInTrouble(Happening kind) {
    const Trouble trouble(service_, dice_, kind);
    if (dice_.OneIn(8)) service_.machine.engine.Stop();
    service_.Start();
    const bool starting = dice_.OneIn(4);
    if (!starting) service_.AwaitRunning();
    Pause(dice_.Below(starting ? 100 : dice_.OneIn(4) ? 1000 : 300));
    tally_.starting += starting ? 1 : 0;
    tally_.refreshing += BlocklistRefreshRunning() ? 1 : 0;
    tally_.updating += UpdateSignals.busy ? 1 : 0;
    tally_.moved += service_.world.Logged(L"Update detected") ? 1 : 0;
    tally_.modules += service_.machine.processes.Running(kModuleFile, 1).empty() ? 0 : 1;
    Stop();
  }

  void Stop() {
    const std::int64_t ms = service_.Stop();
    EXPECT_LT(ms, kBoundMs);
    ++tally_.stops;
    tally_.sum_ms += ms;
    tally_.longest_ms = std::max(tally_.longest_ms.load(), ms);
  }

  void ExpectNothingLeft() {
    Await([this] { return Threads() <= threads_; });
    service_.world.ExpectNothingLeft();
  }

  // What is in force is what the configuration means, and the disk has it.
  void ExpectMeant() {
    Config config;
    {
      GuardLock lock(ConfigGuard);
      config = Core.CurrentConfig;
    }
    EXPECT_TRUE(ExpectJudged(service_.world, config, dice_, 30, seed_));
    EXPECT_EQ(service_.world.ConfigOnDisk(), config);
  }

  const std::uint32_t seed_;
  Dice dice_;
  Tally& tally_;
  std::size_t threads_ = 0;  // before the start
  Service service_;
};

TEST(Stop, EndsWithinItsBoundWhateverGoesOn) {
  const char* const wanted = std::getenv("KESTRELON_STOP_ROUNDS");
  const int rounds = SeedIsGiven() ? 1 : wanted == nullptr ? kRounds : std::atoi(wanted);
  void* const shared =
      mmap(nullptr, sizeof(Tally), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(shared, MAP_FAILED);
  Tally& tally = *new (shared) Tally{};
  const std::uint32_t first = FirstSeed();
  for (int i = 0; i < rounds && !HasFailure(); ++i) {
    const std::uint32_t seed = first + static_cast<std::uint32_t>(i);
    EXPECT_EQ(RunRound([&] { return RandomRound(seed, tally).Run(); }), Round::kStruck)
        << "KESTRELON_SEED=" << seed;
  }
  std::printf(
      "%ld stops in %ld ms, the longest in %ld ms; %ld in the start, %ld in a refresh, %ld in an "
      "update, %ld after an application moved, %ld with a module\n",
      tally.stops.load(), tally.sum_ms.load(), tally.longest_ms.load(), tally.starting.load(),
      tally.refreshing.load(), tally.updating.load(), tally.moved.load(), tally.modules.load());
  if (rounds >= kManyRounds) {
    for (const auto* met :
         {&tally.starting, &tally.refreshing, &tally.updating, &tally.moved, &tally.modules}) {
      EXPECT_GT(*met, 0);
    }
  }
  EXPECT_LE(tally.sum_ms, tally.stops * kUsualMs);
}

}  // namespace
}  // namespace kestrelon::test
