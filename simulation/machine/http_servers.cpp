#include "simulation/machine/http_servers.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "simulation/machine/url_text.h"

namespace simulation {

using kestrelon::platform::HttpTimeouts;
using kestrelon::platform::kHttpSecure;
using kestrelon::platform::kInvalidHandle;
using kestrelon::platform::kSuccess;
using kestrelon::platform::UrlParts;

namespace {

constexpr Code kNameNotResolved = 12007;
constexpr Code kOperationCancelled = 12017;
constexpr Code kIncorrectHandleType = 12018;
constexpr Code kIncorrectHandleState = 12019;
constexpr Code kCannotConnect = 12029;
constexpr Code kHeaderNotFound = 12150;
constexpr Code kRedirectFailed = 12156;

constexpr std::uint32_t kNotFound = 404;
constexpr std::uint32_t kFound = 302;
constexpr int kMostRedirects = 10;  // the platform's default

// Where a Location leads; whether the client goes there. By its default policy it never leaves TLS.
bool Follow(const std::wstring& location, UrlParts& target) {
  UrlParts next = target;
  if (location.starts_with(L'/')) {
    next.path = location;
  } else if (ParseUrl(location, next) != kSuccess) {
    return false;
  }
  if (target.secure && !next.secure) return false;
  target = next;
  return true;
}

}  // namespace

void HttpServers::Serve(const std::wstring& url, HttpResponse response) {
  UrlParts parts;
  if (ParseUrl(url, parts) != kSuccess) return;
  if (!response.redirect.empty() && response.status / 100 != 3) response.status = kFound;
  // Nobody reads beyond the length that was promised.
  if (response.length && std::cmp_less(*response.length, response.body.size())) {
    response.body.resize(static_cast<std::size_t>(*response.length));
  }
  const std::lock_guard lock(mutex_);
  responses_[UrlText(parts)] = std::move(response);
}

std::vector<HttpRequest> HttpServers::Requests() const {
  const std::lock_guard lock(mutex_);
  return requests_;
}

std::size_t HttpServers::open_handles() const {
  const std::lock_guard lock(mutex_);
  return objects_.size();
}

void HttpServers::WaitForBlocked() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return blocked_ != 0; });
}

void HttpServers::WakeAll() {
  // Under the mutex: a call that has just looked at the power is then asleep and hears it.
  const std::lock_guard lock(mutex_);
  changed_.notify_all();
}

void HttpServers::DropHandles() {
  const std::lock_guard lock(mutex_);
  for (const auto& [handle, object] : objects_) object->dead = true;
  objects_.clear();
  changed_.notify_all();
}

std::uintptr_t HttpServers::Add(Object object) {
  objects_[++last_handle_] = std::make_shared<Object>(std::move(object));
  return last_handle_;
}

Code HttpServers::Find(std::uintptr_t handle, Kind kind, std::shared_ptr<Object>& object) const {
  const auto found = objects_.find(handle);
  if (found == objects_.end()) return kInvalidHandle;
  if (found->second->kind != kind) return kIncorrectHandleType;
  object = found->second;
  return kSuccess;
}

Code HttpServers::FindRequest(std::uintptr_t handle, Phase phase,
                              std::shared_ptr<Object>& request) const {
  if (const Code code = Find(handle, Kind::kRequest, request)) return code;
  return request->phase == phase ? kSuccess : kIncorrectHandleState;
}

std::uintptr_t HttpServers::OpenSession(const std::wstring& agent) {
  const std::lock_guard lock(mutex_);
  return Add({.kind = Kind::kSession, .client = {.agent = agent}});
}

Code HttpServers::SetTimeouts(std::uintptr_t session, const HttpTimeouts& timeouts) {
  const std::lock_guard lock(mutex_);
  std::shared_ptr<Object> object;
  const Code code = Find(session, Kind::kSession, object);
  if (code == kSuccess) object->client.timeouts = timeouts;
  return code;
}

Code HttpServers::ForbidRedirects(std::uintptr_t session) {
  const std::lock_guard lock(mutex_);
  std::shared_ptr<Object> object;
  const Code code = Find(session, Kind::kSession, object);
  if (code == kSuccess) object->client.follows_redirects = false;
  return code;
}

Code HttpServers::Connect(std::uintptr_t session, const std::wstring& host, std::uint16_t port,
                          std::uintptr_t& connection) {
  const std::lock_guard lock(mutex_);
  std::shared_ptr<Object> object;
  if (const Code code = Find(session, Kind::kSession, object)) return code;
  connection = Add({.kind = Kind::kConnection,
                    .client = object->client,
                    .target = {.host = host, .port = port}});
  return kSuccess;
}

Code HttpServers::OpenRequest(std::uintptr_t connection, const std::wstring& path,
                              std::uint32_t flags, std::uintptr_t& request) {
  const std::lock_guard lock(mutex_);
  std::shared_ptr<Object> object;
  if (const Code code = Find(connection, Kind::kConnection, object)) return code;
  UrlParts target = object->target;
  target.secure = (flags & kHttpSecure) != 0;
  target.path = path;
  request =
      Add({.kind = Kind::kRequest, .client = object->client, .target = target, .flags = flags});
  return kSuccess;
}

