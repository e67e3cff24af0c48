// One change of the installed filters: all of it comes into force, or nothing does.
#pragma once

#include <span>
#include <string>

#include "base/guid.h"
#include "platform/wfp.h"

namespace kestrelon {

// A write transaction on a session whose EngineGuard the caller holds. What was begun and not
// committed is aborted at the end of the scope, which leaves the engine as it was. `which` stands
// behind the call in the sentence of a deletion or a commit that failed, such as " (boot)".
class FilterTransaction {
 public:
  explicit FilterTransaction(platform::EngineHandle engine, const wchar_t* which = L"")
      : engine_(engine), which_(which) {}
  ~FilterTransaction();
  FilterTransaction(const FilterTransaction&) = delete;
  FilterTransaction& operator=(const FilterTransaction&) = delete;

  // May wait for another user of the engine as long as the session allows.
  [[nodiscard]] bool Begin(std::wstring& error);

  // Deletes filters; one that somebody else deleted meanwhile counts as done.
  [[nodiscard]] bool DeleteFilters(std::span<const Guid> keys, std::wstring& error);

  // A failure leaves everything as it was before the transaction.
  [[nodiscard]] bool Commit(std::wstring& error);

 private:
  platform::EngineHandle engine_;
  const wchar_t* which_;
  bool open_ = false;
};

}  // namespace kestrelon
