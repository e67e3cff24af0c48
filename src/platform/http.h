// Fetching over HTTP, blocking. One handle serves one thread at a time, but for CloseHttp: closing
// a request from another thread makes a call that is blocked in it fail at once.
#pragma once

#include <cstdint>
#include <string>

#include "platform/codes.h"
#include "platform/handle.h"

namespace kestrelon::platform {

inline constexpr std::uint32_t kHttpAutomaticProxy = 4;   // WINHTTP_ACCESS_TYPE_AUTOMATIC_PROXY
inline constexpr std::uint32_t kHttpSecure = 0x00800000;  // WINHTTP_FLAG_SECURE: TLS
inline constexpr std::uint32_t kHttpRefresh = 0x100;      // WINHTTP_FLAG_REFRESH: no cached answer

struct UrlParts {
  bool secure = false;  // the scheme is "https"
  std::wstring host;
  std::uint16_t port = 0;
  std::wstring path = {};  // with the query; "/..." or empty
};

// Takes a URL apart. Host and path must fit 256 and 2048 characters with their closing null.
[[nodiscard]] Code CrackUrl(const std::wstring& url, UrlParts& parts);

void CloseHttp(std::uintptr_t handle);
using HttpHandle = Handle<&CloseHttp>;  // of a session, a connection or a request

[[nodiscard]] Code OpenHttpSession(const std::wstring& agent, std::uint32_t access_type,
                                   HttpHandle& session);

struct HttpTimeouts {  // all in ms
  std::uint32_t resolve = 0;
  std::uint32_t connect = 0;
  std::uint32_t send = 0;
  std::uint32_t receive = 0;

  bool operator==(const HttpTimeouts&) const = default;
};
Code SetHttpTimeouts(const HttpHandle& session, const HttpTimeouts& timeouts);

// From now on a redirect is a response like any other, and not followed.
[[nodiscard]] Code ForbidHttpRedirects(const HttpHandle& session);

// Names the server; nothing is sent yet.
[[nodiscard]] Code ConnectHttp(const HttpHandle& session, const std::wstring& host,
                               std::uint16_t port, HttpHandle& connection);

// `flags`: kHttpSecure and others of the platform's.
[[nodiscard]] Code OpenHttpRequest(const HttpHandle& connection, const std::wstring& verb,
                                   const std::wstring& path, std::uint32_t flags,
                                   HttpHandle& request);

// The calls of a running request take its bare value, which another thread may close meanwhile;
// they then fail.

// Sends the request without a body, with headers of the caller's: none, or lines that each end in
// "\r\n".
[[nodiscard]] Code SendHttpRequest(std::uintptr_t request, const std::wstring& headers);

// Waits for the status line and the headers; redirects are followed unless that was forbidden.
[[nodiscard]] Code ReceiveHttpResponse(std::uintptr_t request);

[[nodiscard]] Code QueryHttpStatus(std::uintptr_t request, std::uint32_t& status);

// The length of the body that the headers promise, in bytes; a failure when they promise none or
// one of more than 18 digits.
[[nodiscard]] Code QueryHttpLength(std::uintptr_t request, std::int64_t& length);

// Waits until some of the body is there; 0 bytes mean that it is complete.
[[nodiscard]] Code QueryHttpData(std::uintptr_t request, std::uint32_t& available);

// Waits for more of the body; nothing read means that it is complete.
[[nodiscard]] Code ReadHttpData(std::uintptr_t request, void* bytes, std::uint32_t size,
                                std::uint32_t& read);

}  // namespace kestrelon::platform
