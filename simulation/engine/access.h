// Access as the platform checks it: SIDs, binary security descriptors, and the walk through an
// access list.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <vector>

#include "platform/security.h"
#include "platform/wfp_records.h"

namespace simulation {

namespace platform = kestrelon::platform;
using kestrelon::Guid;
using platform::Bytes;
using platform::Sid;

// Rights of the filtering engine's objects (FWPM_ACTRL_) and the standard ones that count here.
inline constexpr std::uint32_t kRightAdd = 0x1;
inline constexpr std::uint32_t kRightAddLink = 0x2;
inline constexpr std::uint32_t kRightBeginRead = 0x4;
inline constexpr std::uint32_t kRightBeginWrite = 0x8;
inline constexpr std::uint32_t kRightClassify = 0x10;
inline constexpr std::uint32_t kRightEnum = 0x20;
inline constexpr std::uint32_t kRightOpen = 0x40;
inline constexpr std::uint32_t kRightRead = 0x80;
inline constexpr std::uint32_t kRightSubscribe = 0x200;
inline constexpr std::uint32_t kRightWrite = 0x400;
inline constexpr std::uint32_t kRightDelete = 0x10000;
inline constexpr std::uint32_t kRightReadControl = 0x20000;
inline constexpr std::uint32_t kRightWriteDac = 0x40000;
inline constexpr std::uint32_t kAllRights = 0xF07FF;
// The right that a user condition's descriptor must grant (FWP_ACTRL_MATCH_FILTER).
inline constexpr std::uint32_t kRightMatchFilter = 0x1;

// What the generic rights in an access list stand for with one kind of object.
struct GenericRights {
  std::uint32_t read = 0;
  std::uint32_t write = 0;
  std::uint32_t execute = 0;
  std::uint32_t all = 0;
};
inline constexpr GenericRights kEngineRights = {
    .read = 0x20000 | 0x4 | 0x10 | 0x40 | 0x80 | 0x100,
    .write = 0x20000 | 0x10000 | 0x1 | 0x2 | 0x8 | 0x400,
    .execute = 0x20000 | 0x20 | 0x200,
    .all = kAllRights};
// Of files, and so of pipes.
inline constexpr GenericRights kFileRights = {
    .read = 0x120089, .write = 0x120116, .execute = 0x1200A0, .all = 0x1F01FF};

// Who opens a session. LocalSystem has the Administrators group too, as on the platform.
struct Caller {
  bool local_system = false;
  bool administrator = false;  // elevated
  std::vector<Sid> sids;       // further ones; the first is the user, if not LocalSystem
};

inline Caller LocalSystemCaller() {
  return {.local_system = true, .administrator = true, .sids = {}};
}
inline Caller AdministratorCaller() {
  return {.local_system = false, .administrator = true, .sids = {}};
}

// The identity that a session's checks go by.
struct AccessToken {
  Sid owner;  // of the objects that it makes
  std::vector<Sid> sids;
};

struct AccessEntry {
  bool allow = true;
  std::uint32_t mask = 0;
  Sid sid;
  friend bool operator==(const AccessEntry&, const AccessEntry&) = default;
};

struct ObjectSecurity {
  Sid owner;                                     // empty for none
  std::optional<std::vector<AccessEntry>> dacl;  // nullopt: the null list grants everything
  bool dacl_present = true;     // false: says nothing of the list, so a new object inherits it
  bool dacl_protected = false;  // inherits nothing
};

// "S-1-<authority>-<each part>".
[[nodiscard]] Sid MakeSid(std::uint8_t authority, std::initializer_list<std::uint32_t> parts);
[[nodiscard]] bool IsValidSid(const std::uint8_t* data, std::size_t size);

[[nodiscard]] Sid LocalSystemSid();
[[nodiscard]] Sid AdministratorsSid();
[[nodiscard]] Sid EveryoneSid();
// What the package field holds for a process that isn't in a package: S-1-0-0.
[[nodiscard]] Sid NobodySid();

[[nodiscard]] AccessToken TokenOf(const Caller& caller);

// Reads a self-relative descriptor. False for malformed bytes.
[[nodiscard]] bool ParseDescriptor(const Bytes& bytes, ObjectSecurity& security,
                                   const GenericRights& generic = kEngineRights);

// Whether the token gets all of `desired`: entries in their order, a denial of a right not yet
// granted ends it. The owner has READ_CONTROL and WRITE_DAC by itself.
[[nodiscard]] bool Grants(const ObjectSecurity& security, const std::vector<Sid>& sids,
                          std::uint32_t desired);

// The engine's own access list, which its containers and their objects inherit.
[[nodiscard]] ObjectSecurity DefaultSecurity();

// The security of a new object. `given` may be null. A list that isn't protected is followed by
// what it inherits.
[[nodiscard]] ObjectSecurity SecurityOfNewObject(const ObjectSecurity* given,
                                                 const AccessToken& token,
                                                 const ObjectSecurity& container);

}  // namespace simulation
