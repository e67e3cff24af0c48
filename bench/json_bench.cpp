// What reading and writing a large configuration costs beside two known libraries.
//
// All are measured in the same run on the same text, round by round in turn, and only the ratios of
// the medians are printed: times of a machine under other load say nothing by themselves. A ratio
// below what has been promised is marked as missed.
#include <rapidjson/document.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "base/format.h"
#include "config/config_file.h"
#include "config/json.h"

namespace kestrelon {
namespace {

constexpr std::size_t kApps = 2000;
constexpr std::size_t kRules = 5000;
constexpr int kRounds = 25;

Config LargeConfig() {
  Config config;
  for (std::size_t i = 0; i < kApps; ++i) {
    AppEntry app;
    app.path = Format(L"C:\\Program Files\\Vendor %zu\\Product %zu\\application.exe", i / 10, i);
    app.added = 134050000000000000 + static_cast<std::int64_t>(i);
    app.signer = Format(L"Vendor %zu Software Ltd.", i / 10);
    app.product = Format(L"Product %zu", i);
    if (i % 4 == 0) app.sha256.push_back(Format(L"%064zx", i));
    config.apps.push_back(app);
  }
  for (std::size_t i = 0; i < kRules; ++i) {
    RuleEntry rule;
    rule.name = Format(L"Rule number %zu", i);
    rule.allow = i % 3 != 0;
    rule.direction = static_cast<std::uint32_t>(i % 3);
    rule.protocol = i % 2 == 0 ? 6 : 17;
    rule.remote = Format(L"10.%zu.%zu.0/24, 192.168.%zu.1-192.168.%zu.99, fe80::%zx/64", i / 250,
                         i % 250, i % 200, i % 200, i);
    rule.remote_ports = L"80, 443, 8000-8100";
    rule.app = config.apps[i % kApps].path;
    config.rules.push_back(rule);
  }
  return config;
}

double Milliseconds(const std::function<void()>& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  const std::chrono::duration<double, std::milli> taken = std::chrono::steady_clock::now() - start;
  return taken.count();
}

struct Contender {
  std::function<void()> work;
  std::vector<double> times = {};

  double median() {
    std::nth_element(times.begin(), times.begin() + kRounds / 2, times.end());
    return times[kRounds / 2];
  }
};

void Require(bool worked) {
  if (worked) return;
  std::fprintf(stderr, "a contender failed on the benchmark's own text\n");
  std::exit(1);
}

int Run() {
  const Config config = LargeConfig();
  const std::string text = ConfigText(config);
  const Json document = ConfigToJson(config);
  const nlohmann::json peer = nlohmann::json::parse(text);

  Contender parse{[&] {
    Json value;
    Require(Json::Parse(text, value));
  }};
  Contender parse_and_check{[&] {
    Json value;
    Config read;
    std::wstring error;
    Require(Json::Parse(text, value) && ConfigFromJson(value, read, error));
    Require(read.rules.size() == kRules);
  }};
  Contender check{[&] {
    Config read;
    std::wstring error;
    Require(ConfigFromJson(document, read, error));
  }};
  Contender dump{[&] { Require(document.Dump(true).size() + 1 == text.size()); }};
  Contender nlohmann_parse{[&] { Require(nlohmann::json::parse(text).is_object()); }};
  Contender nlohmann_dump{[&] { Require(peer.dump(2).size() + 1 == text.size()); }};
  Contender rapid_parse{[&] {
    rapidjson::Document value;
    Require(!value.Parse(text.data(), text.size()).HasParseError());
  }};

  Contender* all[] = {&parse,          &parse_and_check, &check,      &dump,
                      &nlohmann_parse, &nlohmann_dump,   &rapid_parse};
  for (int round = 0; round < kRounds; ++round) {
    for (Contender* contender : all) contender->times.push_back(Milliseconds(contender->work));
  }

  std::printf("configuration of %zu rules and %zu applications, %.2f MB; median of %d rounds\n",
              kRules, kApps, static_cast<double>(text.size()) / 1e6, kRounds);
  struct Line {
    const char* what;
    Contender& peer;
    Contender& own;
    double least;  // what has been promised
  };
  const Line lines[] = {
      {"parse, speed over nlohmann-json", nlohmann_parse, parse, 2},
      {"parse, speed over RapidJSON's DOM", rapid_parse, parse, 0.5},
      {"document to checked configuration, over nlohmann's parse", nlohmann_parse, check, 1},
      {"parse and checked configuration, over nlohmann's parse", nlohmann_parse, parse_and_check,
       1},
      {"pretty text, speed over nlohmann-json", nlohmann_dump, dump, 3},
  };
  for (const Line& line : lines) {
    const double ratio = line.peer.median() / line.own.median();
    std::printf("%-58s %6.2f x  (at least %.1f)%s\n", line.what, ratio, line.least,
                ratio < line.least ? "  MISSED" : "");
  }
  return 0;
}

}  // namespace
}  // namespace kestrelon

int main() {
  return kestrelon::Run();
}
