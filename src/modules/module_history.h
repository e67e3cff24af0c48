// What happened to modules in each session until its user signs out: closed by the user, ended or
// not started too often.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace kestrelon {

// A module's id and a session.
using ModuleInSession = std::pair<std::wstring, std::uint32_t>;

// No lock of its own. Ticks are in ms and never go back.
class ModuleHistory {
 public:
  // The user doesn't want it in this session.
  void NoteClosed(const ModuleInSession& where);

  // It ended by itself at `now`. True when that was the third time within ten minutes, failed
  // starts counted too: it is given up.
  [[nodiscard]] bool NoteCrash(const ModuleInSession& where, std::uint64_t now);

  // It could not be started at `now`. The third such failure gives it up, however far apart they
  // are.
  void NoteFailedStart(const ModuleInSession& where, std::uint64_t now);

  // Whether it may be started there: neither closed by the user nor given up.
  [[nodiscard]] bool MayStart(const ModuleInSession& where) const;

  // Forgets what was in other sessions than these.
  void KeepSessions(const std::vector<std::uint32_t>& sessions);

 private:
  bool GiveUpAtLimit(const ModuleInSession& where);

  std::set<ModuleInSession> closed_by_user_;
  std::set<ModuleInSession> given_up_;
  std::map<ModuleInSession, std::vector<std::uint64_t>> crash_times_;  // oldest first
};

}  // namespace kestrelon
