// What of updates lies in the registry, because it must outlive the process: the channel, the last
// check, the installation under way and how the last one went.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/codes.h"
#include "updates/update_state.h"

namespace kestrelon {

// "stable", or "test" where that is asked for on this machine.
[[nodiscard]] std::wstring UpdateChannel();

// The time of the last good check; 0 for none, or one that lies ahead of the clock.
[[nodiscard]] std::int64_t StoredLastCheck();
void StoreLastCheck(std::int64_t time);

inline constexpr std::uint32_t kNoSession = 0xFFFFFFFF;

// The installation under way.
struct PendingInstall {
  std::uint32_t build = 0;
  std::wstring version;
  std::int64_t time = 0;               // its start
  std::uint32_t session = kNoSession;  // where the window is to be opened again
};

// Stores it, and forgets what a helper before it left. The code of what failed when that is still
// there, or the build, which stands for the whole, could not be written.
[[nodiscard]] platform::Code StorePendingInstall(const PendingInstall& pending);
[[nodiscard]] std::optional<PendingInstall> StoredPendingInstall();
void ForgetPendingInstall();

// What the helper ended with: the installer's exit code or one of the helper's own.
void StoreHelperExit(std::uint32_t code);
[[nodiscard]] std::optional<std::uint32_t> StoredHelperExit();

void StoreLastInstall(const LastInstall& last);
[[nodiscard]] LastInstall StoredLastInstall();

}  // namespace kestrelon
