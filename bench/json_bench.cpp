// What reading and writing a large configuration costs beside two known libraries, which make
// documents of the same text and check nothing.
#include <rapidjson/document.h>

#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "bench/large_config.h"
#include "bench/measure.h"
#include "config/config_file.h"
#include "config/json.h"

namespace kestrelon {
namespace {

constexpr const char* kNlohmannParse = "nlohmann-json's parse";

void Run() {
  const ConfigSize size;
  const Config config = ConfigOfApps(size);
  const std::string text = ConfigText(config);
  const Json document = ConfigToJson(config);
  const nlohmann::json peer = nlohmann::json::parse(text);

  const std::vector<double> taken = InTurn({
      [&] {
        Json value;
        Require(Json::Parse(text, value));
      },
      [&] {
        Config read;
        std::wstring error;
        Require(ConfigFromJson(document, read, error));
      },
      [&] {
        Json value;
        Config read;
        std::wstring error;
        Require(Json::Parse(text, value) && ConfigFromJson(value, read, error));
        Require(read.rules == config.rules);
      },
      [&] { Require(ConfigToJson(config).Dump(true).size() + 1 == text.size()); },
      [&] { Require(document.Dump(true).size() + 1 == text.size()); },
      [&] { Require(nlohmann::json::parse(text).is_object()); },
      [&] { Require(peer.dump(2).size() + 1 == text.size()); },
      [&] {
        rapidjson::Document value;
        Require(!value.Parse(text.data(), text.size()).HasParseError());
      },
  });
  const double nlohmann_parse = taken[5];
  const double nlohmann_dump = taken[6];
  const double rapid_parse = taken[7];

  char paragraph[200];
  std::snprintf(paragraph, sizeof paragraph,
                "A file of %d rules and %d applications, %.2f MB, beside two known libraries.",
                size.rules, size.apps, static_cast<double>(text.size()) / 1e6);
  PrintSection("Configuration", paragraph);
  Print({"parsing", taken[0], kNlohmannParse, nlohmann_parse, 0.5});
  Print({"parsing", taken[0], "RapidJSON's DOM", rapid_parse, 2});
  Print({"document to checked configuration", taken[1], kNlohmannParse, nlohmann_parse, 1});
  Print({"text to checked configuration", taken[2], kNlohmannParse, nlohmann_parse});
  Print({"document to indented text", taken[4], "nlohmann-json's dump", nlohmann_dump, 1 / 3.0});
  Print({"configuration to indented text", taken[3], "nlohmann-json's dump", nlohmann_dump});
}

}  // namespace
}  // namespace kestrelon

int main() {
  kestrelon::Run();
}
