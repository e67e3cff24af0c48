#include "blocklists/fetch_blocklist.h"

#include <cstdint>

#include "base/format.h"
#include "core/error_text.h"
#include "core/https_get.h"

namespace kestrelon {
namespace {

// A feed may have moved, and may end short of what it promised: each line of it stands alone.
constexpr HttpsPolicy kPolicy = {
    .agent = L"Kestrelon blocklist update",
    .timeouts = {.resolve = 15000, .connect = 15000, .send = 30000, .receive = 30000},
    .follows_redirects = true,
    .heeds_length = false};
constexpr std::int64_t kLargestBody = 0x800000;

constinit HttpsClient BlocklistFetches(kPolicy);

std::wstring FailureText(const HttpsResult& result) {
  switch (result.outcome) {
    case HttpsOutcome::kBadAddress:
      return L"invalid URL";
    case HttpsOutcome::kCancelled:
      return L"stopped";
    case HttpsOutcome::kBadStatus:
      return Format(L"HTTP %u", result.status);
    case HttpsOutcome::kTooLarge:
      return L"the list is too large";
    default:
      return ErrorText(result.code);
  }
}

}  // namespace

bool FetchBlocklistUrl(const std::wstring& url, std::string& body, std::wstring& error) {
  const HttpsResult result = BlocklistFetches.GetText(url, kLargestBody, body);
  if (result.outcome == HttpsOutcome::kComplete) return true;
  error = FailureText(result);
  return false;
}

void CancelBlocklistFetches() {
  BlocklistFetches.Cancel();
}

bool BlocklistFetchesCancelled() {
  return BlocklistFetches.cancelled();
}

}  // namespace kestrelon
