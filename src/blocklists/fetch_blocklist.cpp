// A fetch may block for as long as its time-outs allow. What ends it earlier is another thread
// closing its request: so the request stands where both find it, and whoever takes it out closes
// it.
#include "blocklists/fetch_blocklist.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "base/format.h"
#include "core/error_text.h"
#include "platform/http.h"

namespace kestrelon {
namespace {

constexpr const wchar_t* kAgent = L"Kestrelon blocklist update";
constexpr platform::HttpTimeouts kTimeouts = {
    .resolve = 15000, .connect = 15000, .send = 30000, .receive = 30000};
constexpr std::uint32_t kStatusOk = 200;
constexpr std::size_t kLargestBody = 0x800000;
constexpr const wchar_t* kStopped = L"stopped";

// Atomic because the refresh thread and the thread that stops it share them.
std::atomic<bool> BlocklistStop = false;           // never cleared
std::atomic<std::uintptr_t> BlocklistRequest = 0;  // the request in progress, 0 for none

void CloseBlocklistRequest() {
  platform::HttpHandle request;
  request.Adopt(BlocklistRequest.exchange(0));
}

// A request while it stands in BlocklistRequest.
class RequestInProgress {
 public:
  explicit RequestInProgress(platform::HttpHandle request) : value_(request.Release()) {
    BlocklistRequest = value_;
  }
  ~RequestInProgress() { CloseBlocklistRequest(); }
  RequestInProgress(const RequestInProgress&) = delete;
  RequestInProgress& operator=(const RequestInProgress&) = delete;

  std::uintptr_t value() const { return value_; }

 private:
  std::uintptr_t value_;
};

// Once a stop has closed the request, the codes of its calls say nothing.
std::wstring FailureText(platform::Code code) {
  return BlocklistStop ? kStopped : ErrorText(code);
}

// What a request hangs on; closed after it, the connection first.
struct Server {
  platform::HttpHandle session;
  platform::HttpHandle connection;
};

platform::Code OpenRequest(const platform::UrlParts& url, Server& server,
                           platform::HttpHandle& request) {
  platform::Code code =
      platform::OpenHttpSession(kAgent, platform::kHttpAutomaticProxy, server.session);
  if (code != platform::kSuccess) return code;
  (void)platform::SetHttpTimeouts(server.session, kTimeouts);
  code = platform::ConnectHttp(server.session, url.host, url.port, server.connection);
  if (code != platform::kSuccess) return code;
  return platform::OpenHttpRequest(server.connection, L"GET", url.path, platform::kHttpSecure,
                                   request);
}

// Sends the request and waits until the server has promised the text.
bool AwaitText(std::uintptr_t request, std::wstring& error) {
  std::uint32_t status = 0;
  platform::Code code = platform::SendHttpRequest(request);
  if (code == platform::kSuccess) code = platform::ReceiveHttpResponse(request);
  if (code == platform::kSuccess) code = platform::QueryHttpStatus(request, status);
  if (code != platform::kSuccess) {
    error = FailureText(code);
    return false;
  }
  if (status != kStatusOk) error = Format(L"HTTP %u", status);
  return status == kStatusOk;
}

// Reads the bytes that have arrived.
platform::Code AppendAvailable(std::uintptr_t request, std::uint32_t available, std::string& text) {
  const std::size_t size = text.size();
  text.resize(size + available);
  std::uint32_t read = 0;
  const platform::Code code = platform::ReadHttpData(request, text.data() + size, available, read);
  text.resize(code == platform::kSuccess ? size + read : size);
  return code;
}

// Reads until nothing is left.
bool ReadText(std::uintptr_t request, std::string& text, std::wstring& error) {
  platform::Code code = platform::kSuccess;
  while (!BlocklistStop) {
    std::uint32_t available = 0;
    code = platform::QueryHttpData(request, available);
    if (code != platform::kSuccess) break;
    if (available == 0) return true;
    if (text.size() + available > kLargestBody) {
      error = L"the list is too large";
      return false;
    }
    code = AppendAvailable(request, available, text);
    if (code != platform::kSuccess) break;
  }
  error = FailureText(code);
  return false;
}

}  // namespace

bool FetchBlocklistUrl(const std::wstring& url, std::string& body, std::wstring& error) {
  platform::UrlParts parts;
  if (platform::CrackUrl(url, parts) != platform::kSuccess || !parts.secure) {
    error = L"invalid URL";
    return false;
  }
  Server server;
  platform::HttpHandle opened;
  if (const platform::Code code = OpenRequest(parts, server, opened)) {
    error = FailureText(code);
    return false;
  }
  const RequestInProgress request(std::move(opened));
  // A stop from here on finds the request; one before has found none.
  if (BlocklistStop) {
    error = kStopped;
    return false;
  }
  std::string text;
  if (!AwaitText(request.value(), error) || !ReadText(request.value(), text, error)) return false;
  body = std::move(text);
  return true;
}

void CancelBlocklistFetches() {
  BlocklistStop = true;
  CloseBlocklistRequest();
}

bool BlocklistFetchesCancelled() {
  return BlocklistStop;
}

}  // namespace kestrelon
