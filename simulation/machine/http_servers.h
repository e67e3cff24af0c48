// The web servers that the machine can reach, and its HTTP client's sessions, connections and
// requests.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/http.h"
#include "simulation/machine/faults.h"

namespace simulation {

// What a server does with each request for one URL.
struct HttpResponse {
  Code failure = kestrelon::platform::kSuccess;  // no connection comes about: 12029, 12175 ...
  std::uint32_t status = 200;
  std::string body = {};
  // A Location: the client goes there. The status is then 302 unless one of 3xx is given.
  std::wstring redirect = {};
  std::uint32_t chunk = 8192;  // at most so many bytes of the body are there at a time
  // The length that the headers promise: the body's own unless another is given, none if `chunked`.
  std::optional<std::int64_t> length = {};
  bool chunked = false;
  // The connection is lost after so many bytes of the body, and what is called then fails; kSuccess
  // has the body end there.
  std::size_t fail_after = std::string::npos;
  Code read_failure = 12030;
  bool stalls = false;  // nothing comes after these bytes, and nothing fails
  bool silent = false;  // takes the request and never answers
};

// What a client had set for all requests of a session.
struct HttpClient {
  std::wstring agent = {};
  kestrelon::platform::HttpTimeouts timeouts = {};
  bool follows_redirects = true;
};

// One request as a server saw it; a redirected one is another.
struct HttpRequest {
  std::wstring url = {};
  HttpClient client = {};
  std::uint32_t flags = 0;
  std::wstring headers = {};
};

// Any thread. A client waits for a server that sends nothing in real time and without a limit,
// whatever time-outs it has set: until its request is closed or the machine loses its power. Any
// verb is served alike.
class HttpServers {
 public:
  explicit HttpServers(const Faults& faults) : faults_(faults) {}

  // From now on requests for `url` are answered so. A host of which nothing is served has no name
  // that resolves (12007), another port of it refuses connections (12029), and what else is asked
  // of the same port is not found (404).
  void Serve(const std::wstring& url, HttpResponse response);

  // What clients asked for, in order.
  std::vector<HttpRequest> Requests() const;

  // Sessions, connections and requests that are open.
  std::size_t open_handles() const;

  // Returns when a client waits for a server that sends nothing.
  void WaitForBlocked();

  // Lets waiting calls see that the power is gone.
  void WakeAll();

  // The client's handles are dead; the servers stay.
  void DropHandles();

  // The calls of the seam, as platform/http.h tells. Closing a handle leaves those alone that were
  // made of it.
  std::uintptr_t OpenSession(const std::wstring& agent);
  Code SetTimeouts(std::uintptr_t session, const kestrelon::platform::HttpTimeouts& timeouts);
  Code ForbidRedirects(std::uintptr_t session);
  Code Connect(std::uintptr_t session, const std::wstring& host, std::uint16_t port,
               std::uintptr_t& connection);
  Code OpenRequest(std::uintptr_t connection, const std::wstring& path, std::uint32_t flags,
                   std::uintptr_t& request);
  void Close(std::uintptr_t handle);
  Code Send(std::uintptr_t handle, const std::wstring& headers);
  Code Receive(std::uintptr_t handle);
  Code QueryStatus(std::uintptr_t handle, std::uint32_t& status) const;
  Code QueryLength(std::uintptr_t handle, std::int64_t& length) const;
  Code QueryData(std::uintptr_t handle, std::uint32_t& available);
  Code Read(std::uintptr_t handle, void* bytes, std::uint32_t size, std::uint32_t& read);

 private:
  enum class Kind { kSession, kConnection, kRequest };
  enum class Phase { kOpened, kSent, kAnswered };

  struct Object {
    Kind kind = Kind::kSession;
    HttpClient client = {};  // set on the session; what is made of it inherits that
    kestrelon::platform::UrlParts target = {};  // of a connection without a path
    std::uint32_t flags = 0;
    std::wstring headers = {};
    Phase phase = Phase::kOpened;
    HttpResponse response = {};  // once sent
    std::size_t position = 0;    // in its body
    bool closed = false;
    bool dead = false;  // by a restart
  };

  std::uintptr_t Add(Object object);
  Code Find(std::uintptr_t handle, Kind kind, std::shared_ptr<Object>& object) const;
  Code FindRequest(std::uintptr_t handle, Phase phase, std::shared_ptr<Object>& request) const;
  Code AwaitBody(std::uintptr_t handle, std::unique_lock<std::mutex>& lock,
                 std::shared_ptr<Object>& request, std::uint32_t& arrived);
  void Ask(Object& request);
  Code WaitInVain(const Object& request, std::unique_lock<std::mutex>& lock);

  const Faults& faults_;

  mutable std::mutex mutex_;  // guards all below
  std::condition_variable changed_;
  std::map<std::wstring, HttpResponse> responses_;  // by UrlText
  std::vector<HttpRequest> requests_;
  std::map<std::uintptr_t, std::shared_ptr<Object>> objects_;
  std::uintptr_t last_handle_ = 0x2000;
  std::size_t blocked_ = 0;
};

}  // namespace simulation