void HttpServers::Close(std::uintptr_t handle) {
  const std::lock_guard lock(mutex_);
  const auto found = objects_.find(handle);
  if (found == objects_.end()) return;
  found->second->closed = true;
  objects_.erase(found);
  changed_.notify_all();
}

// Puts the request to the server of its target.
void HttpServers::Ask(Object& request) {
  const std::wstring url = UrlText(request.target);
  requests_.push_back({url, request.client, request.flags, request.headers});
  request.position = 0;
  if (const auto found = responses_.find(url); found != responses_.end()) {
    request.response = found->second;
    return;
  }
  request.response = {.failure = kNameNotResolved};
  for (const auto& [other, response] : responses_) {
    UrlParts served;
    if (ParseUrl(other, served) != kSuccess) continue;
    served.path = request.target.path;
    if (UrlText(served) == url) {
      request.response = {.status = kNotFound};
      return;
    }
    served.secure = request.target.secure;
    served.port = request.target.port;
    if (UrlText(served) == url) request.response.failure = kCannotConnect;
  }
}

Code HttpServers::Send(std::uintptr_t handle, const std::wstring& headers) {
  const std::lock_guard lock(mutex_);
  std::shared_ptr<Object> request;
  if (const Code code = FindRequest(handle, Phase::kOpened, request)) return code;
  request->headers = headers;
  Ask(*request);
  if (request->response.failure == kSuccess) request->phase = Phase::kSent;
  return request->response.failure;
}

// Waits for an answer that does not come; tells why it is waited no longer.
Code HttpServers::WaitInVain(const Object& request, std::unique_lock<std::mutex>& lock) {
  const auto stopped = [&] { return request.dead || faults_.power_lost(); };
  ++blocked_;
  changed_.notify_all();
  changed_.wait(lock, [&] { return stopped() || request.closed; });
  --blocked_;
  return stopped() ? kPowerLost : kOperationCancelled;
}

Code HttpServers::Receive(std::uintptr_t handle) {
  std::unique_lock lock(mutex_);
  std::shared_ptr<Object> request;
  if (const Code code = FindRequest(handle, Phase::kSent, request)) return code;
  for (int redirects = 0;; ++redirects) {
    const HttpResponse& response = request->response;
    if (response.silent) return WaitInVain(*request, lock);
    if (response.redirect.empty() || !request->client.follows_redirects) break;
    if (!Follow(response.redirect, request->target)) break;
    if (redirects == kMostRedirects) return kRedirectFailed;
    Ask(*request);
    if (request->response.failure) return request->response.failure;
  }
  request->phase = Phase::kAnswered;
  return kSuccess;
}

Code HttpServers::QueryStatus(std::uintptr_t handle, std::uint32_t& status) const {
  const std::lock_guard lock(mutex_);
  std::shared_ptr<Object> request;
  if (const Code code = FindRequest(handle, Phase::kAnswered, request)) return code;
  status = request->response.status;
  return kSuccess;
}

Code HttpServers::QueryLength(std::uintptr_t handle, std::int64_t& length) const {
  const std::lock_guard lock(mutex_);
  std::shared_ptr<Object> request;
  if (const Code code = FindRequest(handle, Phase::kAnswered, request)) return code;
  const HttpResponse& response = request->response;
  if (response.chunked) return kHeaderNotFound;
  length = response.length.value_or(static_cast<std::int64_t>(response.body.size()));
  return kSuccess;
}

// An answered request and how much of its body has arrived and not been read.
Code HttpServers::AwaitBody(std::uintptr_t handle, std::unique_lock<std::mutex>& lock,
                            std::shared_ptr<Object>& request, std::uint32_t& arrived) {
  if (const Code code = FindRequest(handle, Phase::kAnswered, request)) return code;
  const HttpResponse& response = request->response;
  const std::size_t end = std::min(response.body.size(), response.fail_after);
  if (request->position == end && end == response.fail_after) {
    if (response.stalls) return WaitInVain(*request, lock);
    if (response.read_failure) return response.read_failure;
  }
  arrived =
      static_cast<std::uint32_t>(std::min<std::size_t>(end - request->position, response.chunk));
  return kSuccess;
}

Code HttpServers::QueryData(std::uintptr_t handle, std::uint32_t& available) {
  std::unique_lock lock(mutex_);
  std::shared_ptr<Object> request;
  return AwaitBody(handle, lock, request, available);
}

Code HttpServers::Read(std::uintptr_t handle, void* bytes, std::uint32_t size,
                       std::uint32_t& read) {
  std::unique_lock lock(mutex_);
  std::shared_ptr<Object> request;
  std::uint32_t arrived = 0;
  if (const Code code = AwaitBody(handle, lock, request, arrived)) return code;
  read = std::min(arrived, size);
  std::memcpy(bytes, request->response.body.data() + request->position, read);
  request->position += read;
  return kSuccess;
}

}  // namespace simulation
