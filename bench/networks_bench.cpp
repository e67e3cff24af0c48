// How fast networks are found in the text of a feed, and how long 25,000 of them take from the
// cache to filters.
//
// Each scan stands beside that of the text's first half, of which it should take the double. Most
// of the texts are like no honest feed, because a feed is not trusted; they have the largest size
// that is read. For the feed there are a peer, a regular expression that finds what has the shape
// of a network and judges nothing, and memchr, which only looks at the bytes.
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
#include "bench/measure.h"
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
constexpr std::size_t kNetworks = 25000;
constexpr const char* kCopying = "copying their texts";
constexpr double kLeastSpeed = 0.2;  // bytes of a feed per nanosecond, promised

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

void PrintScan(const std::string& what, const std::string& text, double least_speed) {
  std::size_t rejected = 0;
  const std::size_t entries = ExtractNetworks(text, &rejected).size();
  const std::string_view half = std::string_view(text).substr(0, text.size() / 2);
  const std::vector<double> taken = InTurn({
      [&] { (void)ExtractNetworks(text); },
      [half] { (void)ExtractNetworks(half); },
  });
  char facts[100];
  std::snprintf(facts, sizeof facts, " (%.0f MB; %zu entries, %zu rejected)",
                static_cast<double>(text.size()) / 1e6, entries, rejected);
  Print({.what = what + facts,
         .taken = taken[0],
         .bound = "its first half",
         .bound_taken = taken[1],
         .most_taken = least_speed == 0 ? 0 : static_cast<double>(text.size()) / least_speed});
}

void PrintPeer(const std::string& feed) {
  const std::regex network("[0-9a-f.:]+/[0-9]+", std::regex::optimize);
  std::size_t found = 0;
  const void* volatile zero = nullptr;
  const std::vector<double> taken = InTurn({
      [&] { Require(ExtractNetworks(feed).size() == found || found == 0); },
      [&] {
        const std::cregex_iterator first(feed.data(), feed.data() + feed.size(), network);
        found = static_cast<std::size_t>(std::distance(first, std::cregex_iterator()));
      },
      [&] { zero = std::memchr(feed.data(), 0, feed.size()); },
  });
  Print({"a feed", taken[0], "std::regex that finds as many", taken[1]});
  Print({"a feed", taken[0], "memchr over its bytes", taken[2]});
}

void Scan() {
  PrintSection("Networks in texts",
               "A feed like the published ones, and texts of the largest size that is read, made "
               "to be slow. Twice the text is to take twice the time.");
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
  const std::vector<std::wstring> networks = state.entries;
  const std::string cache = BlocklistCacheText(row, state);
  simulation::TheMachine().files.Write(BlocklistCachePath(row), cache);
  {
    const GuardLock lock(BlocklistGuard);
    BlocklistStates[row.id] = state;
  }
  Config config;
  config.blocklists = {row.id};
  config.blocklists_auto_update = false;
  std::size_t filters = 0;
  const std::vector<double> taken = InTurn({
      [&] { Require(LoadCachedBlocklist(row, state)); },
      [&] {
        config.rules.clear();
        BlocklistRules(config, config.rules);
      },
      [&] {
        std::vector<std::wstring> warnings;
        Require(BuildFilters(config, {}, warnings,
                             [&](platform::Filter&, FilterTag&) { return ++filters != 0; }));
      },
      [&] { (void)std::vector<std::wstring>(networks); },
      [&] {
        std::vector<AddressEntry> entries;
        std::wstring error;
        for (const RuleEntry& rule : config.rules) {
          Require(ParseAddressSpec(rule.remote, entries, error));
        }
      },
  });
  Require(state.entries.size() == kNetworks);
  const double copied = taken[3];
  PrintSection("A list of 25,000 networks", "Its way from the cache to filters.");
  Print({.what = "cache to filters, all stages",
         .taken = taken[0] + taken[1] + taken[2],
         .bound = kCopying,
         .bound_taken = copied,
         .most_taken = 150e6});
  Print({"of it loading", taken[0], kCopying, copied});
  Print({"of it making rules", taken[1], kCopying, copied});
  Print({"of it building filters", taken[2], "parsing their addresses", taken[4]});
}

}  // namespace
}  // namespace kestrelon

int main() {
  kestrelon::Scan();
  kestrelon::CacheToFilters();
}
