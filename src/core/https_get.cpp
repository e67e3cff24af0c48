// A transfer may block for as long as its time-outs allow. What ends it earlier is another thread
// closing its request: so the request stands where both find it, and whoever takes it out closes
// it.
#include "core/https_get.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <utility>

namespace kestrelon {
namespace {

constexpr std::uint32_t kStatusOk = 200;
constexpr std::uint32_t kBufferSize = 65536;
constexpr std::int64_t kUnknown = -1;

using RequestSlot = std::atomic<std::uintptr_t>;

void CloseRequest(RequestSlot& slot) {
  platform::HttpHandle request;
  request.Adopt(slot.exchange(0));
}

// A request while it stands in the slot.
class RequestInProgress {
 public:
  RequestInProgress(RequestSlot& slot, platform::HttpHandle request)
      : slot_(slot), value_(request.Release()) {
    slot_ = value_;
  }
  ~RequestInProgress() { CloseRequest(slot_); }
  RequestInProgress(const RequestInProgress&) = delete;
  RequestInProgress& operator=(const RequestInProgress&) = delete;

  std::uintptr_t value() const { return value_; }

 private:
  RequestSlot& slot_;
  std::uintptr_t value_;
};

// What a request hangs on; closed after it, the connection first.
struct Server {
  platform::HttpHandle session;
  platform::HttpHandle connection;
};

platform::Code OpenRequest(const HttpsPolicy& policy, const platform::UrlParts& url, Server& server,
                           platform::HttpHandle& request) {
  platform::Code code =
      platform::OpenHttpSession(policy.agent, platform::kHttpAutomaticProxy, server.session);
  if (code != platform::kSuccess) return code;
  (void)platform::SetHttpTimeouts(server.session, policy.timeouts);
  if (!policy.follows_redirects) code = platform::ForbidHttpRedirects(server.session);
  if (code != platform::kSuccess) return code;
  code = platform::ConnectHttp(server.session, url.host, url.port, server.connection);
  if (code != platform::kSuccess) return code;
  return platform::OpenHttpRequest(server.connection, L"GET", url.path,
                                   platform::kHttpSecure | policy.request_flags, request);
}

// What has been asked for, and how much of it has come.
struct Transfer {
  const HttpsPolicy& policy;
  std::uintptr_t request;
  std::int64_t most_bytes;
  std::int64_t total = kUnknown;
  std::int64_t received = 0;
};

HttpsResult Failed(platform::Code code) {
  return {.outcome = HttpsOutcome::kFailed, .code = code};
}

// Sends the request and waits until the server has promised the file.
HttpsResult AwaitFile(Transfer& transfer) {
  std::uint32_t status = 0;
  platform::Code code = platform::SendHttpRequest(transfer.request, transfer.policy.headers);
  if (code == platform::kSuccess) code = platform::ReceiveHttpResponse(transfer.request);
  if (code == platform::kSuccess) code = platform::QueryHttpStatus(transfer.request, status);
  if (code != platform::kSuccess) return Failed(code);
  if (status != kStatusOk) return {.outcome = HttpsOutcome::kBadStatus, .status = status};
  // A server that promises no length leaves it unknown.
  if (transfer.policy.heeds_length) {
    (void)platform::QueryHttpLength(transfer.request, transfer.total);
  }
  if (transfer.total > transfer.most_bytes) return {.outcome = HttpsOutcome::kTooLarge};
  return {};
}

// Waits for more of the file and reads as much of it as the buffer takes; nothing means that it is
// complete. A piece too much is not read.
HttpsResult ReadPiece(Transfer& transfer, std::byte* buffer, std::uint32_t& size) {
  platform::Code code = platform::QueryHttpData(transfer.request, size);
  if (code != platform::kSuccess) return Failed(code);
  if (transfer.received + size > transfer.most_bytes) return {.outcome = HttpsOutcome::kTooLarge};
  if (size == 0) return {};
  code = platform::ReadHttpData(transfer.request, buffer, std::min(size, kBufferSize), size);
  if (code != platform::kSuccess) return Failed(code);
  transfer.received += size;
  return {};
}

// Reads until nothing is left.
HttpsResult ReadFile(Transfer& transfer, const HttpsReceiver& receiver,
                     const std::atomic<bool>& stop) {
  const auto buffer = std::make_unique<std::byte[]>(kBufferSize);
  while (!stop) {
    std::uint32_t size = 0;
    const HttpsResult piece = ReadPiece(transfer, buffer.get(), size);
    if (piece.outcome != HttpsOutcome::kComplete) return piece;
    if (size == 0) {
      const bool whole = transfer.total == kUnknown || transfer.total == transfer.received;
      return {.outcome = whole ? HttpsOutcome::kComplete : HttpsOutcome::kCutOff};
    }
    if (!receiver.on_data(buffer.get(), size)) return {.outcome = HttpsOutcome::kNotTaken};
    if (receiver.on_progress) receiver.on_progress(transfer.received, transfer.total);
  }
  return {.outcome = HttpsOutcome::kCancelled};
}

// Once a cancellation has closed the request, the codes of its calls say nothing.
HttpsResult Judged(const HttpsResult& result, bool cancelled) {
  const bool failed = result.outcome == HttpsOutcome::kFailed;
  return failed && cancelled ? HttpsResult{.outcome = HttpsOutcome::kCancelled} : result;
}

}  // namespace

HttpsResult HttpsClient::Get(const std::wstring& url, std::int64_t most_bytes,
                             const HttpsReceiver& receiver) {
  platform::UrlParts parts;
  if (platform::CrackUrl(url, parts) != platform::kSuccess || !parts.secure) {
    return {.outcome = HttpsOutcome::kBadAddress};
  }
  Server server;
  platform::HttpHandle opened;
  if (const platform::Code code = OpenRequest(policy_, parts, server, opened)) {
    return Judged(Failed(code), stop_);
  }
  const RequestInProgress request(request_, std::move(opened));
  // A cancellation from here on finds the request; one before has found none.
  if (stop_) return {.outcome = HttpsOutcome::kCancelled};
  Transfer transfer{.policy = policy_, .request = request.value(), .most_bytes = most_bytes};
  HttpsResult result = AwaitFile(transfer);
  if (result.outcome == HttpsOutcome::kComplete) result = ReadFile(transfer, receiver, stop_);
  return Judged(result, stop_);
}

HttpsResult HttpsClient::GetText(const std::wstring& url, std::int64_t most_bytes,
                                 std::string& text) {
  std::string body;
  const auto append = [&](const void* bytes, std::uint32_t size) {
    body.append(static_cast<const char*>(bytes), size);
    return true;
  };
  const HttpsResult result = Get(url, most_bytes, {.on_data = append});
  if (result.outcome == HttpsOutcome::kComplete) text = std::move(body);
  return result;
}

void HttpsClient::Cancel() {
  stop_ = true;
  CloseRequest(request_);
}

}  // namespace kestrelon
