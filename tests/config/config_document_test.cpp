#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "base/text.h"
#include "config/config_file.h"

namespace kestrelon {
namespace {

// A text of the tests, in which single quotes stand for double ones, as JSON.
std::string Quoted(std::string text) {
  std::replace(text.begin(), text.end(), '\'', '"');
  return text;
}

Json Document(const std::string& quoted) {
  const std::string text = Quoted(quoted);
  Json document;
  std::string error;
  EXPECT_TRUE(Json::Parse(text, document, &error)) << text << ": " << error;
  return document;
}

Config Accepted(const std::string& text) {
  Config config;
  std::wstring error;
  EXPECT_TRUE(ConfigFromJson(Document(text), config, error)) << text << L": " << error;
  return config;
}

void ExpectRefused(const Json& document, const std::wstring& message) {
  Config config;
  config.custom_blocklist = L"before";
  std::wstring error;
  EXPECT_FALSE(ConfigFromJson(document, config, error)) << document.Dump(false);
  EXPECT_EQ(error, message) << document.Dump(false);
  EXPECT_EQ(config.custom_blocklist, L"before");
}

std::string Repeated(const std::string& element, std::size_t times) {
  std::string text;
  for (std::size_t i = 0; i < times; ++i) text += (i == 0 ? "" : ",") + element;
  return text;
}

const std::string kHash(64, 'a');

TEST(ConfigFromJson, AnEmptyDocumentTakesTheDefaults) {
  EXPECT_EQ(Accepted("{}"), Config{});
  EXPECT_EQ(Accepted("{'enabled':null,'log_allowed':null,'blocklists':null,'apps':null,"
                     "'custom_blocklist':null,'presets_version':null,'rules':null,'modules':null,"
                     "'log_allowed_apps':null,'version':'any','unknown':[{}]}"),
            Config{});
}

TEST(ConfigFromJson, EveryKeyIsTaken) {
  const Config config = Accepted(
      "{'enabled':false,'allow_loopback':false,'boot_time_filter':false,'notifications':false,"
      "'notify_system':false,'log_allowed':true,'log_allowed_apps':[' C:\\\\a.exe\\t','',' '],"
      "'blocklists':['drop','\\r\\n','x'],'blocklists_auto_update':false,'updates_auto_check':"
      "false,"
      "'custom_blocklist':' 1.2.3.4, 10.0.0.0/8 ','presets_version':9.0,"
      "'apps':[{'path':' C:\\\\b.exe ','action':'block','inbound':true,'added':5,'signer':' S ',"
      "'product':'P','trust_updates':false,'expires':7e0,'until_reboot':true,'sha256':[' " +
      std::string(32, 'A') + std::string(32, '9') +
      " ']},{'path':'x'}],"
      "'rules':[{'name':' n ','enabled':false,'action':'allow','direction':'both','protocol':255,"
      "'remote':'$dns','remote_ports':'53','local_ports':'1-2','app':'System','user':'S-1-5-18'},"
      "{'action':'block'},{'action':' allow ','direction':'in','protocol':0}],"
      "'modules':[{'id':'m','enabled':true,'version':'1','grant':'g','approved':6},{'id':'k'}]}");
  AppEntry app{L"C:\\b.exe", false, true, 5, L"S", L"P", 7, true, false, {}};
  app.sha256 = {std::wstring(32, L'a') + std::wstring(32, L'9')};
  AppEntry plain_app;
  plain_app.path = L"x";
  Config expected;
  expected.enabled = expected.allow_loopback = expected.boot_time_filter = false;
  expected.notifications = expected.notify_system = false;
  expected.log_allowed = true;
  expected.log_allowed_apps = {L"C:\\a.exe"};
  expected.blocklists = {L"drop", L"x"};
  expected.blocklists_auto_update = expected.updates_auto_check = false;
  expected.custom_blocklist = L"1.2.3.4, 10.0.0.0/8";
  expected.presets_version = 9;
  expected.apps = {app, plain_app};
  expected.rules = {
      {L"n", false, true, kDirectionBoth, 255, L"$dns", L"53", L"1-2", L"System", L"S-1-5-18"},
      {L"Rule 2", true, false, kDirectionOut, 0, L"", L"", L"", L"", L""},
      {L"Rule 3", true, true, kDirectionIn, 0, L"", L"", L"", L"", L""}};
  expected.modules = {{L"m", true, L"1", L"g", 6}, {L"k", false, L"", L"", 0}};
  EXPECT_EQ(config, expected);
}

TEST(ConfigFromJson, TheFirstKeyOfAnotherTypeIsTold) {
  struct Section {
    std::string before;  // the document up to the keys, and behind them
    std::string behind;
    std::wstring subject;
    std::wstring keys;  // in the order in which they are looked at, each behind its type's mark
  };
  const Section sections[] = {
      {"{", "}", L"",
       L"?enabled ?allow_loopback ?boot_time_filter ?notifications ?notify_system ?log_allowed "
       L"[log_allowed_apps [blocklists ?blocklists_auto_update ?updates_auto_check "
       L"$custom_blocklist #presets_version [apps [rules [modules"},
      {"{'apps':[{'path':'a',", "}]}", L"application a: ",
       L"$action ?inbound #added $signer $product ?trust_updates #expires ?until_reboot [sha256"},
      {"{'rules':[{", "}]}", L"rule #1: ", L"$name"},
      {"{'rules':[{'name':'x',", "}]}", L"rule 'x': ",
       L"?enabled $action $direction #protocol $remote $remote_ports $local_ports $app $user"},
      {"{'modules':[{", "}]}", L"module #1: ", L"$id ?enabled $version $grant #approved"},
  };
  const std::map<wchar_t, const wchar_t*> types = {{L'?', L"true or false"},
                                                   {L'$', L"a string"},
                                                   {L'#', L"a whole number"},
                                                   {L'[', L"an array"}};
  for (const Section& section : sections) {
    std::vector<std::wstring_view> keys = SplitAt(section.keys, L" ");
    std::string wrong;
    for (; !keys.empty(); keys.pop_back()) {
      const std::wstring key(keys.back().substr(1));
      const char* value = keys.back()[0] == L'#' ? "'5'" : "1";
      wrong = "'" + Utf8FromWide(key) + "':" + value + (wrong.empty() ? "" : ",") + wrong;
      ExpectRefused(Document(section.before + wrong + section.behind),
                    section.subject + L"'" + key + L"' must be " + types.at(keys.back()[0]));
    }
  }
}

TEST(ConfigFromJson, TheFirstFaultIsToldInOneSentence) {
  const std::wstring no_path = L"application #1 has no path";
  const std::wstring bad_hash = L"application a: invalid 'sha256' value";
  const std::pair<std::string, std::wstring> whole[] = {
      {"[]", L"configuration is not a JSON object"},
      {"{'apps':[{'path':'a'},[]]}", L"application #2 is not an object"},
      {"{'rules':[{'action':'allow'},{'action':'allow'},{'action':'a'}]}",
       L"rule 'Rule 3': invalid rule action: a"},
      {"{'modules':[" + Repeated("1", 65) + "]}", L"too many modules"},
  };
  for (const auto& [text, error] : whole) ExpectRefused(Document(text), error);
  const std::pair<std::string, std::wstring> apps[] = {
      {"", no_path},
      {"'path':5", no_path},
      {"'path':'a','action':'Allow'", L"invalid application action: Allow"},
      {"'path':'a','action':null", L"invalid application action: "},
      {"'path':'a','action':'x','inbound':1", L"invalid application action: x"},
      {"'path':'a','added':1.5", L"application a: 'added' must be a whole number"},
      {"'path':'a','sha256':[5]", bad_hash},
      {"'path':'a','sha256':['" + kHash + "','" + kHash.substr(1) + "']", bad_hash},
      {"'path':'a','sha256':['" + kHash.substr(1) + "g']", bad_hash},
      {"'path':'a','sha256':[" + Repeated("1", 4097) + "]",
       L"application a: too many 'sha256' values"},
  };
  for (const auto& [text, error] : apps) {
    ExpectRefused(Document("{'apps':[{" + text + "}]}"), error);
  }
  const std::pair<std::string, std::wstring> rules[] = {
      {",'action':null", L"invalid rule action: "},
      {",'action':'Block'", L"invalid rule action: Block"},
      {",'action':'allow','direction':'IN','protocol':256", L"invalid rule direction: IN"},
      {",'action':'allow','protocol':256,'remote':'y'", L"invalid protocol number"},
      {",'action':'allow','protocol':-1", L"invalid protocol number"},
      {",'action':'allow','remote':'y','remote_ports':'y'", L"invalid IP address: y"},
      {",'action':'allow','remote_ports':'y','local_ports':'z'", L"invalid port or port range: y"},
  };
  for (const auto& [text, error] : rules) {
    ExpectRefused(Document("{'rules':[{'name':'x'" + text + "}]}"), L"rule 'x': " + error);
  }
}

TEST(ConfigFromJson, LimitsAreReachedButNotPassed) {
  const std::string app = "{'path':'a','sha256':[" + Repeated("'" + kHash + "'", 4096) + "]}";
  EXPECT_EQ(Accepted("{'apps':[" + app + "]}").apps[0].sha256.size(), 4096u);
  std::string modules = "{'id':'0'}";
  for (int i = 1; i < 64; ++i) modules += ",{'id':'" + std::to_string(i) + "'}";
  EXPECT_EQ(Accepted("{'modules':[" + modules + "]}").modules.size(), 64u);
}

TEST(ConfigText, HasOneFixedForm) {
  Config config;
  config.blocklists = {L"drop"};
  config.presets_version = 9;
  config.apps.resize(2);
  config.apps[0].path = L"C:\\Tools\\tool.exe";
  config.apps[0].added = 134050000000000000;
  config.apps[0].expires = 134060000000000000;
  config.apps[0].sha256 = {WideFromUtf8(kHash)};
  config.apps[1].path = L"\x00E9";
  config.apps[1].allow = false;
  config.apps[1].until_reboot = true;
  config.rules = {{L"r", true, true, 7, 0, L"$dns", L"53", L"", L"a", L""},
                  {L"s", true, false, kDirectionIn, 6, L"", L"", L"", L"", L"S-1-5-4"}};
  const std::string expected =
      "{'version':1,'enabled':true,'allow_loopback':true,'boot_time_filter':true,"
      "'notifications':true,'notify_system':true,'log_allowed':false,'log_allowed_apps':[],"
      "'blocklists':['drop'],'blocklists_auto_update':true,'updates_auto_check':true,"
      "'custom_blocklist':'','presets_version':9,'apps':["
      "{'path':'C:\\\\Tools\\\\tool.exe','action':'allow','inbound':false,"
      "'added':134050000000000000,'signer':'','product':'','expires':134060000000000000,"
      "'trust_updates':true,'sha256':['" +
      kHash +
      "']},"
      "{'path':'\xC3\xA9','action':'block','inbound':false,'added':0,'signer':'','product':'',"
      "'until_reboot':true,'trust_updates':true}],'rules':["
      "{'name':'r','enabled':true,'action':'allow','direction':'out','protocol':0,"
      "'remote':'$dns','remote_ports':'53','local_ports':'','app':'a'},"
      "{'name':'s','enabled':true,'action':'block','direction':'in','protocol':6,"
      "'remote':'','remote_ports':'','local_ports':'','app':'','user':'S-1-5-4'}]";
  EXPECT_EQ(ConfigToJson(config).Dump(false), Quoted(expected + "}"));
  config.modules = {{L"example-module", true, L"1.0.0", L"", 134050000000000000}};
  EXPECT_EQ(ConfigToJson(config).Dump(false),
            Quoted(expected + ",'modules':[{'id':'example-module','enabled':true,"
                              "'version':'1.0.0','grant':'','approved':134050000000000000}]}"));
  const std::string text = ConfigText(config);
  EXPECT_TRUE(text.starts_with("{\n  \"version\": 1,\n") && text.ends_with("\n  ]\n}\n")) << text;
}

}  // namespace
}  // namespace kestrelon
