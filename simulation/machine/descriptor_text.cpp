#include "simulation/machine/descriptor_text.h"

#include <optional>
#include <string_view>
#include <utility>

#include "base/text.h"
#include "simulation/machine/number_text.h"
#include "simulation/machine/sid.h"

namespace simulation {
namespace {

using kestrelon::platform::Code;
using kestrelon::platform::kInvalidParameter;
using kestrelon::platform::kSuccess;

constexpr Code kInvalidAcl = 1336;
constexpr Code kInvalidSid = 1337;

constexpr std::size_t kHeaderSize = 20;
constexpr std::uint16_t kSelfRelative = 0x8000;
constexpr std::uint8_t kAclRevision = 2;

struct NamedBits {
  std::wstring_view name;
  std::uint32_t bits;
};

constexpr NamedBits kRights[] = {
    {L"GA", 0x10000000}, {L"GX", 0x20000000}, {L"GW", 0x40000000}, {L"GR", 0x80000000},
    {L"SD", 0x10000},    {L"RC", 0x20000},    {L"WD", 0x40000},    {L"WO", 0x80000},
    {L"FA", 0x1F01FF},   {L"FR", 0x120089},   {L"FW", 0x120116},   {L"FX", 0x1200A0},
    {L"KA", 0xF003F},    {L"KR", 0x20019},    {L"KW", 0x20006},    {L"KX", 0x20019},
    {L"CC", 0x1},        {L"DC", 0x2},        {L"LC", 0x4},        {L"SW", 0x8},
    {L"RP", 0x10},       {L"WP", 0x20},       {L"DT", 0x40},       {L"LO", 0x80},
    {L"CR", 0x100},
};
constexpr NamedBits kEntryFlags[] = {
    {L"OI", 0x1},  {L"CI", 0x2},  {L"NP", 0x4},  {L"IO", 0x8},
    {L"ID", 0x10}, {L"SA", 0x40}, {L"FA", 0x80},
};
constexpr NamedBits kEntryTypes[] = {{L"A", 0}, {L"D", 1}, {L"AU", 2}};

// The sections of lists and the bits of the control word that belong to each.
struct ListBits {
  std::uint16_t present;
  std::uint16_t auto_inherit_required;
  std::uint16_t auto_inherited;
  std::uint16_t is_protected;
};
constexpr ListBits kDaclBits = {0x4, 0x100, 0x400, 0x1000};
constexpr ListBits kSaclBits = {0x10, 0x200, 0x800, 0x2000};

struct Descriptor {
  std::uint16_t control = kSelfRelative;
  SidBytes owner;
  SidBytes group;
  std::vector<std::uint8_t> sacl;  // as a binary ACL, empty for none
  std::vector<std::uint8_t> dacl;
};

void Append(std::vector<std::uint8_t>& out, std::uint32_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

std::optional<std::uint32_t> FindBits(std::wstring_view name, const NamedBits* begin,
                                      const NamedBits* end) {
  for (const NamedBits* bits = begin; bits != end; ++bits) {
    if (bits->name == name) return bits->bits;
  }
  return std::nullopt;
}

// A run of two-letter names.
template <std::size_t N>
std::optional<std::uint32_t> NamesToBits(std::wstring_view text, const NamedBits (&table)[N]) {
  std::uint32_t sum = 0;
  for (std::size_t i = 0; i < text.size(); i += 2) {
    const std::optional<std::uint32_t> bits = FindBits(text.substr(i, 2), table, table + N);
    if (!bits) return std::nullopt;
    sum |= *bits;
  }
  return sum;
}

// Rights as a number in the notation of C, or as names.
std::optional<std::uint32_t> ParseRights(std::wstring_view text) {
  if (text.empty() || text[0] < L'0' || text[0] > L'9') return NamesToBits(text, kRights);
  std::optional<std::uint64_t> number;
  if (IsHexadecimal(text)) {
    number = ParseDigits(text.substr(2), 16, 0xFFFFFFFF);
  } else {
    number = ParseDigits(text, text[0] == L'0' ? 8 : 10, 0xFFFFFFFF);
  }
  if (!number) return std::nullopt;
  return static_cast<std::uint32_t>(*number);
}

// "type;flags;rights;;;sid" without its parentheses.
Code AppendEntry(std::wstring_view text, std::vector<std::uint8_t>& acl) {
  const std::vector<std::wstring_view> fields = kestrelon::SplitAt(text, L";");
  if (fields.size() != 6 || !fields[3].empty() || !fields[4].empty()) return kInvalidAcl;
  const auto type = FindBits(fields[0], std::begin(kEntryTypes), std::end(kEntryTypes));
  const auto flags = NamesToBits(fields[1], kEntryFlags);
  const auto rights = ParseRights(fields[2]);
  if (!type || !flags || !rights) return kInvalidAcl;
  const std::optional<SidBytes> sid = ParseSid(fields[5]);
  if (!sid) return kInvalidSid;
  Append(acl, *type, 1);
  Append(acl, *flags, 1);
  Append(acl, static_cast<std::uint32_t>(8 + sid->size()), 2);
  Append(acl, *rights, 4);
  acl.insert(acl.end(), sid->begin(), sid->end());
  return kSuccess;
}

// Takes the flags in front of a list's entries ("P", "AR", "AI") off the text.
bool TakeListFlags(std::wstring_view& text, const ListBits& bits, std::uint16_t& control) {
  while (!text.empty() && text[0] != L'(') {
    if (text.starts_with(L"P")) {
      control |= bits.is_protected;
      text.remove_prefix(1);
    } else if (text.starts_with(L"AR")) {
      control |= bits.auto_inherit_required;
      text.remove_prefix(2);
    } else if (text.starts_with(L"AI")) {
      control |= bits.auto_inherited;
      text.remove_prefix(2);
    } else {
      return false;
    }
  }
  return true;
}

Code ParseList(std::wstring_view text, const ListBits& bits, std::uint16_t& control,
               std::vector<std::uint8_t>& acl) {
  control |= bits.present;
  // The null list: present, but nowhere.
  if (text == L"NO_ACCESS_CONTROL") return kSuccess;
  if (!TakeListFlags(text, bits, control)) return kInvalidAcl;
  std::vector<std::uint8_t> entries;
  std::uint32_t count = 0;
  while (!text.empty()) {
    const std::size_t end = text.find(L')');
    if (text[0] != L'(' || end == std::wstring_view::npos) return kInvalidAcl;
    if (const Code code = AppendEntry(text.substr(1, end - 1), entries)) return code;
    text.remove_prefix(end + 1);
    ++count;
  }
  acl.clear();
  Append(acl, kAclRevision, 2);
  Append(acl, static_cast<std::uint32_t>(8 + entries.size()), 2);
  Append(acl, count, 4);
  acl.insert(acl.end(), entries.begin(), entries.end());
  return kSuccess;
}

Code ParseSection(wchar_t letter, std::wstring_view text, Descriptor& descriptor) {
  if (letter == L'D') return ParseList(text, kDaclBits, descriptor.control, descriptor.dacl);
  if (letter == L'S') return ParseList(text, kSaclBits, descriptor.control, descriptor.sacl);
  const std::optional<SidBytes> sid = ParseSid(text);
  if (!sid) return kInvalidSid;
  (letter == L'O' ? descriptor.owner : descriptor.group) = *sid;
  return kSuccess;
}

// The parts behind the header in the platform's order, each at a multiple of four.
std::vector<std::uint8_t> SelfRelative(const Descriptor& descriptor) {
  std::vector<std::uint8_t> body;
  const auto place = [&body](const std::vector<std::uint8_t>& part) {
    const std::size_t offset = part.empty() ? 0 : kHeaderSize + body.size();
    body.insert(body.end(), part.begin(), part.end());
    return static_cast<std::uint32_t>(offset);
  };
  const std::uint32_t sacl = place(descriptor.sacl);
  const std::uint32_t dacl = place(descriptor.dacl);
  const std::uint32_t owner = place(descriptor.owner);
  const std::uint32_t group = place(descriptor.group);
  std::vector<std::uint8_t> bytes;
  Append(bytes, 1, 2);  // revision
  Append(bytes, descriptor.control, 2);
  for (const std::uint32_t offset : {owner, group, sacl, dacl}) Append(bytes, offset, 4);
  bytes.insert(bytes.end(), body.begin(), body.end());
  return bytes;
}

}  // namespace

Code ParseDescriptorText(const std::wstring& text, std::vector<std::uint8_t>& descriptor) {
  Descriptor parsed;
  std::wstring seen;
  std::wstring_view rest = text;
  while (!rest.empty()) {
    const wchar_t letter = rest[0];
    if (rest.size() < 2 || rest[1] != L':') return kInvalidParameter;
    if (std::wstring_view(L"OGDS").find(letter) == std::wstring_view::npos ||
        seen.find(letter) != std::wstring::npos) {
      return kInvalidParameter;
    }
    seen += letter;
    rest.remove_prefix(2);
    // A section ends where the next letter with a colon stands.
    const std::size_t colon = rest.find(L':');
    const std::size_t end =
        colon == std::wstring_view::npos || colon == 0 ? rest.size() : colon - 1;
    if (const Code code = ParseSection(letter, rest.substr(0, end), parsed)) return code;
    rest.remove_prefix(end);
  }
  descriptor = SelfRelative(parsed);
  return kSuccess;
}

}  // namespace simulation
