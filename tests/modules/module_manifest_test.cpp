#include "modules/module_manifest.h"

#include <gtest/gtest.h>

namespace kestrelon {
namespace {

// A manifest that is right but for what these members put in the place of others.
std::string Manifest(const std::string& members) {
  return R"({"id": "a", "name": "n", "version": "1", "publisher": "p")" + members + "}";
}

// The same with one network entry that is right but for these members.
std::string ManifestOf(const std::string& members) {
  return Manifest(
      R"(, "network": [{"dir": "in", "protocol": "udp", "port": 9, "scope": "lan", "why": "w")" +
      members + "}]");
}

// The sentence of a refusal; empty when the text is accepted.
std::wstring Problem(const std::string& text, ModuleManifest& manifest) {
  const ModuleManifest before = manifest;
  std::wstring error;
  if (ParseModuleManifest(text, manifest, &error)) return {};
  EXPECT_EQ(manifest, before);
  return error;
}

// What stands in a manifest, and what is told of it.
using Cases = std::vector<std::pair<std::string, std::wstring>>;

// Has more and more of the faults, from the last on: each new one is told before the others.
void ExpectInOrder(const Cases& faults, std::string (*make)(const std::string&)) {
  std::string members;
  ModuleManifest manifest;
  for (auto fault = faults.rbegin(); fault != faults.rend(); ++fault) {
    members += ", " + fault->first;
    EXPECT_EQ(Problem(make(members), manifest), fault->second);
  }
}

constexpr const wchar_t* kNoPort = L"manifest: invalid port";

TEST(ModuleManifest, OfSeveralFaultsTheFirstIsTold) {
  ExpectInOrder(
      {{R"("id": "A")", L"manifest: invalid or missing 'id'"},
       {R"("name": null)", L"manifest: missing 'name'"},
       {R"("version": "\t")", L"manifest: missing 'version'"},
       {R"("publisher": [])", L"manifest: missing 'publisher'"},
       {R"("run": 5)", L"manifest: 'min_kestrelon', 'run' and 'description' must be strings"},
       {R"("run": "System")", L"manifest: unknown 'run' value: System"},
       {R"("permissions": {})", L"manifest: 'permissions' must be an array"},
       {R"("network": [5])", L"manifest: a network entry is not an object"},
       {R"("downloads": {})", L"manifest: 'downloads' must be an array"}},
      &Manifest);
  ExpectInOrder({{R"("dir": 1)", L"manifest: unknown network direction ''"},
                 {R"("protocol": "TCP")", L"manifest: unknown protocol 'TCP'"},
                 {R"("port": null)", kNoPort},
                 {R"("scope": " lan")", L"manifest: unknown network scope ' lan'"},
                 {R"("why": " \r\n")", L"manifest: a network entry must say why it is needed"}},
                &ManifestOf);
}

TEST(ModuleManifest, IsRefusedForEachValueOutsideItsBounds) {
  const std::string longest = Manifest(std::string(kLongestManifest - Manifest("").size(), ' '));
  const Cases cases = {
      {longest, L""},
      {longest + ' ', L"manifest is too large"},
      {"[]", L"manifest is not valid JSON: "},
      {"", L"manifest is not valid JSON: unexpected end of input"},
      {Manifest(R"(, "id": ")" + std::string(40, 'z') + '"'), L""},
      {Manifest(R"(, "id": ")" + std::string(41, 'z') + '"'), L"manifest: invalid or missing 'id'"},
      {Manifest(R"(, "permissions": [1])"), L"manifest: unknown permission ''"},
      {Manifest(R"(, "network": [0,0,0,0,0,0,0,0,0])"), L"manifest: too many network entries"},
      {Manifest(R"(, "downloads": [{}])"), L"manifest: modules may not download anything"},
      {ManifestOf(R"(, "port": 0)"), kNoPort},
      {ManifestOf(R"(, "port": 65535)"), L""},
      {ManifestOf(R"(, "port": 65536)"), kNoPort},
      {ManifestOf(R"(, "port": 443.5)"), kNoPort}};
  ModuleManifest manifest;
  for (const auto& [text, problem] : cases) EXPECT_EQ(Problem(text, manifest), problem) << text;
}

TEST(ModuleManifest, IsKeptWithoutBlanksAroundItsTextsAndGrantedInOneOrder) {
  ModuleManifest manifest;
  const std::string text = Manifest(R"(, "id": " lan-1 ", "name": "\tN\u00e4me\r\n", "run": " ",
      "min_kestrelon": "9", "permissions": ["notify", "notify", "events.read"], "more": 1,
      "network": [{"dir": "out", "protocol": "udp", "port": 9, "scope": "lan", "why": " w "},
                  {"dir": "both", "protocol": "tcp", "port": 4.43e2, "scope": "lan", "why": "v"}],
      "description": null, "downloads": [])");
  EXPECT_EQ(Problem(text, manifest), L"");
  ModuleManifest expected = {L"lan-1", L"N\u00e4me", L"1", L"p", L"9", L"user_session", {}, {}, {}};
  expected.permissions = {L"events.read", L"notify"};
  expected.network = {{0, 17, 9, L"lan", L"w"}, {2, 6, 443, L"lan", L"v"}};
  EXPECT_EQ(manifest, expected);
  const wchar_t* const grant = L"perm:events.read|perm:notify|net:both/6/443/lan|net:out/17/9/lan";
  EXPECT_EQ(ModuleGrantText(manifest), grant);
  std::swap(manifest.network[0], manifest.network[1]);
  EXPECT_EQ(ModuleGrantText(manifest), grant);
  EXPECT_EQ(ModuleGrantText({}), L"");
}

}  // namespace
}  // namespace kestrelon
