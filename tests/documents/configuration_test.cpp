// What the document on the configuration says of keys, examples and refusals is what the reader
// does.
#include <gtest/gtest.h>

#include "base/text.h"
#include "config/config_file.h"
#include "tests/documents/document.h"

namespace kestrelon::test {
namespace {

const std::string kDocument = "docs/configuration.md";

Json Parsed(const std::string& text) {
  Json value;
  std::string error;
  EXPECT_TRUE(Json::Parse(text, value, &error)) << error << ": " << text;
  return value;
}

// An example as a whole configuration: a part names what it is a part of behind "json".
Json Wrapped(const Block& block) {
  Json value = Parsed(block.text);
  if (block.kind == "json") return value;
  Json whole;
  whole[block.kind.substr(5) + "s"].Append(std::move(value));
  return whole;
}

// That everything in the one stands in the other as well.
void ExpectWithin(const Json& part, const Json& whole) {
  if (!part.IsObject() && !part.IsArray()) {
    EXPECT_EQ(part.Dump(false), whole.Dump(false));
  }
  for (std::size_t i = 0; part.IsArray() && i < part.size(); ++i) {
    ExpectWithin(part.At(i), whole.At(i));
  }
  for (std::size_t i = 0; part.IsObject() && i < part.size(); ++i) {
    ExpectWithin(part.ValueAt(i), whole.Get(part.KeyAt(i)));
  }
}

TEST(ConfigurationDocument, ItsExamplesLoadAndAreWrittenBackAsTheyStand) {
  std::set<std::string> kinds;
  for (const Block& block : BlocksOf(ReadText(kDocument))) {
    if (!block.kind.starts_with("json")) continue;
    kinds.insert(block.kind);
    const Json document = Wrapped(block);
    Config config;
    std::wstring error;
    EXPECT_TRUE(ConfigFromJson(document, config, error)) << Utf8FromWide(error) << block.text;
    ExpectWithin(document, ConfigToJson(config));
  }
  EXPECT_EQ(kinds, (std::set<std::string>{"json", "json app", "json rule", "json module"}));
}

std::set<std::string> KeysOf(const Json& object) {
  std::set<std::string> keys;
  for (std::size_t i = 0; i < object.size(); ++i) keys.emplace(object.KeyAt(i));
  return keys;
}

TEST(ConfigurationDocument, ItsTablesHaveTheKeysThatAreWrittenAndNoOthers) {
  Config config;
  config.apps.resize(1);
  config.apps[0].expires = 1;
  config.apps[0].until_reboot = true;
  config.apps[0].sha256.resize(1);
  config.rules.resize(1);
  config.rules[0].user = L"u";
  config.modules.resize(1);
  const Json written = ConfigToJson(config);
  const std::string document = ReadText(kDocument);
  const std::pair<const char*, const Json&> tables[] = {
      {"The document", written},
      {"An application", written.Get("apps").At(0)},
      {"A rule", written.Get("rules").At(0)},
      {"A module", written.Get("modules").At(0)}};
  for (const auto& [heading, object] : tables) {
    const std::string section = SectionOf(document, heading);
    EXPECT_EQ(FirstCells(section.substr(0, section.find("\n\n", section.find("|---")))),
              KeysOf(object))
        << heading;
  }
}

TEST(ConfigurationDocument, WhatItCallsRefusedIsRefusedByItsSentence) {
  const std::string section = SectionOf(ReadText(kDocument), "What is refused");
  const std::set<std::string> rows = Found("\n(\\| `\\{.*)", section);
  EXPECT_GT(rows.size(), 20U);
  for (const std::string& row : rows) {
    const std::size_t middle = row.find("` | ");
    Config config;
    std::wstring error;
    EXPECT_FALSE(ConfigFromJson(Parsed(row.substr(3, middle - 3)), config, error)) << row;
    EXPECT_EQ("| `" + row.substr(3, middle - 3) + "` | " + Utf8FromWide(error) + " |", row);
  }
}

}  // namespace
}  // namespace kestrelon::test
