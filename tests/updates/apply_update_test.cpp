// The helper: what it runs, what it refuses, and what it leaves.
#include "updates/apply_update.h"

#include "platform/files.h"
#include "tests/updates/update_world.h"

namespace kestrelon::test {
namespace {

class ApplyUpdate : public UpdateWorld {
 protected:
  ApplyUpdate() { Put(kSetup, {}); }

  std::uint32_t Apply(const std::wstring& path = kSetup) {
    AddService(1);
    machine.registry.Remove(kRegistryKey, L"HelperExit");
    const auto result = static_cast<std::uint32_t>(ApplyUpdateHelper(path, L"sk;calc"));
    EXPECT_EQ(machine.registry.Dword(kRegistryKey, L"HelperExit"), result);
    return result;
  }
  bool ServiceStarts() const { return machine.services.Find(L"KestrelonSvc")->state != 1; }
};

TEST_F(ApplyUpdate, RefusesAllButThePublishersFilesInTheDirectoryOfUpdates) {
  const std::wstring outside = L"D:\\vendor\\setup.exe";
  const std::wstring in = kUpdates + L"\\";
  for (const std::wstring& path :
       {outside, in + L"written.exe", in + L"below\\setup.exe", in + L"%TEMP%.exe", kHelper,
        in + L"install.log", kUpdates + L"2\\setup.exe"}) {
    Put(path, {});
  }
  Put(in + L"unsigned.exe", {.content = "unsigned", .signer = L""});
  Put(in + L"foreign.exe", {.content = "foreign", .signer = L"targon helverik ltd. co."});
  files.SetLink(in + L"link.exe", outside);
  platform::File writer;
  ASSERT_EQ(platform::OpenFile(in + L"written.exe", platform::kGenericWrite, platform::kShareAll,
                               platform::kOpenExisting, 0, writer),
            platform::kSuccess);
  for (const std::wstring& path : {outside,
                                   std::wstring(),
                                   kUpdates,
                                   in,
                                   kHelper,
                                   in + L"unsigned.exe",
                                   in + L"foreign.exe",
                                   in + L"link.exe",
                                   in + L"written.exe",
                                   in + L"below\\setup.exe",
                                   in + L"%TEMP%.exe",
                                   in + L"missing.exe",
                                   in + L"install.log",
                                   kUpdates + L"2\\setup.exe",
                                   in + L"below\\..\\setup.exe",
                                   in + L"x/../setup.exe",
                                   kUpdates + L"/setup.exe",
                                   in + L"\\setup.exe",
                                   L"\\\\?\\" + kSetup,
                                   L"\"" + kSetup,
                                   kSetup + L"\" /x.exe",
                                   kSetup + L":x.exe"}) {
    EXPECT_EQ(Apply(path), 9001U) << path;
    EXPECT_TRUE(ServiceStarts());
  }
  EXPECT_EQ(machine.processes.List().size(), 1U) << "nothing but this process";
  EXPECT_EQ(Apply(L"c:\\PROGRAMDATA\\kestrelon\\UPDATE\\Setup.EXE"), 0U);
}

TEST_F(ApplyUpdate, RunsTheInstallerInSilenceAndHoldsItFromItsTestOn) {
  during_setup = [this] {
    const auto setup = machine.processes.Find(machine.processes.Running(kSetup, 0).at(0)).value();
    EXPECT_EQ(setup.command_line, L"\"" + kSetup +
                                      L"\" /VERYSILENT /SUPPRESSMSGBOXES /NORESTART /NOCANCEL " +
                                      L"/LANG=skcalc /LOG=\"" + kUpdates + L"\\install.log\"");
    EXPECT_EQ(setup.directory, kUpdates);
    EXPECT_EQ(setup.flags, 0x8000000U);
  };
  Put(L"C:\\evil.exe", {.content = "evil"});
  machine.faults.RunBefore("StartProgram", [] {
    platform::File file;
    EXPECT_NE(platform::OpenFile(kSetup, platform::kGenericWrite, platform::kShareAll,
                                 platform::kOpenExisting, 0, file),
              platform::kSuccess);
    EXPECT_NE(platform::RenameFile(L"C:\\evil.exe", kSetup, platform::kReplaceExisting),
              platform::kSuccess);
    EXPECT_NE(platform::RenameFile(kSetup, L"C:\\away.exe", 0), platform::kSuccess);
  });
  EXPECT_EQ(Apply(), 0U);
  EXPECT_EQ(executed, std::vector<std::string>{"version 1.2.3"});
}

TEST_F(ApplyUpdate, LeavesTheInstallersExitCodeOrItsOwn) {
  for (const std::uint32_t exit_code : {0U, 5U, 0xC0000005U}) {
    setup_exit = exit_code;
    EXPECT_EQ(Apply(), exit_code);
  }
  const std::pair<const char*, std::uint32_t> faults[] = {
      {"StartProgram", 9002}, {"AwaitProcess", 9003}, {"ProcessExitCode", 9003}};
  for (const auto& [call, result] : faults) {
    machine.faults.FailOnce(call, 5);
    EXPECT_EQ(Apply(), result) << call;
  }
  // One that starts the service itself, and never ends.
  machine.processes.OnStart(kSetup, [this](std::uint32_t) { AddService(4); });
  const std::uint64_t before = machine.clock.Tick();
  EXPECT_EQ(Apply(), 9003U);
  EXPECT_EQ(machine.clock.Tick() - before, 1800000U);
}

// While an installer replaces it, the service's executable is not there to be started.
TEST_F(ApplyUpdate, TriesForAMinuteToStartTheServiceButOnceAfterARefusal) {
  const struct {
    std::wstring path;
    int there_at_attempt;
    std::uint64_t waited_ms;
    bool starts;
  } cases[] = {{kSetup, 1, 0, true},
               {kSetup, 30, 58000, true},
               {kSetup, 31, 58000, false},
               {L"", 2, 0, false}};
  for (const auto& [path, there_at_attempt, waited_ms, starts] : cases) {
    files.Remove(kServiceFile);
    int attempts = 0;
    const std::function<void()> attempt = [&, there = there_at_attempt] {
      if (++attempts == there) files.Write(kServiceFile, "version 1.2.3");
      machine.faults.RunBefore("LaunchService", attempt);
    };
    machine.faults.RunBefore("LaunchService", attempt);
    const std::uint64_t before = machine.clock.Tick();
    Apply(path);
    EXPECT_EQ(machine.clock.Tick() - before, waited_ms);
    EXPECT_EQ(ServiceStarts(), starts);
  }
}

}  // namespace
}  // namespace kestrelon::test
