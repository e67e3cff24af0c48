#include "bench/large_config.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

#include "base/format.h"

namespace kestrelon {
namespace {

constexpr int kRules = 5000;
constexpr int kNetworks = 25000;
constexpr int kRounds = 9;

}  // namespace

std::wstring AppPath(int i) {
  return Format(L"C:\\Program Files\\Vendor %d\\Application.exe", i);
}

Config LargeConfig(int apps) {
  Config config;
  for (int i = 0; i < kRules; ++i) {
    RuleEntry rule;
    rule.name = Format(L"Rule number %d", i);
    rule.allow = i % 5 != 0;
    rule.direction = kDirectionBoth;
    rule.protocol = 6;
    rule.remote =
        Format(L"10.%d.%d.0/24, 2001:db8:%x::/48", i / 256, i % 256, static_cast<unsigned>(i));
    rule.remote_ports = L"443";
    if (i % 2 == 0) rule.app = AppPath(i % apps);
    config.rules.push_back(rule);
  }
  RuleEntry list;
  list.name = L"Networks";
  list.allow = false;
  list.direction = kDirectionBoth;
  for (int i = 0; i < kNetworks; ++i) {
    list.remote += Format(L"%d.%d.%d.0/24, ", 20 + i / 65536, i / 256 % 256, i % 256);
  }
  config.rules.push_back(list);
  return config;
}

double Milliseconds(const std::function<void()>& work) {
  double best = 0;
  for (int round = 0; round < kRounds; ++round) {
    const std::clock_t start = std::clock();
    work();
    const double taken = 1000.0 * static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
    best = round == 0 ? taken : std::min(best, taken);
  }
  return best;
}

void Print(const char* what, double milliseconds, double own, const char* bound, double bound_ms) {
  std::printf("%-28s %8.2f ms, without the simulation's share %8.2f ms = %5.2f x %s (%.2f ms)\n",
              what, milliseconds, own, own / bound_ms, bound, bound_ms);
}

}  // namespace kestrelon
