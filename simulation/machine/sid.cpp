#include "simulation/machine/sid.h"

#include "base/text.h"
#include "simulation/machine/digest.h"
#include "simulation/machine/letter_case.h"
#include "simulation/machine/number_text.h"

namespace simulation {
namespace {

constexpr std::size_t kMostParts = 15;
constexpr std::size_t kHeadSize = 8;  // revision, count of parts and authority
constexpr std::size_t kPartSize = 4;
constexpr std::uint64_t kLargestAuthority = 0xFFFF'FFFF'FFFF;
constexpr std::uint64_t kLargestPart = 0xFFFF'FFFF;
constexpr std::uint64_t kNtAuthority = 5;
constexpr std::uint64_t kPackageAuthority = 15;

struct KnownSid {
  const wchar_t* abbreviation;  // in descriptor texts
  const wchar_t* account;       // null where nobody looks it up by name
  std::uint64_t authority;
  std::vector<std::uint32_t> parts;
};

const std::vector<KnownSid>& KnownSids() {
  static const std::vector<KnownSid> sids = {
      {L"WD", L"Everyone", 1, {0}},
      {L"CO", L"CREATOR OWNER", 3, {0}},
      {L"CG", L"CREATOR GROUP", 3, {1}},
      {L"OW", nullptr, 3, {4}},
      {L"NU", L"NT AUTHORITY\\NETWORK", 5, {2}},
      {L"IU", L"NT AUTHORITY\\INTERACTIVE", 5, {4}},
      {L"SU", L"NT AUTHORITY\\SERVICE", 5, {6}},
      {L"AN", L"NT AUTHORITY\\ANONYMOUS LOGON", 5, {7}},
      {L"PS", nullptr, 5, {10}},
      {L"AU", L"NT AUTHORITY\\Authenticated Users", 5, {11}},
      {L"RC", nullptr, 5, {12}},
      {L"SY", L"NT AUTHORITY\\SYSTEM", 5, {18}},
      {L"LS", L"NT AUTHORITY\\LOCAL SERVICE", 5, {19}},
      {L"NS", L"NT AUTHORITY\\NETWORK SERVICE", 5, {20}},
      {L"BA", L"BUILTIN\\Administrators", 5, {32, 544}},
      {L"BU", L"BUILTIN\\Users", 5, {32, 545}},
      {L"BG", L"BUILTIN\\Guests", 5, {32, 546}},
      {L"PU", L"BUILTIN\\Power Users", 5, {32, 547}},
      {L"SO", L"BUILTIN\\Server Operators", 5, {32, 549}},
      {L"BO", L"BUILTIN\\Backup Operators", 5, {32, 551}},
      {L"RD", L"BUILTIN\\Remote Desktop Users", 5, {32, 555}},
      {L"NO", L"BUILTIN\\Network Configuration Operators", 5, {32, 556}},
      {L"AC", L"APPLICATION PACKAGE AUTHORITY\\ALL APPLICATION PACKAGES", 15, {2, 1}},
  };
  return sids;
}

// A decimal number, or a hexadecimal one behind "0x".
std::optional<std::uint64_t> ParseNumber(std::wstring_view text, std::uint64_t largest) {
  return IsHexadecimal(text) ? ParseDigits(text.substr(2), 16, largest)
                             : ParseDigits(text, 10, largest);
}

// The UTF-16 bytes of a text without the closing null, as digests are taken of it.
std::string Utf16Bytes(std::wstring_view text) {
  const std::vector<std::uint8_t> bytes = kestrelon::Utf16BytesWithNull(text);
  return {bytes.begin(), bytes.end() - 2};
}

std::uint32_t PartAt(const std::vector<std::uint8_t>& bytes, std::size_t at) {
  return bytes[at] | std::uint32_t{bytes[at + 1]} << 8 | std::uint32_t{bytes[at + 2]} << 16 |
         std::uint32_t{bytes[at + 3]} << 24;
}

SidBytes DerivedSid(std::uint64_t authority, std::uint32_t first,
                    const std::vector<std::uint8_t>& digest, std::size_t count) {
  std::vector<std::uint32_t> parts = {first};
  for (std::size_t i = 0; i < count; ++i) parts.push_back(PartAt(digest, i * kPartSize));
  return SidOf(authority, parts);
}

}  // namespace

SidBytes SidOf(std::uint64_t authority, const std::vector<std::uint32_t>& parts) {
  SidBytes sid = {1, static_cast<std::uint8_t>(parts.size())};
  for (int shift = 40; shift >= 0; shift -= 8) {
    sid.push_back(static_cast<std::uint8_t>(authority >> shift));
  }
  for (const std::uint32_t part : parts) {
    for (int shift = 0; shift < 32; shift += 8) {
      sid.push_back(static_cast<std::uint8_t>(part >> shift));
    }
  }
  return sid;
}

std::optional<SidBytes> ParseSid(std::wstring_view text) {
  const std::wstring upper = FoldCase(text);
  for (const KnownSid& known : KnownSids()) {
    if (upper == known.abbreviation) return SidOf(known.authority, known.parts);
  }
  const std::vector<std::wstring_view> pieces = kestrelon::SplitAt(upper, L"-");
  if (pieces.size() < 4 || pieces.size() > 3 + kMostParts) return std::nullopt;
  if (pieces[0] != L"S" || pieces[1] != L"1") return std::nullopt;
  const std::optional<std::uint64_t> authority = ParseNumber(pieces[2], kLargestAuthority);
  if (!authority) return std::nullopt;
  std::vector<std::uint32_t> parts;
  for (std::size_t i = 3; i < pieces.size(); ++i) {
    const std::optional<std::uint64_t> part = ParseNumber(pieces[i], kLargestPart);
    if (!part) return std::nullopt;
    parts.push_back(static_cast<std::uint32_t>(*part));
  }
  return SidOf(*authority, parts);
}

bool IsSid(const SidBytes& bytes) {
  return bytes.size() >= kHeadSize && bytes[0] == 1 && bytes[1] <= kMostParts &&
         bytes.size() >= kHeadSize + bytes[1] * kPartSize;
}

std::wstring SidText(const SidBytes& sid) {
  std::uint64_t authority = 0;
  for (std::size_t i = 2; i < kHeadSize; ++i) authority = authority << 8 | sid[i];
  std::wstring text = L"S-1-" + std::to_wstring(authority);
  for (std::size_t i = 0; i < sid[1]; ++i) {
    text += L"-" + std::to_wstring(PartAt(sid, kHeadSize + i * kPartSize));
  }
  return text;
}

SidBytes ServiceSid(const std::wstring& name) {
  return DerivedSid(kNtAuthority, 80, DigestOf(L"SHA1", Utf16Bytes(FoldCase(name))), 5);
}

SidBytes PackageSid(const std::wstring& name) {
  std::wstring lower = name;
  for (wchar_t& letter : lower) letter = LowerLetter(letter);
  return DerivedSid(kPackageAuthority, 2, DigestOf(L"SHA256", Utf16Bytes(lower)), 7);
}

std::optional<SidBytes> BuiltinAccountSid(const std::wstring& name) {
  const std::wstring wanted = FoldCase(name);
  for (const KnownSid& known : KnownSids()) {
    if (known.account == nullptr) continue;
    const std::wstring account = FoldCase(known.account);
    const std::wstring bare = account.substr(account.find(L'\\') + 1);
    if (wanted == account || wanted == bare) return SidOf(known.authority, known.parts);
  }
  return std::nullopt;
}

}  // namespace simulation
