#include "simulation/engine/access.h"

#include <algorithm>
#include <utility>

namespace simulation {
namespace {

constexpr std::size_t kDescriptorHeader = 20;
constexpr std::size_t kAclHeader = 8;
constexpr std::size_t kAceHeader = 8;  // with the mask
constexpr std::uint32_t kControlDaclPresent = 0x4;
constexpr std::uint32_t kControlDaclProtected = 0x1000;
constexpr std::uint32_t kControlSelfRelative = 0x8000;
constexpr std::uint8_t kAceAllow = 0;
constexpr std::uint8_t kAceDeny = 1;
constexpr std::uint8_t kAceDenyCallback = 10;
constexpr std::uint8_t kAceInheritOnly = 0x8;

constexpr std::uint32_t kGenericRead = 0x80000000;
constexpr std::uint32_t kGenericWrite = 0x40000000;
constexpr std::uint32_t kGenericExecute = 0x20000000;
constexpr std::uint32_t kGenericAll = 0x10000000;

// Reads little-endian numbers from bytes, refusing to run over the end.
class ByteReader {
 public:
  explicit ByteReader(const Bytes& bytes) : bytes_(bytes) {}
  [[nodiscard]] bool Has(std::size_t offset, std::size_t size) const {
    return offset <= bytes_.size() && size <= bytes_.size() - offset;
  }
  [[nodiscard]] std::uint32_t Number(std::size_t offset, std::size_t size) const {
    std::uint32_t value = 0;
    for (std::size_t i = size; i-- > 0;) value = value << 8 | bytes_[offset + i];
    return value;
  }
  [[nodiscard]] bool ReadSid(std::size_t offset, std::size_t limit, Sid& sid) const {
    if (!Has(offset, limit) || limit < 8) return false;
    const std::size_t size = 8 + std::size_t{4} * bytes_[offset + 1];
    if (size > limit || !IsValidSid(bytes_.data() + offset, size)) return false;
    const auto begin = bytes_.begin() + static_cast<std::ptrdiff_t>(offset);
    sid.assign(begin, begin + static_cast<std::ptrdiff_t>(size));
    return true;
  }
  [[nodiscard]] std::size_t size() const { return bytes_.size(); }

