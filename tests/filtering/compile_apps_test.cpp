#include "filtering/compile_apps.h"

#include <gtest/gtest.h>

#include "base/text.h"
#include "identity/file_usn.h"
#include "identity/service_info.h"
#include "platform/security.h"
#include "simulation/machine/machine.h"

namespace kestrelon {

void PrintTo(const PlanEntry& entry, std::ostream* out) {
  *out << testing::PrintToString(entry.path) << (entry.allow ? " allow" : "")
       << (entry.inbound ? " inbound" : "") << (entry.integrity_block ? " held" : "")
       << (entry.hash_pinned ? " pinned" : "") << testing::PrintToString(entry.label);
}

namespace {

using simulation::TheMachine;
using Texts = std::vector<std::wstring>;

constexpr const wchar_t* kFile = L"C:\\Apps\\app.exe";
constexpr const wchar_t* kHashOfAbc =
    L"ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
constexpr const wchar_t* kOtherHash =
    L"0000000000000000000000000000000000000000000000000000000000000000";

struct Compiled {
  Config config;  // with what was learnt
  FilterPlan plan;
  Texts kept_blocked;
};

Compiled Compile(std::vector<AppEntry> apps) {
  Compiled result;
  result.config.apps = std::move(apps);
  GuardLock lock(ConfigGuard);
  // What an earlier compile left must not show.
  result.plan.entries.resize(1);
  result.plan.warnings = {L"old"};
  result.plan.fingerprint = L"old";
  result.plan.config_changed = true;
  CompileApps(result.config, result.plan);
  result.kept_blocked = KeptBlockedPaths();
  return result;
}

AppEntry App(const std::wstring& path) {
  AppEntry app;
  app.path = path;
  app.inbound = true;
  return app;
}

// A new file, signed if a signer is given.
void WriteFile(const std::wstring& path, const wchar_t* signer,
               const std::string& content = "abc") {
  TheMachine().files.Remove(path);
  TheMachine().files.Write(path, content);
  if (*signer) TheMachine().files.Sign(path, signer);
}

// What comes of an application that is permitted as it is, by its hash, blocked, or held back.
PlanEntry Plain(const std::wstring& path) {
  PlanEntry entry;
  entry.path = path;
  entry.allow = entry.inbound = true;
  return entry;
}

PlanEntry ByHash(const std::wstring& path) {
  PlanEntry entry = Plain(path);
  entry.hash_pinned = true;
  entry.usn = FileUsn(path);
  return entry;
}

PlanEntry Blocked(const std::wstring& path) {
  PlanEntry entry = Plain(path);
  entry.allow = false;
  return entry;
}

PlanEntry Held(const std::wstring& path) {
  PlanEntry entry;
  entry.path = path;
  entry.integrity_block = true;
  return entry;
}

// A service that runs this command line.
void AddService(const wchar_t* name, const wchar_t* command_line, std::uint32_t sid_type) {
  TheMachine().services.Add(
      {.name = name, .display_name = L"", .binary_path = command_line, .sid_type = sid_type});
}

TEST(FileGate, DecidesBySignerOrHash) {
  const wchar_t* abc = kHashOfAbc;
  const wchar_t* other = kOtherHash;
  const wchar_t* changed = L" has changed since it was allowed (unsigned program)";
  const wchar_t* resigned = L" is no longer signed by \"Con\" (signed by \"con\")";
  const wchar_t* unsigned_now = L" is no longer signed by \"Con\" (unsigned)";
  struct Row {
    const char* claim;
    const wchar_t* signer;  // recorded, as the hash; empty for none
    const wchar_t* hash;
    const wchar_t* file_signer;  // null when there is no file
    PlanEntry (*entry)(const std::wstring& path);
    const wchar_t* warning;  // behind the path; empty for none
    const wchar_t* signer_after;
    const wchar_t* hash_after;
  };
  const Row rows[] = {
      {"an unsigned file is learnt at first sight", L"", L"", L"", ByHash, L"", L"", abc},
      {"a listed hash permits", L"", abc, L"", ByHash, L"", L"", abc},
      {"another hash holds back", L"", other, L"", Held, changed, L"", other},
      {"a signer is learnt at first sight", L"", L"", L"Con", Plain, L"", L"Con", L""},
      {"a pinned file stays pinned when signed", L"", abc, L"Con", ByHash, L"", L"", abc},
      {"a signature does not stand for a hash", L"", other, L"Con", Held, changed, L"", other},
      {"the recorded signer permits", L"Con", other, L"Con", Plain, L"", L"Con", other},
      {"signers are compared exactly", L"Con", L"", L"con", Held, resigned, L"Con", L""},
      {"a hash does not stand for a signer", L"Con", abc, L"", Held, unsigned_now, L"Con", abc},
      {"a blocked app is never held back", L"Con", other, L"con", Blocked, L"", L"Con", other},
      {"but its signer is learnt", L"", other, L"Con", Blocked, L"", L"Con", other},
      {"a missing file keeps its permission", L"", L"", nullptr, Plain, L"", L"", L""},
      {"a missing file with a signer too", L"Con", L"", nullptr, Plain, L"", L"Con", L""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.claim);
    const std::wstring path = L"C:\\Apps\\" + std::to_wstring(&row - rows) + L".exe";
    if (row.file_signer) WriteFile(path, row.file_signer);
    AppEntry app = App(path);
    app.allow = row.entry != Blocked;
    app.signer = row.signer;
    if (*row.hash) app.sha256 = {row.hash};
    const Compiled result = Compile({app});
    EXPECT_EQ(result.plan.entries, std::vector<PlanEntry>{row.entry(path)});
    const bool held = *row.warning != 0;
    EXPECT_EQ(result.plan.warnings, held ? Texts{L"Kept blocked: " + path + row.warning} : Texts{});
    EXPECT_EQ(result.kept_blocked, held ? Texts{path} : Texts{});
    const AppEntry& after = result.config.apps[0];
    EXPECT_EQ(after.signer, row.signer_after);
    EXPECT_EQ(after.sha256, *row.hash_after ? Texts{row.hash_after} : Texts{});
    EXPECT_EQ(result.plan.config_changed, !(after == app));
  }
}

TEST(FileGate, UnreadableFileGetsNoEntry) {
  WriteFile(kFile, L"");
  TheMachine().faults.FailAlways("ReadFileBytes", platform::kAccessDenied);
  std::vector<AppEntry> apps(3, App(kFile));
  apps[1].sha256 = {kHashOfAbc};
  apps[2].signer = L"Contoso";
  const Compiled result = Compile(apps);
  EXPECT_EQ(result.plan.entries, std::vector<PlanEntry>{Held(kFile)}) << "for the signer";
  EXPECT_EQ(result.plan.warnings.size(), 1u);
  EXPECT_EQ(result.config.apps, apps);
}

TEST(FileGate, PatternIsLearntWholeAtFirstSight) {
  auto& files = TheMachine().files;
  const std::wstring paths[] = {L"C:\\Apps\\v1\\a.exe", L"C:\\Apps\\v2\\a.exe",
                                L"C:\\Apps\\v3\\a.exe"};
  for (const std::wstring& path : paths) WriteFile(path, L"", Utf8FromWide(path));
  const Compiled first = Compile({App(L"C:\\Apps\\*\\a.exe")});
  EXPECT_EQ(first.config.apps[0].sha256.size(), 3u);
  EXPECT_TRUE(first.plan.config_changed);

  files.Write(paths[1], "changed");
  files.Write(paths[2], "changed too");
  const Compiled second = Compile(first.config.apps);
  EXPECT_EQ(second.plan.entries,
            (std::vector<PlanEntry>{ByHash(paths[0]), Held(paths[1]), Held(paths[2])}));
  EXPECT_EQ(second.kept_blocked, Texts{L"C:\\Apps\\*\\a.exe"}) << "the app, once";
  EXPECT_FALSE(second.plan.config_changed);
}

TEST(FileGate, ProductIsLearntFromTheRecordedSignersFile) {
  for (const wchar_t* signer : {L"Contoso", L"Fabrikam"}) {
    const std::wstring path = L"C:\\Apps\\" + std::wstring(signer) + L".exe";
    WriteFile(path, signer);
    TheMachine().files.SetVersion(path, L"\\VarFileInfo\\Translation",
                                  std::vector<std::uint8_t>{0x09, 0x04, 0xb0, 0x04});
    TheMachine().files.SetVersion(path, L"\\StringFileInfo\\040904b0\\ProductName", L"Browser");
    AppEntry app = App(path);
    app.signer = L"Contoso";
    EXPECT_EQ(Compile({app}).config.apps[0].product, signer == app.signer ? L"browser|" : L"");
    app.product = L"recorded|";
    EXPECT_EQ(Compile({app}).config.apps[0].product, L"recorded|");
  }
}

TEST(ServiceGate, FollowsTheSignerOfTheExecutable) {
  const wchar_t* program = L"C:\\Apps\\svc.exe";
  AddService(L"Contoso", L"C:\\Apps\\svc.exe -k", 1);
  const std::wstring changed =
      L"Kept blocked: service contoso - C:\\Apps\\svc.exe is no longer "
      L"signed by \"Fabrikam\"";
  const struct {
    const wchar_t* recorded;
    const wchar_t* file_signer;
    bool allow, held;
    const wchar_t* signer_after;
  } rows[] = {
      {L"", L"Contoso", true, false, L"Contoso"},
      {L"", L"", true, false, L""},
      {L"Fabrikam", L"Contoso", true, true, L"Fabrikam"},
      {L"Fabrikam", nullptr, true, false, L"Fabrikam"},
      {L"Fabrikam", L"Contoso", false, false, L"Fabrikam"},
  };
  for (const auto& row : rows) {
    TheMachine().files.Remove(program);
    if (row.file_signer) WriteFile(program, row.file_signer, std::to_string(&row - rows));
    AppEntry app = App(L"Service: contoso ");
    app.signer = row.recorded;
    app.allow = row.allow;
    const Compiled result = Compile({app});
    PlanEntry entry = row.held ? Held(program) : Plain(program);
    entry.allow = row.allow && !row.held;
    entry.service_sid = ResolveServiceSid(L"Contoso");
    entry.label = L"service contoso";
    EXPECT_EQ(result.plan.entries, std::vector<PlanEntry>{entry});
    EXPECT_EQ(result.plan.warnings, row.held ? Texts{changed} : Texts{});
    EXPECT_EQ(result.kept_blocked, row.held ? Texts{app.path} : Texts{});
    EXPECT_EQ(result.config.apps[0].signer, row.signer_after);
    EXPECT_EQ(result.plan.config_changed, result.config.apps[0].signer != app.signer);
  }
}

TEST(ServiceGate, ServiceThatCannotBeFilteredIsInactive) {
  AddService(L"NoSid", L"C:\\x.exe", 0);
  AddService(L"NoPath", L"", 1);
  const std::wstring why =
      L" has no service SID, so it cannot be filtered on its own (rule inactive)";
  const Compiled result =
      Compile({App(L"service:NoSid"), App(L"service:NoPath"), App(L"service:Gone")});
  EXPECT_TRUE(result.plan.entries.empty());
  EXPECT_EQ(result.plan.fingerprint, L"svc-nosid:NoSid;svc-nosid:NoPath;svc-missing:Gone;");
  EXPECT_EQ(result.plan.warnings, (Texts{L"Service \"NoSid\"" + why, L"Service \"NoPath\"" + why,
                                         L"Service not found (rule inactive): Gone"}));
}

TEST(PackageGate, PackageIsKnownByItsSid) {
  const Compiled result = Compile({App(L"package:Contoso.App_8wekyb3d8bbwe")});
  PlanEntry expected = Plain(L"package:Contoso.App_8wekyb3d8bbwe");
  ASSERT_EQ(platform::SidOfPackage(L"Contoso.App_8wekyb3d8bbwe", expected.package_sid), 0u);
  expected.label = L"app package Contoso.App_8wekyb3d8bbwe";
  EXPECT_EQ(result.plan.entries, std::vector<PlanEntry>{expected});
  EXPECT_EQ(result.plan.fingerprint,
            L"pkg:Contoso.App_8wekyb3d8bbwe|" + expected.package_sid + L";");

  TheMachine().faults.FailAlways("SidOfPackage", platform::kInvalidParameter);
  const Compiled unknown = Compile({App(L"package:bad")});
  EXPECT_TRUE(unknown.plan.entries.empty());
  EXPECT_EQ(unknown.plan.fingerprint, L"pkg:bad|;");
  EXPECT_EQ(unknown.plan.warnings, Texts{L"App package not recognised (rule inactive): bad"});
}

TEST(Fingerprint, HoldsTheIdentityOfEachItemInOrder) {
  WriteFile(kFile, L"Contoso");
  WriteFile(L"C:\\Apps\\plain.exe", L"");
  TheMachine().files.Write(L"C:\\Windows\\System32\\ntoskrnl.exe", "abc");  // unsigned
  const std::vector<AppEntry> apps = {
      App(L"C:\\Apps\\plain.exe"), App(kFile),     App(L"C:\\Apps\\none.exe"),
      App(L"C:\\None\\*.exe"),     App(L"SYSTEM"), App(L"service:Dnscache")};
  const Compiled result = Compile(apps);
  const std::wstring abc = kHashOfAbc;
  EXPECT_EQ(result.plan.fingerprint,
            L"C:\\Apps\\plain.exe|1||" + abc + L";C:\\Apps\\app.exe|1|Contoso|" + abc +
                L";C:\\Apps\\none.exe|0||;none:C:\\None\\*.exe;SYSTEM|1||" + abc +
                L";svc:Dnscache|C:\\Windows\\System32\\svchost.exe|Microsoft Windows;");
  ASSERT_EQ(result.plan.entries.size(), 5u);
  EXPECT_EQ(result.plan.entries[3], Plain(L"SYSTEM")) << "the kernel needs no hash";
  EXPECT_EQ(result.config.apps[4], apps[4]);
  EXPECT_TRUE(result.plan.warnings.empty());
}

}  // namespace
}  // namespace kestrelon
