// One file over HTTPS. What a client of it allows, sends and says differs; how a transfer runs, is
// bounded and is ended from another thread does not.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

#include "platform/codes.h"
#include "platform/http.h"

namespace kestrelon {

struct HttpsPolicy {
  const wchar_t* agent = L"";
  platform::HttpTimeouts timeouts = {};
  bool follows_redirects = false;   // else one is an answer like any other
  bool heeds_length = true;         // holds the server to the length that it promises, if it does
  std::uint32_t request_flags = 0;  // beside kHttpSecure
  const wchar_t* headers = L"";     // lines that each end in "\r\n"
};

enum class HttpsOutcome {
  kComplete,
  kBadAddress,  // none, or not HTTPS
  kCancelled,
  kFailed,     // HttpsResult::code
  kBadStatus,  // HttpsResult::status is not 200
  kTooLarge,   // more than asked for, promised or sent
  kCutOff,     // not what was promised
  kNotTaken,   // by the receiver
};

struct HttpsResult {
  HttpsOutcome outcome = HttpsOutcome::kComplete;
  platform::Code code = platform::kSuccess;
  std::uint32_t status = 0;
};

struct HttpsReceiver {
  // Takes a piece of the body; false ends the transfer.
  std::function<bool(const void* bytes, std::uint32_t size)> on_data;
  // Told after each piece; `total` is -1 while unknown. May be empty.
  std::function<void(std::int64_t received, std::int64_t total)> on_progress = {};
};

// The transfers of one client, one at a time. Lives for the process, and `policy` longer.
class HttpsClient {
 public:
  explicit constexpr HttpsClient(const HttpsPolicy& policy) : policy_(policy) {}
  HttpsClient(const HttpsClient&) = delete;
  HttpsClient& operator=(const HttpsClient&) = delete;

  // Blocks until the file has come, the transfer failed or was cancelled. Hands on pieces of at
  // most 65536 bytes as they come, and never more than `most_bytes` in all.
  [[nodiscard]] HttpsResult Get(const std::wstring& url, std::int64_t most_bytes,
                                const HttpsReceiver& receiver);

  // The same into a text, which is untouched unless the transfer is complete.
  [[nodiscard]] HttpsResult GetText(const std::wstring& url, std::int64_t most_bytes,
                                    std::string& text);

  // For good: a running transfer fails at once, later ones before they send anything. Any thread.
  void Cancel();
  [[nodiscard]] bool cancelled() const { return stop_; }

 private:
  const HttpsPolicy& policy_;
  // Atomic because the transferring thread and the one that cancels share them.
  std::atomic<bool> stop_ = false;           // never cleared
  std::atomic<std::uintptr_t> request_ = 0;  // the request in progress, 0 for none
};

}  // namespace kestrelon
