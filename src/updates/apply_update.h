// The helper that outlives the service while an installer replaces it: the body of --apply-update.
#pragma once

#include <cstdint>
#include <string>

namespace kestrelon {

// What the helper leaves as its result where the installer has none.
inline constexpr std::uint32_t kHelperRefused = 9001;      // that is no file to run
inline constexpr std::uint32_t kHelperCannotStart = 9002;  // the installer did not start
inline constexpr std::uint32_t kHelperNoExitCode =
    9003;  // it did not end in time, or can't be asked

// Runs a verified installer in silence, leaves its result for the next start, and starts the
// service again. Trusts no caller: the installer is tested once more, and held against changes
// while it runs. Gives the exit code. Blocks for as long as the installer takes, up to 30 minutes.
[[nodiscard]] int ApplyUpdateHelper(const std::wstring& installer_path,
                                    const std::wstring& language);

}  // namespace kestrelon
