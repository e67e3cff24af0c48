// Every step of the product under every fault: each platform call fails once, the disk is full from
// each write on, the power goes at each operation, the disk is slow. Each time what is in force is
// the old set, the new one or less than either permits, nothing half made is used, and the next
// start is right. What was left each time is the table in docs/failures.md.
#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <set>

#include "base/text.h"
#include "config/presets.h"
#include "core/version.h"
#include "platform/codes.h"
#include "tests/scenario/child.h"
#include "tests/scenario/failure_table.h"
#include "tests/scenario/sweep_steps.h"
#include "updates/update_settings.h"

extern "C" std::size_t __sanitizer_get_current_allocated_bytes() __attribute__((weak));

namespace kestrelon::test {
namespace {

using simulation::CallsOf;
using simulation::CutMode;

// Far above what any of the steps takes, far below for ever.
constexpr std::size_t kMostRounds = 3000;

const std::string kNewFile = "the new `config.json`";
const std::string kLastGoodFile = "the last working `config.json`";

// Texts that a round in a child process tells its parent.
class Told {
 public:
  void Put(std::vector<std::string> texts, const std::vector<std::string>& more = {}) {
    texts.insert(texts.end(), more.begin(), more.end());
    char* end = stpcpy(shared_, std::to_string(texts.size()).c_str()) + 1;
    for (const std::string& text : texts) end = stpcpy(end, text.c_str()) + 1;
  }
  // Those put last.
  std::vector<std::string> Take() const {
    std::vector<std::string> texts(std::stoul(shared_));
    const char* next = shared_ + std::strlen(shared_) + 1;
    for (std::string& text : texts) {
      text = next;
      next += text.size() + 1;
    }
    return texts;
  }

