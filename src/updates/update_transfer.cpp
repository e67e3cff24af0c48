#include "updates/update_transfer.h"

#include "base/format.h"
#include "base/text.h"
#include "core/https_get.h"
#include "platform/system_text.h"

namespace kestrelon {
namespace {

// An old answer would hide a new version: neither the machine's cache nor one on the way may give
// it. A redirect is a failure, for only the update host is trusted to answer.
constexpr HttpsPolicy kPolicy = {
    .agent = L"Kestrelon-Update",
    .timeouts = {.resolve = 15000, .connect = 15000, .send = 30000, .receive = 60000},
    .request_flags = platform::kHttpRefresh,
    .headers = L"Cache-Control: no-cache\r\n"};

constinit HttpsClient UpdateTransfers(kPolicy);

// The codes of the HTTP client itself; others have no message worth asking its module for.
constexpr platform::Code kFirstClientCode = 12000;
constexpr platform::Code kLastClientCode = 12200;

std::wstring NetworkErrorText(platform::Code code) {
  std::wstring message;
  if (code >= kFirstClientCode && code <= kLastClientCode) {
    message = platform::ModuleMessage(L"winhttp.dll", code);
  }
  const std::wstring_view trimmed = Trim(message);
  if (trimmed.empty()) return Format(L"network error %u", code);
  return Format(L"%s (%u)", trimmed, code);
}

std::wstring FailureText(const HttpsResult& result) {
  switch (result.outcome) {
    case HttpsOutcome::kBadAddress:
      return L"invalid address";
    case HttpsOutcome::kCancelled:
      return L"the service is stopping";
    case HttpsOutcome::kBadStatus:
      return Format(L"HTTP %u", result.status);
    case HttpsOutcome::kTooLarge:
      return L"the file is larger than expected";
    case HttpsOutcome::kCutOff:
      return L"the download was cut off";
    case HttpsOutcome::kNotTaken:
      return L"cannot save the file";
    default:
      return NetworkErrorText(result.code);
  }
}

// Whether the file has come; else why not.
bool Judge(const HttpsResult& result, std::wstring& error) {
  if (result.outcome == HttpsOutcome::kComplete) return true;
  error = FailureText(result);
  return false;
}

}  // namespace

bool HttpGet(const std::wstring& url, std::int64_t most_bytes, const TransferData& on_data,
             const TransferProgress& on_progress, std::wstring& error) {
  return Judge(UpdateTransfers.Get(url, most_bytes, {on_data, on_progress}), error);
}

bool DownloadText(const std::wstring& url, std::int64_t most_bytes, std::string& text,
                  std::wstring& error) {
  return Judge(UpdateTransfers.GetText(url, most_bytes, text), error);
}

void CancelUpdateTransfers() {
  UpdateTransfers.Cancel();
}

}  // namespace kestrelon
