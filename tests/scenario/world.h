// The whole product in this process on the simulated machine: a fresh machine, builders for what is
// on it, connections put to the engine, and checks that nothing is left behind.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "config/config.h"
#include "config/json.h"
#include "simulation/machine/machine.h"
#include "tests/modules/module_world.h"
#include "tests/scenario/oracle.h"

namespace kestrelon::test {

inline constexpr const wchar_t* kSvchost = L"C:\\Windows\\System32\\svchost.exe";
inline constexpr const wchar_t* kLsass = L"C:\\Windows\\System32\\lsass.exe";
inline constexpr const wchar_t* kTool = L"C:\\Tools\\tool.exe";        // unsigned
inline constexpr const wchar_t* kOther = L"C:\\Tools\\other.exe";      // unsigned
inline constexpr const wchar_t* kBrowser = L"C:\\Tools\\browser.exe";  // signed by kPublisher
inline constexpr const wchar_t* kService = L"C:\\Program Files\\Kestrelon\\KestrelonSvc.exe";
inline constexpr const wchar_t* kPublisher = L"Example Publisher";
inline constexpr const wchar_t* kConfigFile = L"C:\\ProgramData\\Kestrelon\\config.json";

class World {
 public:
  // Puts kTool, kOther and kBrowser onto the machine.
  World();

  simulation::Machine& machine() { return simulation::TheMachine(); }

  // Writes config.json as a file of a machine that has been configured before.
  void PutConfig(const Config& config);
  // What a configuration file now holds; fails the test when it does not load.
  Config ConfigOnDisk(const std::wstring& path = kConfigFile);

  // CoreStart and CoreStop. Start may be called again after Stop.
  bool Start();
  bool StartWith(const Config& config);
  void Stop();
  // The core's loop on a thread of its own, on clocks that run. Stop ends it.
  void RunLoop();
  // The machine restarts: the engine keeps what is persistent, the process begins anew.
  void Restart();

  // Sends a configuration as a client would; gives the reply.
  Json Set(const Config& config);

  // The machine as the judge of attempts knows it: every file put there by Program and Signed.
  const OracleFacts& facts() const { return facts_; }
  void Program(const std::wstring& path, const std::string& content);
  void Signed(const std::wstring& path, const std::string& content, const std::wstring& signer);

  // Lays a copy of the blocklist "drop" beside the executable, as the installer does.
  void InstallBlocklist(const std::wstring& networks);

  // Lays the module that the service knows beside its executable, asking for what `grant` says.
  void InstallModule(const std::string& manifest = kModuleManifest,
                     const std::wstring& grant = kModuleGrant);
  // Puts another file in its place.
  void ReplaceModule();

  // Asks the engine what it would do, without a connection that it would report.
  bool Passes(const Attempt& attempt);
  // Whether the program gets through to a host that no rule of the tests' own names.
  bool Reaches(const std::wstring& program);
  // Puts a connection to the engine and waits until its report has been heeded.
  bool Connects(const Attempt& attempt);
  // The verdict with the deciding filter's name, for the text of a failure.
  std::wstring Explain(const Attempt& attempt);

  // service.log so far.
  std::wstring Log();
  bool Logged(const std::wstring& part);

  // The core's state, for a moment.
  std::wstring LastError();

  // Keys of all filters in the engine but the boot-time ones, sorted.
  std::vector<Guid> FilterKeys();

  // That no handle, session or transaction is left and no two filters ever tied. For stopped
  // worlds.
  void ExpectNothingLeft();

 private:
  OracleFacts facts_;
  bool started_ = false;
  std::thread loop_;
};

// Attempts in short. TCP; port and address of the other side.
Attempt Out(const std::wstring& program, const std::wstring& remote, std::uint16_t remote_port);
Attempt In(const std::wstring& program, const std::wstring& remote, std::uint16_t local_port);
Attempt Udp(Attempt attempt);
Attempt Loopback(Attempt attempt);

// The attempt as the engine meets it.
simulation::Connection ConnectionOf(const Attempt& attempt);

// An application entry that allows or blocks.
AppEntry Allowed(const std::wstring& path);
AppEntry Blocked(const std::wstring& path);

// A configuration of the present generation with these applications alone, which looks for no
// updates.
Config ConfigOf(const std::vector<AppEntry>& apps);

// A rule on everything, to be narrowed by its fields.
RuleEntry AllowRule(const std::wstring& name);
RuleEntry BlockRule(const std::wstring& name);

// Lower-case hexadecimal SHA-256 of a content.
std::wstring HashText(const std::string& content);

// A fixture around a World.
class Scenario : public testing::Test {
 protected:
  void TearDown() override {
    world.Stop();
    world.ExpectNothingLeft();
  }

  World world;
};

}  // namespace kestrelon::test
