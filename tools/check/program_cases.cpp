// What the service knows of programs: who signed them, and that a listed one is still the same.
#include "base/text.h"
#include "platform/paths.h"
#include "tests/contract/scratch.h"
#include "tools/check/cases.h"
#include "tools/check/system_facts.h"

namespace kestrelon::check {
namespace {

using Programs = InstalledService;

Json FileInfo(const std::wstring& path) {
  Json request;
  request["cmd"] = "file_info";
  request["path"] = path;
  return Ask(request.Dump(false));
}

std::string ListOf(const std::wstring& program) {
  Json config;
  config["presets_version"] = 9;
  Json app;
  app["path"] = program;
  config["apps"].Append(app);
  return config.Dump(false);
}

TEST_F(Programs, OfWindowsAreSignedByACatalog) {
  std::wstring program;
  ASSERT_EQ(platform::ExpandEnvironment(L"%SystemRoot%\\System32\\svchost.exe", program),
            platform::kSuccess);
  const Json info = FileInfo(program);
  EXPECT_TRUE(info.Get("exists").boolean());
  EXPECT_TRUE(info.Get("signed").boolean());
  EXPECT_TRUE(info.Get("signer").text().starts_with("Microsoft Windows")) << info.Dump(false);
}

TEST_F(Programs, WithoutASignatureAreToldSo) {
  const std::wstring program = contract::FreshDirectory() + L"\\tool.exe";
  contract::WriteWhole(program, "a tool");
  EXPECT_TRUE(FileInfo(program).Get("exists").boolean());
  EXPECT_FALSE(FileInfo(program).Get("signed").boolean());
  EXPECT_FALSE(FileInfo(program + L".none").Get("exists").boolean());
}

TEST_F(Programs, ThatAreReplacedAreHeldBackUntilTheyAreAsBefore) {
  const std::wstring program = contract::FreshDirectory() + L"\\tool.exe";
  const auto held_back = [&] {
    const Json changed = Ask(kStatus).Get("changed_apps");
    return changed.size() == 1 && changed.At(0).StringOr(L"") == program;
  };
  contract::WriteWhole(program, "a tool");
  ASSERT_TRUE(SetConfig(ListOf(program)).Get("ok").boolean());
  EXPECT_FALSE(held_back());
  contract::WriteWhole(program, "another");
  EXPECT_TRUE(Within(20, held_back)) << Ask(kStatus).Dump(true);
  contract::WriteWhole(program, "a tool");
  EXPECT_TRUE(Within(20, [&] { return !held_back(); }));
}

}  // namespace
}  // namespace kestrelon::check
