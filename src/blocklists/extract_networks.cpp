#include "blocklists/extract_networks.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>

#include "config/address_spec.h"

namespace kestrelon {
namespace {

// Bytes that stand between words or begin a comment, and those that a word is made of. A word that
// has bytes of kOther is none of an address, however much of it looks like one.
enum ByteKind : std::uint8_t {
  kBetween = 0,
  kComment = 1,
  kAddress = 2,  // of an address, but no "." and no ":"
  kDot = 4,
  kColon = 8,
  kOther = 16,
};

constexpr std::array<std::uint8_t, 256> MakeByteKinds() {
  std::array<std::uint8_t, 256> kinds{};
  const auto set = [&kinds](std::string_view bytes, ByteKind kind) {
    for (const char byte : bytes) kinds[static_cast<unsigned char>(byte)] = kind;
  };
  set("#;", kComment);
  set("0123456789ABCDEFabcdef/", kAddress);
  set(".", kDot);
  set(":", kColon);
  set("GHIJKLMNOPQRSTUVWXYZghijklmnopqrstuvwxyz_", kOther);
  return kinds;
}

constexpr std::array<std::uint8_t, 256> kByteKinds = MakeByteKinds();

std::uint8_t KindOf(char byte) {
  return kByteKinds[static_cast<unsigned char>(byte)];
}

// Far more than the longest form of an address with its prefix takes (56 bytes). What is longer is
// rejected unparsed: the parser would make wide copies of what may be a whole feed.
constexpr std::size_t kLongestAddress = 256;

using Ipv6Bytes = std::array<std::uint8_t, 16>;

struct Ipv4Range {
  std::uint32_t low;
  std::uint32_t high;
};

// What the machine itself lives on, or no network that could be reached.
constexpr Ipv4Range kReservedIpv4[] = {
    {0x00000000, 0x00FFFFFF},  // 0.0.0.0/8
    {0x0A000000, 0x0AFFFFFF},  // 10.0.0.0/8
    {0x64400000, 0x647FFFFF},  // 100.64.0.0/10
    {0x7F000000, 0x7FFFFFFF},  // 127.0.0.0/8
    {0xA9FE0000, 0xA9FEFFFF},  // 169.254.0.0/16
    {0xAC100000, 0xAC1FFFFF},  // 172.16.0.0/12
    {0xC0A80000, 0xC0A8FFFF},  // 192.168.0.0/16
    {0xE0000000, 0xFFFFFFFF},  // 224.0.0.0 to 255.255.255.255
};
constexpr std::uint32_t kTooWide = 0xFFFFFF;  // high minus low of a /8
constexpr std::uint32_t kLeastIpv6Prefix = 16;

bool MayBlockIpv4(const AddressEntry& entry) {
  if (entry.high - entry.low >= kTooWide) return false;
  return std::none_of(
      std::begin(kReservedIpv4), std::end(kReservedIpv4),
      [&](const Ipv4Range& range) { return entry.low <= range.high && entry.high >= range.low; });
}

struct Ipv6Network {
  Ipv6Bytes address;
  std::uint32_t prefix;
};

constexpr Ipv6Network kReservedIpv6[] = {
    {{0xFF}, 8},                                       // multicast
    {{0xFE, 0x80}, 10},                                // link-local
    {{0xFC}, 7},                                       // unique local
    {{}, 120},                                         // unspecified, loopback and the like
    {{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF}, 96},  // IPv4-mapped
};

bool StartsAlike(const Ipv6Bytes& a, const Ipv6Bytes& b, std::uint32_t bits) {
  const std::uint32_t whole = bits / 8;
  if (!std::equal(a.begin(), a.begin() + whole, b.begin())) return false;
  return bits % 8 == 0 || (a[whole] ^ b[whole]) >> (8 - bits % 8) == 0;
}

bool MayBlockIpv6(const AddressEntry& entry) {
  const Ipv6Bytes& bytes = entry.address;
  if (entry.prefix < kLeastIpv6Prefix) return false;
  // Whatever stands between: no network has such an address but to look like a mapped one.
  if (bytes[0] == 0 && bytes[1] == 0 && bytes[10] == 0xFF && bytes[11] == 0xFF) return false;
  // Two networks touch when they agree as far as the wider one reaches: "0:0:1::/16" holds ::1.
  return std::none_of(
      std::begin(kReservedIpv6), std::end(kReservedIpv6), [&](const Ipv6Network& reserved) {
        return StartsAlike(bytes, reserved.address, std::min(entry.prefix, reserved.prefix));
      });
}

// Whether a candidate is one address or network that may be blocked.
bool MayBlock(std::string_view candidate) {
  if (candidate.size() > kLongestAddress) return false;
  std::array<wchar_t, kLongestAddress> wide;
  std::copy(candidate.begin(), candidate.end(), wide.begin());
  AddressEntry entry;
  if (!ParseAddress({wide.data(), candidate.size()}, entry)) return false;
  return entry.family == 4 ? MayBlockIpv4(entry) : MayBlockIpv6(entry);
}

// Whether a word has the marks of an address; numbers, times and hexadecimal words have not.
// `kinds` are the kinds of its bytes.
bool IsCandidate(std::string_view word, std::uint8_t kinds) {
  if ((kinds & kOther) != 0 || (kinds & (kDot | kColon)) == 0) return false;
  if ((kinds & kColon) != 0) return std::count(word.begin(), word.end(), ':') >= 2;
  return std::count(word.begin(), word.end(), '.') == 3;
}

// The texts without those that stood before. They are compared in an order by hash instead of being
// looked up in a table of hashes, which a feed could be made to fill at one place.
std::vector<std::wstring> WithoutRepeated(const std::vector<std::string_view>& texts) {
  struct Key {
    std::size_t hash;
    std::size_t index;
  };
  std::vector<Key> keys;
  keys.reserve(texts.size());
  for (const std::string_view text : texts) {
    keys.push_back({std::hash<std::string_view>()(text), keys.size()});
  }
  std::sort(keys.begin(), keys.end(), [&texts](const Key& a, const Key& b) {
    if (a.hash != b.hash) return a.hash < b.hash;
    const int order = texts[a.index].compare(texts[b.index]);
    return order != 0 ? order < 0 : a.index < b.index;
  });
  std::vector<bool> repeated(texts.size());
  for (std::size_t i = 1; i < keys.size(); ++i) {
    repeated[keys[i].index] =
        keys[i].hash == keys[i - 1].hash && texts[keys[i].index] == texts[keys[i - 1].index];
  }
  std::vector<std::wstring> result;
  result.reserve(static_cast<std::size_t>(std::count(repeated.begin(), repeated.end(), false)));
  for (std::size_t i = 0; i < texts.size(); ++i) {
    if (!repeated[i]) result.emplace_back(texts[i].begin(), texts[i].end());
  }
  return result;
}

}  // namespace

std::vector<std::wstring> ExtractNetworks(std::string_view text, std::size_t* rejected) {
  std::vector<std::string_view> accepted;
  std::size_t rejections = 0;
  for (std::size_t at = 0; at < text.size();) {
    std::uint8_t kind = KindOf(text[at]);
    if (kind == kBetween) {
      ++at;
      continue;
    }
    if (kind == kComment) {
      at = std::min(text.find('\n', at), text.size());
      continue;
    }
    // The longest run of bytes of words. A candidate that was only a part of it would have a letter
    // beside it, so the run is a candidate as a whole or holds none.
    const std::size_t begin = at;
    std::uint8_t kinds = 0;
    do {
      kinds |= kind;
      kind = ++at < text.size() ? KindOf(text[at]) : std::uint8_t{kBetween};
    } while (kind > kComment);
    const std::string_view word = text.substr(begin, at - begin);
    if (!IsCandidate(word, kinds)) continue;
    if (MayBlock(word)) {
      accepted.push_back(word);
    } else {
      ++rejections;
    }
  }
  if (rejected != nullptr) *rejected = rejections;
  return WithoutRepeated(accepted);
}

}  // namespace kestrelon
