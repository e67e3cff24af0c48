// What happened to modules in each session until its user signs out: closed by the user, crashed
// too often.
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

// No lock of its own. Ticks are in ms.
class ModuleHistory {
 public:
  // The user doesn't want it in this session.
  void NoteClosed(const ModuleInSession& where);

  // It ended by itself at `now`. True when it ended too often within the last ten minutes, and is
  // now given up.
  [[nodiscard]] bool NoteCrash(const ModuleInSession& where, std::uint64_t now);

  // It could not be started at `now`. The third such failure gives it up, whenever the others were.
  void NoteFailedStart(const ModuleInSession& where, std::uint64_t now);

  // Whether it may be started there: neither closed by the user nor given up.
  [[nodiscard]] bool MayStart(const ModuleInSession& where) const;

  // What was in other sessions than these is over.
  void KeepSessions(const std::vector<std::uint32_t>& sessions);

 private:
  std::set<ModuleInSession> closed_by_user_;
  std::set<ModuleInSession> given_up_;
  std::map<ModuleInSession, std::vector<std::uint64_t>> crash_times_;  // oldest first
};

}  // namespace kestrelon
