// What a module says of itself: a small JSON text inside its executable. Pure: any thread, no
// platform.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kestrelon {

// Bytes of the longest manifest that is looked at: nobody has approved its text yet.
inline constexpr std::size_t kLongestManifest = 16384;

inline constexpr const wchar_t* kPermissionStatusRead = L"status.read";

// One port that a module wants to use.
struct ModuleNetworkEntry {
  std::uint32_t direction = 0;  // as in RuleEntry
  std::uint32_t protocol = 0;   // IP protocol number: 6 or 17
  std::uint32_t port = 0;       // 1 to 65535
  std::wstring scope;           // "lan"
  std::wstring why;             // for the user, who approves it; never empty

  friend bool operator==(const ModuleNetworkEntry&, const ModuleNetworkEntry&) = default;
};

struct ModuleManifest {
  std::wstring id;             // 1 to 40 of a-z, 0-9 and "-"
  std::wstring name;           // for people; never empty
  std::wstring version;        // never empty, of any form
  std::wstring publisher;      // never empty
  std::wstring min_kestrelon;  // kept, compared with nothing
  std::wstring run;            // "user_session"
  std::wstring description;
  std::vector<std::wstring> permissions;    // sorted, each once
  std::vector<ModuleNetworkEntry> network;  // in the order of the file, at most 8

  friend bool operator==(const ModuleManifest&, const ModuleManifest&) = default;
};

// Reads a manifest from its UTF-8 text. False, with `manifest` as it was and a sentence in `error`
// unless that is null, when anything in it is not as it must be.
[[nodiscard]] bool ParseModuleManifest(std::string_view text, ModuleManifest& manifest,
                                       std::wstring* error = nullptr);

// The name of a direction in manifests: "out", "in" or "both".
[[nodiscard]] const wchar_t* DirectionName(std::uint32_t direction);

// All that a manifest asks for, as one line whose equality decides whether the user has approved
// it: the permissions and the network entries, both sorted, such as
// "perm:status.read|net:in/17/53535/lan". Names, reasons and versions are no part of it.
[[nodiscard]] std::wstring ModuleGrantText(const ModuleManifest& manifest);

}  // namespace kestrelon
