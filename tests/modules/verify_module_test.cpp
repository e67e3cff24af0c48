#include "modules/verify_module.h"

#include <gtest/gtest.h>

#include "core/error_text.h"
#include "simulation/machine/machine.h"
#include "tests/modules/module_world.h"

namespace kestrelon {
namespace {

using namespace test;
using simulation::TheMachine;

bool Active(const std::vector<ModuleEntry>& approvals, const ModuleStatus& status) {
  Config config;
  config.modules = approvals;
  return ModuleIsActive(config, status);
}

std::string ManifestBy(const std::string& publisher, const std::string& id = "lan-messages") {
  return R"({"id":")" + id + R"(","name":"n","version":"1","publisher":")" + publisher + "\"}";
}

TEST(VerifyModule, TellsWhyNothingIsKnownOfAModule) {
  EXPECT_EQ(VerifyModule(kModuleId).problem, L"the module file is missing");
  InstallModule();
  const ModuleStatus unknown = VerifyModule(L"LAN-messages");
  EXPECT_EQ(unknown.problem, L"unknown module");
  EXPECT_EQ(unknown.id + unknown.path, L"LAN-messages");
  TheMachine().faults.FailOnce("OpenResourceImage", platform::kAccessDenied);
  EXPECT_EQ(VerifyModule(kModuleId).problem, ErrorText(platform::kAccessDenied));
}

// Most rows have later faults too: the first is told.
TEST(VerifyModule, TellsTheFirstProblemOfAFile) {
  const std::wstring not_shipped =
      L"the module file is not the one shipped with this Kestrelon version";
  const std::wstring no_manifest = L"the file has no Kestrelon module manifest";
  const std::wstring ours = kModulePublisher;
  const std::string good = ManifestBy("TARGON HELVERIK Ltd. Co.");
  const std::string most = good + std::string(kLongestManifest - good.size(), '\n');
  struct {
    bool shipped;
    std::wstring signer;  // empty for a signature that counts for nothing
    std::string manifest;
    std::wstring problem;
  } const cases[] = {
      {true, L"Contoso", "", L"the module is signed by Contoso, not by " + ours},
      {true, L"", "", L"the signature of " + ours + L" on the module file is not valid"},
      {true, ours, "", no_manifest},
      {true, ours, most + '\n', no_manifest},
      {true, ours, most, L""},
      {true, ours, "\xEF\xBB\xBF" + good + std::string("\r\n\0\0", 4), L""},
      {true, ours, "\n\n", L"manifest is not valid JSON: unexpected end of input"},
      {true, ours, ManifestBy("x", "lan"), L"the manifest belongs to another module (lan)"},
      {true, ours, ManifestBy("x"), L"the manifest names another publisher (x)"},
      {false, L"", "", no_manifest},
      {false, ours, ManifestBy("x", "lan"), L"the manifest belongs to another module (lan)"},
      {false, ours, ManifestBy("x"), not_shipped}};
  for (const auto& c : cases) {
    // A signature is looked at once for one content: a look at another lets go of the last row's.
    TheMachine().files.Write(kModuleFile, "nothing");
    EXPECT_FALSE(VerifyModule(kModuleId).verified) << &c - cases;
    InstallModule(c.manifest);
    if (!c.shipped) TheMachine().files.Write(kModuleFile, "another file");
    TheMachine().files.Sign(kModuleFile, c.signer);
    const ModuleStatus status = VerifyModule(kModuleId);
    EXPECT_EQ(status.problem, c.problem) << &c - cases;
    EXPECT_EQ(status.verified, c.shipped && c.signer == ours) << &c - cases;
    EXPECT_EQ(status.manifest_valid, c.problem.empty() || c.problem == not_shipped);
  }
}

TEST(ModuleIsActive, ExactlyAsItsFirstEntryWasApproved) {
  InstallModule();
  const ModuleStatus status = VerifyModule(kModuleId);
  ModuleEntry entry = ApprovedModule();
  entry.id = L"LAN-Messages";
  EXPECT_TRUE(Active({entry}, status));
  entry.enabled = false;
  EXPECT_FALSE(Active({entry, ApprovedModule()}, status));
  EXPECT_FALSE(Active({}, status));
  EXPECT_FALSE(Active({ApprovedModule(L"perm:status.read")}, status));
  EXPECT_FALSE(Active({ApprovedModule(L"Perm:status.read|net:in/17/53535/lan")}, status));
  TheMachine().files.Write(kModuleFile, "another file");
  EXPECT_FALSE(Active({ApprovedModule()}, VerifyModule(kModuleId)));
}

}  // namespace
}  // namespace kestrelon
