// What the update endpoint says is the latest version. Only text whose signature was verified gets
// here. Any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kestrelon {

// Bytes of the longest manifest, and of the longest signature, that are fetched at all.
inline constexpr std::uint32_t kLongestUpdateManifest = 65536;
inline constexpr std::uint32_t kLongestManifestSignature = 1024;

struct UpdateManifest {
  std::wstring channel;    // "stable" or "test"
  std::wstring version;    // three groups of 1 to 4 digits
  std::int32_t build = 0;  // 1 to 1000000
  std::wstring date;       // for people; may be empty
  std::wstring url;        // of the installer: on the update host, a plain path, ending in ".exe"
  std::int64_t size = 0;   // bytes of the installer, 1 to 200 MiB
  std::wstring sha256;     // of the installer, 64 lower-case hexadecimal digits
  std::wstring notes_sk;   // at most 1000 characters
  std::wstring notes_en;

  friend bool operator==(const UpdateManifest&, const UpdateManifest&) = default;
};

// Reads the manifest of a channel. False, with `manifest` as it was and a sentence in `error`, when
// anything in it is not as it must be.
[[nodiscard]] bool ParseUpdateManifest(std::string_view bytes, const std::wstring& channel,
                                       UpdateManifest& manifest, std::wstring& error);

}  // namespace kestrelon
