// How fast networks are found in the text of a feed, and how long 25,000 of them take from the
// cache to filters.
//
// Each scan stands beside bounds of the same run: memchr over the same bytes, which only looks at
// them, and the scan of their first half, of which it should take the double. Most of the texts are
// like no honest feed, because a feed is not trusted; they have the largest size that is read. For
// the feed there is a peer too: a regular expression that finds what has the shape of a network and
// judges nothing.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iterator>
#include <regex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/format.h"
#include "base/text.h"
#include "bench/large_config.h"
#include "blocklists/blocklist_rules.h"
#include "blocklists/blocklist_store.h"
#include "blocklists/extract_networks.h"
#include "config/address_spec.h"
#include "filtering/build_filters.h"
#include "simulation/machine/machine.h"

namespace kestrelon {
namespace {

constexpr std::size_t kFeedSize = 8000000;
constexpr std::size_t kLargestFile = 0x1000000 - 1;
constexpr double kLeastSpeed = 200;  // MB/s of a feed, promised
constexpr std::size_t kNetworks = 25000;
constexpr double kMostMilliseconds = 150;  // from the cache to filters, promised

void Require(bool worked) {
  if (worked) return;
  std::fprintf(stderr, "the benchmark's own input was not taken\n");
  std::exit(1);
}

// A public /24 by its number, of which there are some millions.
std::wstring Network(std::size_t i) {
  return Format(L"%zu.%zu.%zu.0/24", 11 + i / 65536 % 80, i / 256 % 256, i % 256);
}

std::string FeedLine(std::size_t i) {
  const std::wstring network =
      i % 16 == 0 ? Format(L"2a%02zx:%zx::/32", i / 65536 % 256, i % 65536) : Network(i);
  return Utf8FromWide(Format(LR"({"cidr":"%s","sblid":"SBL%zu","rir":"%s"})", network,
                             200000 + i * 7 % 500000, i % 3 == 0 ? L"apnic" : L"ripencc")) +
         "\n";
}

// Pieces by their number until the text has its size; none is cut.
std::string Repeated(std::size_t size, const std::function<std::string(std::size_t)>& piece) {
  std::string text;
  for (std::size_t i = 0;; ++i) {
    const std::string next = piece(i);
    if (text.size() + next.size() > size) return text;
    text += next;
  }
}

std::string Repeated(std::size_t size, const std::string& piece) {
  return Repeated(size, [&piece](std::size_t) { return piece; });
}

double Extraction(std::string_view text) {
  return Milliseconds([text] { (void)ExtractNetworks(text); });
}

double Memchr(std::string_view text) {
  const void* volatile found = nullptr;
  return Milliseconds([&] { found = std::memchr(text.data(), 0, text.size()); });
}

void PrintScan(const char* what, const std::string& text, double least_speed) {
  std::size_t rejected = 0;
  const std::size_t entries = ExtractNetworks(text, &rejected).size();
  const double own = Extraction(text);
  const double half = Extraction(std::string_view(text).substr(0, text.size() / 2));
  const double speed = static_cast<double>(text.size()) / own / 1000;
  std::printf("%-33s %7.1f MB/s = %6.1f x memchr's time, %.2f x that of its half; ", what, speed,
              own / Memchr(text), own / half);
  std::printf("%zu entries, %zu rejected%s\n", entries, rejected,
              speed < least_speed ? "  MISSED" : "");
}

void PrintPeer(const std::string& feed) {
  const std::regex network("[0-9a-f.:]+/[0-9]+", std::regex::optimize);
  std::ptrdiff_t found = 0;
  const double peer = Milliseconds([&] {
    const std::cregex_iterator first(feed.data(), feed.data() + feed.size(), network);
    found = std::distance(first, std::cregex_iterator());
  });
  Require(static_cast<std::size_t>(found) == ExtractNetworks(feed).size());
  std::printf("%-33s %7.1f x the speed of std::regex\n", "the feed", peer / Extraction(feed));
}

void Scan() {
  const std::string feed = Repeated(kFeedSize, FeedLine);
  const auto network_line = [](std::size_t i) { return Utf8FromWide(Network(i)) + "\n"; };
  PrintScan("a feed", feed, kLeastSpeed);
  PrintPeer(feed);
  const std::pair<const char*, std::string> hostile[] = {
      {"distinct networks and no more", Repeated(kLargestFile, network_line)},
      {"one network over and over", Repeated(kLargestFile, "1.2.3.4\n")},
      {"shortest texts to be rejected", Repeated(kLargestFile, ":: ")},
      {"longest candidates to be parsed", Repeated(kLargestFile, Repeated(256, "1.1.1.1:") + " ")},
      {"one endless candidate", Repeated(kLargestFile, "1.1.1.1:")},
      {"hexadecimal words", Repeated(kLargestFile, "de:adbeef ")},
      {"comments", Repeated(kLargestFile, "#\n")},
  };
  for (const auto& [what, text] : hostile) PrintScan(what, text, 0);
}

void CacheToFilters() {
  const BlocklistRow& row = BlocklistCatalog().front();
  BlocklistState state;
  for (std::size_t i = 0; i < kNetworks; ++i) state.entries.push_back(Network(i));
  simulation::TheMachine().files.Write(BlocklistCachePath(row), BlocklistCacheText(row, state));

  const double loaded = Milliseconds([&] { Require(LoadCachedBlocklist(row, state)); });
  Require(state.entries.size() == kNetworks);
  {
    const GuardLock lock(BlocklistGuard);
    BlocklistStates[row.id] = state;
  }
  Config config;
  config.blocklists = {row.id};
  config.blocklists_auto_update = false;
  const double made = Milliseconds([&] {
    config.rules.clear();
    BlocklistRules(config, config.rules);
  });
  const double parsed = Milliseconds([&] {
    std::vector<AddressEntry> entries;
    std::wstring error;
    for (const RuleEntry& rule : config.rules) {
      Require(ParseAddressSpec(rule.remote, entries, error));
    }
  });
  std::size_t filters = 0;
  std::size_t conditions = 0;
  std::vector<std::wstring> warnings;
  const double built = Milliseconds([&] {
    filters = conditions = 0;
    Require(BuildFilters(config, {}, warnings, [&](platform::Filter& filter, FilterTag&) {
      ++filters;
      conditions += filter.conditions.size();
      return true;
    }));
  });
  const double all = loaded + made + built;
  std::printf("%zu networks, %zu rules, %zu filters with %zu conditions\n", kNetworks,
              config.rules.size(), filters, conditions);
  std::printf(
      "loading %.1f ms, making rules %.1f ms, building filters %.1f ms (parsing %.1f of it)"
      " = %.1f ms (at most %.0f)%s\n",
      loaded, made, built, parsed, all, kMostMilliseconds,
      all > kMostMilliseconds ? "  MISSED" : "");
}

}  // namespace
}  // namespace kestrelon

int main() {
  kestrelon::Scan();
  kestrelon::CacheToFilters();
}
