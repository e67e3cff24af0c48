#include "platform/http.h"

#include <array>
#include <string_view>

#include "platform/windows/windows_headers.h"

#include <winhttp.h>

namespace kestrelon::platform {
namespace {

HINTERNET Native(std::uintptr_t handle) {
  return reinterpret_cast<HINTERNET>(handle);
}

// Takes what a call has opened, or tells why it has opened nothing.
Code Take(HINTERNET opened, HttpHandle& handle) {
  if (opened == nullptr) return GetLastError();
  handle.Adopt(reinterpret_cast<std::uintptr_t>(opened));
  return kSuccess;
}

Code LengthFromText(std::wstring_view digits, std::int64_t& length) {
  constexpr std::size_t kMostDigits = 18;  // which always fit
  if (digits.empty() || digits.size() > kMostDigits) return kInvalidData;
  std::int64_t value = 0;
  for (const wchar_t digit : digits) {
    if (digit < L'0' || digit > L'9') return kInvalidData;
    value = value * 10 + (digit - L'0');
  }
  length = value;
  return kSuccess;
}

}  // namespace

Code CrackUrl(const std::wstring& url, UrlParts& parts) {
  std::array<wchar_t, 256> host{};
  std::array<wchar_t, 2048> path{};
  URL_COMPONENTS components{};
  components.dwStructSize = sizeof components;
  components.lpszHostName = host.data();
  components.dwHostNameLength = static_cast<DWORD>(host.size());
  // The query is left with the path when nobody asks for it.
  components.lpszUrlPath = path.data();
  components.dwUrlPathLength = static_cast<DWORD>(path.size());
  if (!WinHttpCrackUrl(url.c_str(), static_cast<DWORD>(url.size()), 0, &components)) {
    return GetLastError();
  }
  parts.secure = components.nScheme == INTERNET_SCHEME_HTTPS;
  parts.host.assign(host.data(), components.dwHostNameLength);
  parts.port = components.nPort;
  parts.path.assign(path.data(), components.dwUrlPathLength);
  return kSuccess;
}

void CloseHttp(std::uintptr_t handle) {
  WinHttpCloseHandle(Native(handle));
}

Code OpenHttpSession(const std::wstring& agent, std::uint32_t access_type, HttpHandle& session) {
  return Take(
      WinHttpOpen(agent.c_str(), access_type, WINHTTP_NO_PROXY_NAME, WINHTTP_NO_PROXY_BYPASS, 0),
      session);
}

Code SetHttpTimeouts(const HttpHandle& session, const HttpTimeouts& timeouts) {
  const BOOL set =
      WinHttpSetTimeouts(Native(session.handle()), static_cast<int>(timeouts.resolve),
                         static_cast<int>(timeouts.connect), static_cast<int>(timeouts.send),
                         static_cast<int>(timeouts.receive));
  return set ? kSuccess : GetLastError();
}

Code ForbidHttpRedirects(const HttpHandle& session) {
  DWORD policy = WINHTTP_OPTION_REDIRECT_POLICY_NEVER;
  const BOOL set = WinHttpSetOption(Native(session.handle()), WINHTTP_OPTION_REDIRECT_POLICY,
                                    &policy, sizeof policy);
  return set ? kSuccess : GetLastError();
}

Code ConnectHttp(const HttpHandle& session, const std::wstring& host, std::uint16_t port,
                 HttpHandle& connection) {
  return Take(WinHttpConnect(Native(session.handle()), host.c_str(), port, 0), connection);
}

Code OpenHttpRequest(const HttpHandle& connection, const std::wstring& verb,
                     const std::wstring& path, std::uint32_t flags, HttpHandle& request) {
  return Take(WinHttpOpenRequest(Native(connection.handle()), verb.c_str(), path.c_str(), nullptr,
                                 WINHTTP_NO_REFERER, WINHTTP_DEFAULT_ACCEPT_TYPES, flags),
              request);
}

Code SendHttpRequest(std::uintptr_t request, const std::wstring& headers) {
  const wchar_t* const lines = headers.empty() ? WINHTTP_NO_ADDITIONAL_HEADERS : headers.c_str();
  const BOOL sent = WinHttpSendRequest(Native(request), lines, static_cast<DWORD>(headers.size()),
                                       WINHTTP_NO_REQUEST_DATA, 0, 0, 0);
  return sent ? kSuccess : GetLastError();
}

Code ReceiveHttpResponse(std::uintptr_t request) {
  return WinHttpReceiveResponse(Native(request), nullptr) ? kSuccess : GetLastError();
}

Code QueryHttpStatus(std::uintptr_t request, std::uint32_t& status) {
  DWORD number = 0;
  DWORD size = sizeof number;
  if (!WinHttpQueryHeaders(Native(request), WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER,
                           WINHTTP_HEADER_NAME_BY_INDEX, &number, &size, WINHTTP_NO_HEADER_INDEX)) {
    return GetLastError();
  }
  status = number;
  return kSuccess;
}

// As text: not every supported system gives the number in more than 32 bits.
Code QueryHttpLength(std::uintptr_t request, std::int64_t& length) {
  std::array<wchar_t, 32> text{};
  DWORD size = sizeof text;
  if (!WinHttpQueryHeaders(Native(request), WINHTTP_QUERY_CONTENT_LENGTH,
                           WINHTTP_HEADER_NAME_BY_INDEX, text.data(), &size,
                           WINHTTP_NO_HEADER_INDEX)) {
    return GetLastError();
  }
  return LengthFromText({text.data(), size / sizeof(wchar_t)}, length);
}

Code QueryHttpData(std::uintptr_t request, std::uint32_t& available) {
  DWORD count = 0;
  if (!WinHttpQueryDataAvailable(Native(request), &count)) return GetLastError();
  available = count;
  return kSuccess;
}

Code ReadHttpData(std::uintptr_t request, void* bytes, std::uint32_t size, std::uint32_t& read) {
  DWORD count = 0;
  if (!WinHttpReadData(Native(request), bytes, size, &count)) return GetLastError();
  read = count;
  return kSuccess;
}

}  // namespace kestrelon::platform