 private:
  static constexpr std::size_t kRoom = 1 << 18;
  char* const shared_ = static_cast<char*>(
      mmap(nullptr, kRoom, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
};

// A machine as one sees it from outside.
struct Sight {
  std::string passes;  // '1' or '0' for each probe
  std::string config;  // the text of config.json
  std::string beside;  // in the step's words
};

// A kind of fault, planned for its n-th occasion from now.
struct Fault {
  const char* name;  // in the table; null for that of the call
  void (*plan)(simulation::Machine& machine, std::uint64_t n);
  bool (*struck)(simulation::Machine& machine);
};

template <CallsOf whose>
void FailCall(simulation::Machine& machine, std::uint64_t n) {
  machine.faults.FailNth(n, platform::kAccessDenied, whose);
}

template <CutMode mode>
void CutPower(simulation::Machine& machine, std::uint64_t n) {
  machine.files.CutPowerAt(n, mode);
}

bool CallFailed(simulation::Machine& machine) {
  return machine.faults.fired();
}

bool PowerLost(simulation::Machine& machine) {
  return machine.files.power_lost();
}

constexpr Fault kCall = {nullptr, &FailCall<CallsOf::kThisThread>, &CallFailed};
constexpr Fault kCallOfAnotherThread = {nullptr, &FailCall<CallsOf::kOtherThreads>, &CallFailed};
const Fault kDiskFaults[] = {
    {"the disk is full",
     [](simulation::Machine& machine, std::uint64_t n) { machine.files.FillUpAt(n); },
     [](simulation::Machine& machine) { return machine.files.full(); }},
    {"the power goes", &CutPower<CutMode::kLoseMetadata>, &PowerLost},
    {"the power goes", &CutPower<CutMode::kKeepMetadata>, &PowerLost},
};

// Whether the n-th of these calls is to fail in a round of its own. The filters of an application
// are many and alike; under a sanitizer, where rounds are dear, some stand for the others.
bool IsSwept(const std::vector<std::string>& calls, std::size_t n) {
  static const std::set<std::string> alike = {"NewGuid", "AddFilter", "DeleteFilter"};
  const bool sampled = &__sanitizer_get_current_allocated_bytes != nullptr;
  constexpr std::size_t kOneIn = 15;  // odd: a GUID is made before each filter
  return !sampled || n > calls.size() || n % kOneIn == 0 || !alike.contains(calls[n - 1]);
}

// Whether whatever passes in one passes in the other.
bool IsWithin(const std::string& passes, const std::string& other) {
  return std::ranges::equal(passes, other, [](char one, char two) { return one <= two; });
}

// Whether a failure may open this although it was closed before and is to be closed after.
// A program that was replaced since it was allowed is held back, also where rules permit it; when
// it can't be looked at, the rules go for it too, and the entry if its attributes are what can't be
// read. Without the registry, a configuration that was deleted can't be told from a first start.
// Loopback is what block-all leaves to everybody.
bool MayOpen(const Attempt& probe, const std::string& failing) {
  static const std::set<std::string> looks_at_files = {
      "`QueryFileInformation`", "`OpenFile`",    "`ReadFileBytes`", "`ReadUsnRecord`",
      "`Sha256::Begin`",        "`Sha256::Add`", "`Sha256::Finish`"};
  return probe.loopback ||
         (probe.program == kReplacedProgram && looks_at_files.contains(failing)) ||
         (IsPredefined(probe) && failing == "`ReadRegistryDword`");
}

class FailureSweep : public testing::TestWithParam<SweepStep> {
 protected:
  const SweepStep& step() const { return GetParam(); }
  std::string Passes(World& world) const;
  Sight Look(World& world) const;

  // Both need after_.
  std::string FiltersInWords(const Sight& before, const std::string& passes) const;
  std::string ConfigInWords(World& world, const Sight& before) const;
  Outcome InWords(World& world, const Sight& before, const Sight& now) const;

  void ExpectNothingOpened(World& world, const Sight& before, const std::string& failing) const;
  void ExpectFileInForce(World& world) const;
  void ExpectNextStartIsRight(World& world, const Sight& before) const;

  // In a child process.
  Round Undisturbed();
  Round OnSlowDisk();
  Round Strike(const Fault& fault, std::size_t n);

  // `calls` are the ones that are to fail, where they are known.
  void SweepFault(const Fault& fault, const std::vector<std::string>& calls, bool in_table);

  const std::vector<Attempt> probes_ = SweepProbes();
  Told told_;
  Sight after_;  // the undisturbed step
  Outcomes outcomes_;
};

std::string FailureSweep::Passes(World& world) const {
  std::string passes;
  for (const Attempt& probe : probes_) passes += world.Passes(probe) ? '1' : '0';
  return passes;
}

Sight FailureSweep::Look(World& world) const {
  return {Passes(world), world.machine().files.Read(kConfigFile).value_or(""),
          step().beside ? step().beside(world) : ""};
}

std::string FailureSweep::FiltersInWords(const Sight& before, const std::string& passes) const {
  if (passes == after_.passes) return passes == before.passes ? "the same set" : "the new set";
  const bool was_open = before.passes.find('0') == std::string::npos;
  if (passes == before.passes) return was_open ? "nothing yet" : "the old set";
  std::string loopback;
  for (const Attempt& probe : probes_) loopback += probe.loopback ? '1' : '0';
  if (passes == loopback) return "block-all";
  if (passes.back() > std::max(before.passes.back(), after_.passes.back())) {
    return "the predefined set";
  }
  if (IsWithin(passes, after_.passes)) return "the new set, less what can't be looked at";
  if (IsWithin(passes, before.passes)) return "the old set, less what can't be looked at";
  return "the new set, a replaced program not held back";
}

std::string FailureSweep::ConfigInWords(World& world, const Sight& before) const {
  const std::string text = world.machine().files.Read(kConfigFile).value_or("");
  if (text == after_.config) return kNewFile;
  if (text.empty()) return "no `config.json`";
  if (text == before.config) return "the old `config.json`";
  const Config config = world.ConfigOnDisk();
  if (config == DefaultConfig()) return "the predefined `config.json`";
  if (text == world.machine().files.Read(kLastGood)) return kLastGoodFile;
  EXPECT_TRUE(config.apps.empty()) << text;
  EXPECT_TRUE(std::ranges::none_of(config.rules, &RuleEntry::enabled)) << text;
  return "the strict `config.json`";
}

Outcome FailureSweep::InWords(World& world, const Sight& before, const Sight& now) const {
  std::string beside = now.beside;
  if (before.config != after_.config || now.config != after_.config) {
    beside += (beside.empty() ? "" : ", ") + ConfigInWords(world, before);
  }
  return {FiltersInWords(before, now.passes), beside};
}

void FailureSweep::ExpectNothingOpened(World& world, const Sight& before,
                                       const std::string& failing) const {
  for (std::size_t i = 0; i < probes_.size(); ++i) {
    if (before.passes[i] == '1' || after_.passes[i] == '1' || MayOpen(probes_[i], failing))
      continue;
    EXPECT_FALSE(world.Passes(probes_[i])) << Utf8FromWide(world.Explain(probes_[i]));
  }
}

// Exactly what the file says is in force. The judge knows nothing of time, nor of the environment
// variables in the predefined rules.
void FailureSweep::ExpectFileInForce(World& world) const {
  Config config = world.ConfigOnDisk();
  const std::int64_t now = world.machine().clock.SystemTime();
  std::erase_if(config.apps,
                [now](const AppEntry& app) { return app.expires != 0 && app.expires <= now; });
  OracleFacts facts = world.facts();
  facts.listed_networks = CachedNetworks(world);
  for (const Attempt& probe : probes_) {
    if (IsPredefined(probe)) continue;
    std::wstring why;
    EXPECT_EQ(world.Passes(probe), Judge(config, facts, probe, why) == Answer::kPass)
        << Utf8FromWide(world.Explain(probe));
  }
}

// A later, undisturbed start puts what the file holds in force, and nothing of an update is left
// that could run or be told once more. A disk that was full still is.
void FailureSweep::ExpectNextStartIsRight(World& world, const Sight& before) const {
  simulation::FileSystem& files = world.machine().files;
  if (files.Exists(kLastGood)) (void)world.ConfigOnDisk(kLastGood);
  const std::string found = ConfigInWords(world, before);
  const std::optional<PendingInstall> pending = StoredPendingInstall();
  world.Restart();
  // A process that starts anew verifies each file anew; this one remembers contents whose
  // verification was made to fail, so the signed program comes in a version it has not seen.
  world.Signed(kBrowser, "browser, second version", kPublisher);
  ASSERT_TRUE(world.Start());
  if (files.Exists(kConfigFile)) {
    ExpectFileInForce(world);
    const std::string kept = ConfigInWords(world, before);
    EXPECT_TRUE(kept == found || kept == kNewFile || kept == kLastGoodFile) << kept;
  } else {
    EXPECT_TRUE(files.full());
    EXPECT_EQ(Passes(world), after_.passes);
  }
  EXPECT_FALSE(StoredPendingInstall());
  // The program that runs is the proof.
  if (pending) {
    const bool runs = pending->build == static_cast<std::uint32_t>(kBuild);
    EXPECT_EQ(StoredLastInstall().result, runs ? L"ok" : L"failed");
  }
  for (const std::wstring& name : files.Names(L"C:\\ProgramData\\Kestrelon\\update")) {
    EXPECT_FALSE(name.ends_with(L".exe") || name.ends_with(L".part")) << Utf8FromWide(name);
  }
  world.Stop();
  world.ExpectNothingLeft();
}

Round FailureSweep::Undisturbed() {
  World world;
  step().prepare(world);
  const Sight before = Look(world);
  FailCall<CallsOf::kThisThread>(world.machine(), kMostRounds);
  step().act(world);
  after_ = Look(world);
  const Outcome usual = InWords(world, before, after_);
  told_.Put({after_.passes, after_.config, after_.beside, usual.first, usual.second},
            world.machine().faults.counted());
  world.machine().faults.Clear();
  ExpectFileInForce(world);
  ExpectNextStartIsRight(world, before);
  return Round::kStruck;
}

// Each call takes a second, and what is in force meanwhile is looked at in each.
Round FailureSweep::OnSlowDisk() {
  World world;
  step().prepare(world);
  const Sight before = Look(world);
  world.machine().files.SlowDown([&] {
    world.machine().clock.Advance(1000);
    ExpectNothingOpened(world, before, "");
  });
  step().act(world);
  world.machine().files.SlowDown({});
  const Sight now = Look(world);
  EXPECT_EQ(now.passes, after_.passes);
  EXPECT_EQ(now.config, after_.config);
  EXPECT_EQ(now.beside, after_.beside);
  ExpectNextStartIsRight(world, before);
  return Round::kStruck;
}

Round FailureSweep::Strike(const Fault& fault, std::size_t n) {
  World world;
  simulation::Machine& machine = world.machine();
  step().prepare(world);
  const Sight before = Look(world);
  fault.plan(machine, n);
  step().act(world);
  const std::string call = machine.faults.fired_name();
  const bool swept = step().part == SweepStep::Part::kToEngine && call == "OpenEngineSession";
  if (swept || !fault.struck(machine)) {
    machine.faults.Clear();
    world.Stop();
    return Round::kUntouched;
  }
  const std::string cause = fault.name != nullptr ? fault.name : "`" + call + "`";
  SCOPED_TRACE("failing: " + cause);
  machine.faults.Clear();
  if (machine.files.power_lost()) world.Restart();
  EXPECT_FALSE(machine.engine.transaction_open());
  const Sight now = Look(world);
  ExpectNothingOpened(world, before, cause);
  const Outcome outcome = InWords(world, before, now);
  told_.Put({cause, outcome.first, outcome.second});
  // What a call's failing leaves is the same wherever it looks the same.
  if (fault.name != nullptr || !outcomes_[outcome].contains(cause)) {
    ExpectNextStartIsRight(world, before);
  } else {
    world.Stop();
  }
  return Round::kStruck;
}

void FailureSweep::SweepFault(const Fault& fault, const std::vector<std::string>& calls,
                              bool in_table) {
  for (std::size_t n = 1; n <= kMostRounds; ++n) {
    if (!IsSwept(calls, n)) continue;
    const Round round = RunRound([&] { return Strike(fault, n); });
    if (round == Round::kUntouched) return;
    ASSERT_EQ(round, Round::kStruck) << "round " << n;
    const std::vector<std::string> told = told_.Take();
    if (in_table) outcomes_[{told.at(1), told.at(2)}].insert(told.at(0));
  }
  FAIL() << "the sweep did not end";
}

TEST_P(FailureSweep, LeavesTheOldSetOrTheNewOneOrLess) {
  ASSERT_EQ(RunRound([this] { return Undisturbed(); }), Round::kStruck);
  const std::vector<std::string> told = told_.Take();
  after_ = {told.at(0), told.at(1), told.at(2)};
  EXPECT_EQ(RunRound([this] { return OnSlowDisk(); }), Round::kStruck);
  SweepFault(kCall, {told.begin() + 5, told.end()}, true);
  SweepFault(kCallOfAnotherThread, {}, step().part == SweepStep::Part::kWithWorker);
  for (const Fault& fault : kDiskFaults) SweepFault(fault, {}, true);
  EXPECT_FALSE(outcomes_.empty());
  CheckFailureTable(step().name, {told[3], told[4]}, outcomes_);
}

INSTANTIATE_TEST_SUITE_P(Steps, FailureSweep, testing::ValuesIn(SweepSteps()),
                         [](const auto& step) { return step.param.letters(); });

}  // namespace
}  // namespace kestrelon::test
