#include "filtering/filter_transaction.h"

#include "base/format.h"
#include "core/error_text.h"

namespace kestrelon {

FilterTransaction::~FilterTransaction() {
  // Also after a failed commit: whether that leaves the transaction open is not documented, one
  // left open would fail every later one, and aborting where none is open does no harm.
  if (open_) platform::AbortTransaction(engine_);
}

bool FilterTransaction::Begin(std::wstring& error) {
  const platform::Code code = platform::BeginTransaction(engine_, 0);
  if (code != platform::kSuccess) {
    error = L"FwpmTransactionBegin0: " + ErrorText(code);
    return false;
  }
  open_ = true;
  return true;
}

bool FilterTransaction::DeleteFilters(std::span<const Guid> keys, std::wstring& error) {
  for (const Guid& key : keys) {
    const platform::Code code = platform::DeleteFilter(engine_, key);
    if (code == platform::kSuccess || code == platform::kFilterNotFound) continue;
    error = Format(L"FwpmFilterDeleteByKey0%s: %s", which_, ErrorText(code));
    return false;
  }
  return true;
}

bool FilterTransaction::Commit(std::wstring& error) {
  const platform::Code code = platform::CommitTransaction(engine_);
  if (code != platform::kSuccess) {
    error = Format(L"FwpmTransactionCommit0%s: %s", which_, ErrorText(code));
    return false;
  }
  open_ = false;
  return true;
}

}  // namespace kestrelon