 private:
  const Bytes& bytes_;
};

// Generic rights stand for sets of the object's own.
std::uint32_t MapGenericRights(std::uint32_t mask, const GenericRights& generic) {
  std::uint32_t mapped = mask & 0x0FFFFFFF;
  if ((mask & kGenericRead) != 0) mapped |= generic.read;
  if ((mask & kGenericWrite) != 0) mapped |= generic.write;
  if ((mask & kGenericExecute) != 0) mapped |= generic.execute;
  if ((mask & kGenericAll) != 0) mapped |= generic.all;
  return mapped;
}

bool ParseAccessList(const ByteReader& reader, std::size_t offset, const GenericRights& generic,
                     std::vector<AccessEntry>& entries) {
  if (!reader.Has(offset, kAclHeader)) return false;
  const std::size_t size = reader.Number(offset + 2, 2);
  const std::uint32_t count = reader.Number(offset + 4, 2);
  if (size < kAclHeader || !reader.Has(offset, size)) return false;
  std::size_t at = offset + kAclHeader;
  const std::size_t end = offset + size;
  for (std::uint32_t i = 0; i < count; ++i) {
    if (end - at < kAceHeader) return false;
    const auto type = static_cast<std::uint8_t>(reader.Number(at, 1));
    const auto flags = static_cast<std::uint8_t>(reader.Number(at + 1, 1));
    const std::size_t ace_size = reader.Number(at + 2, 2);
    if (ace_size < kAceHeader || ace_size > end - at) return false;
    // A conditional denial counts as if its condition held, a conditional grant as if it didn't.
    const bool deny = type == kAceDeny || type == kAceDenyCallback;
    if ((type == kAceAllow || deny) && (flags & kAceInheritOnly) == 0) {
      AccessEntry entry{
          .allow = !deny, .mask = MapGenericRights(reader.Number(at + 4, 4), generic), .sid = {}};
      if (!reader.ReadSid(at + kAceHeader, ace_size - kAceHeader, entry.sid)) return false;
      entries.push_back(std::move(entry));
    }
    at += ace_size;
  }
  return true;
}

bool Contains(const std::vector<Sid>& sids, const Sid& sid) {
  return std::find(sids.begin(), sids.end(), sid) != sids.end();
}

}  // namespace

Sid MakeSid(std::uint8_t authority, std::initializer_list<std::uint32_t> parts) {
  Sid sid = {1, static_cast<std::uint8_t>(parts.size()), 0, 0, 0, 0, 0, authority};
  for (const std::uint32_t part : parts) {
    for (unsigned shift = 0; shift < 32; shift += 8) {
      sid.push_back(static_cast<std::uint8_t>(part >> shift));
    }
  }
  return sid;
}

bool IsValidSid(const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t kMostParts = 15;
  return size >= 8 && data[0] == 1 && data[1] <= kMostParts && size == 8 + std::size_t{4} * data[1];
}

Sid LocalSystemSid() {
  return MakeSid(5, {18});
}
Sid AdministratorsSid() {
  return MakeSid(5, {32, 544});
}
Sid EveryoneSid() {
  return MakeSid(1, {0});
}
Sid NobodySid() {
  return MakeSid(0, {0});
}

AccessToken TokenOf(const Caller& caller) {
  AccessToken token;
  if (caller.local_system) token.sids.push_back(LocalSystemSid());
  token.sids.insert(token.sids.end(), caller.sids.begin(), caller.sids.end());
  if (caller.local_system || caller.administrator) token.sids.push_back(AdministratorsSid());
  token.sids.push_back(EveryoneSid());
  token.sids.push_back(MakeSid(5, {11}));  // Authenticated Users
  // Undocumented: whether the engine makes Administrators the owner of what LocalSystem adds, as
  // files have it. Here LocalSystem owns it, so that administrators have only what the list says.
  if (caller.local_system) {
    token.owner = LocalSystemSid();
  } else if (caller.administrator) {
    token.owner = AdministratorsSid();
  } else if (!caller.sids.empty()) {
    token.owner = caller.sids.front();
  }
  return token;
}

bool ParseDescriptor(const Bytes& bytes, ObjectSecurity& security, const GenericRights& generic) {
  const ByteReader reader(bytes);
  if (!reader.Has(0, kDescriptorHeader) || bytes[0] != 1) return false;
  const std::uint32_t control = reader.Number(2, 2);
  if ((control & kControlSelfRelative) == 0) return false;
  ObjectSecurity parsed;
  const std::size_t owner = reader.Number(4, 4);
  if (owner != 0) {
    if (owner >= reader.size() || !reader.ReadSid(owner, reader.size() - owner, parsed.owner)) {
      return false;
    }
  }
  const std::size_t dacl = reader.Number(16, 4);
  parsed.dacl_present = (control & kControlDaclPresent) != 0;
  if (parsed.dacl_present && dacl != 0) {
    parsed.dacl.emplace();
    if (!ParseAccessList(reader, dacl, generic, *parsed.dacl)) return false;
  }
  parsed.dacl_protected = (control & kControlDaclProtected) != 0;
  security = std::move(parsed);
  return true;
}

bool Grants(const ObjectSecurity& security, const std::vector<Sid>& sids, std::uint32_t desired) {
  if (!security.dacl) return true;
  std::uint32_t missing = desired;
  if (!security.owner.empty() && Contains(sids, security.owner)) {
    missing &= ~(kRightReadControl | kRightWriteDac);
  }
  for (const AccessEntry& entry : *security.dacl) {
    if (missing == 0) break;
    if (!Contains(sids, entry.sid)) continue;
    if (!entry.allow && (entry.mask & missing) != 0) return false;
    if (entry.allow) missing &= ~entry.mask;
  }
  return missing == 0;
}

ObjectSecurity DefaultSecurity() {
  // The platform also names five of Windows's own services here; no caller of the model is one.
  const Sid network_operators = MakeSid(5, {32, 556});
  ObjectSecurity security;
  security.owner = LocalSystemSid();
  security.dacl = {
      {.allow = true, .mask = kAllRights, .sid = AdministratorsSid()},
      {.allow = true,
       .mask = kEngineRights.read | kEngineRights.write | kEngineRights.execute,
       .sid = network_operators},
      {.allow = true, .mask = kRightOpen | kRightClassify, .sid = EveryoneSid()},
  };
  return security;
}

ObjectSecurity SecurityOfNewObject(const ObjectSecurity* given, const AccessToken& token,
                                   const ObjectSecurity& container) {
  ObjectSecurity security;
  security.owner = token.owner;
  security.dacl = container.dacl;
  if (given == nullptr) return security;
  if (!given->owner.empty()) security.owner = given->owner;
  if (!given->dacl_present) return security;
  if (given->dacl_protected || !given->dacl) {
    security.dacl = given->dacl;
    return security;
  }
  std::vector<AccessEntry> entries = *given->dacl;
  if (container.dacl) entries.insert(entries.end(), container.dacl->begin(), container.dacl->end());
  security.dacl = std::move(entries);
  return security;
}

}  // namespace simulation
