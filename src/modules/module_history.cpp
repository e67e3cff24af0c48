#include "modules/module_history.h"

#include <algorithm>

namespace kestrelon {
namespace {

constexpr std::uint64_t kCrashWindowMs = 600000;
constexpr std::size_t kCrashLimit = 3;

}  // namespace

void ModuleHistory::NoteClosed(const ModuleInSession& where) {
  closed_by_user_.insert(where);
}

bool ModuleHistory::NoteCrash(const ModuleInSession& where, std::uint64_t now) {
  std::vector<std::uint64_t>& times = crash_times_[where];
  times.push_back(now);
  std::erase_if(times, [&](std::uint64_t time) { return now - time > kCrashWindowMs; });
  return GiveUpAtLimit(where);
}

void ModuleHistory::NoteFailedStart(const ModuleInSession& where, std::uint64_t now) {
  crash_times_[where].push_back(now);
  GiveUpAtLimit(where);
}

bool ModuleHistory::MayStart(const ModuleInSession& where) const {
  return !closed_by_user_.contains(where) && !given_up_.contains(where);
}

void ModuleHistory::KeepSessions(const std::vector<std::uint32_t>& sessions) {
  const auto is_over = [&](const ModuleInSession& where) {
    return std::ranges::find(sessions, where.second) == sessions.end();
  };
  std::erase_if(closed_by_user_, is_over);
  std::erase_if(given_up_, is_over);
  std::erase_if(crash_times_, [&](const auto& entry) { return is_over(entry.first); });
}

bool ModuleHistory::GiveUpAtLimit(const ModuleInSession& where) {
  if (crash_times_[where].size() < kCrashLimit) return false;
  given_up_.insert(where);
  return true;
}

}  // namespace kestrelon
