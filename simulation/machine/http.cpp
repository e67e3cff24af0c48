#include "platform/http.h"

#include "simulation/machine/machine.h"
#include "simulation/machine/url_text.h"

namespace kestrelon::platform {
namespace {

using simulation::TheMachine;

constexpr std::uint32_t kNamedProxy = 3;  // WINHTTP_ACCESS_TYPE_NAMED_PROXY

}  // namespace

Code CrackUrl(const std::wstring& url, UrlParts& parts) {
  if (const Code fault = TheMachine().faults.Next("CrackUrl")) return fault;
  return simulation::ParseUrl(url, parts);
}

void CloseHttp(std::uintptr_t handle) {
  TheMachine().faults.Announce("CloseHttp");
  TheMachine().http.Close(handle);
}

Code OpenHttpSession(const std::wstring& agent, std::uint32_t access_type, HttpHandle& session) {
  if (const Code fault = TheMachine().faults.Next("OpenHttpSession")) return fault;
  // A named proxy would need its name.
  if (access_type == kNamedProxy || access_type > kHttpAutomaticProxy) return kInvalidParameter;
  session.Adopt(TheMachine().http.OpenSession(agent));
  return kSuccess;
}

Code SetHttpTimeouts(const HttpHandle& session, const HttpTimeouts& timeouts) {
  if (const Code fault = TheMachine().faults.Next("SetHttpTimeouts")) return fault;
  return TheMachine().http.SetTimeouts(session.handle(), timeouts);
}

Code ForbidHttpRedirects(const HttpHandle& session) {
  if (const Code fault = TheMachine().faults.Next("ForbidHttpRedirects")) return fault;
  return TheMachine().http.ForbidRedirects(session.handle());
}

Code ConnectHttp(const HttpHandle& session, const std::wstring& host, std::uint16_t port,
                 HttpHandle& connection) {
  if (const Code fault = TheMachine().faults.Next("ConnectHttp")) return fault;
  std::uintptr_t handle = 0;
  const Code code = TheMachine().http.Connect(session.handle(), host, port, handle);
  if (code == kSuccess) connection.Adopt(handle);
  return code;
}

Code OpenHttpRequest(const HttpHandle& connection, const std::wstring& /*verb*/,
                     const std::wstring& path, std::uint32_t flags, HttpHandle& request) {
  if (const Code fault = TheMachine().faults.Next("OpenHttpRequest")) return fault;
  std::uintptr_t handle = 0;
  const Code code = TheMachine().http.OpenRequest(connection.handle(), path, flags, handle);
  if (code == kSuccess) request.Adopt(handle);
  return code;
}

Code SendHttpRequest(std::uintptr_t request, const std::wstring& headers) {
  if (const Code fault = TheMachine().faults.Next("SendHttpRequest")) return fault;
  return TheMachine().http.Send(request, headers);
}

Code ReceiveHttpResponse(std::uintptr_t request) {
  if (const Code fault = TheMachine().faults.Next("ReceiveHttpResponse")) return fault;
  return TheMachine().http.Receive(request);
}

Code QueryHttpStatus(std::uintptr_t request, std::uint32_t& status) {
  if (const Code fault = TheMachine().faults.Next("QueryHttpStatus")) return fault;
  return TheMachine().http.QueryStatus(request, status);
}

Code QueryHttpLength(std::uintptr_t request, std::int64_t& length) {
  if (const Code fault = TheMachine().faults.Next("QueryHttpLength")) return fault;
  return TheMachine().http.QueryLength(request, length);
}

Code QueryHttpData(std::uintptr_t request, std::uint32_t& available) {
  if (const Code fault = TheMachine().faults.Next("QueryHttpData")) return fault;
  return TheMachine().http.QueryData(request, available);
}

Code ReadHttpData(std::uintptr_t request, void* bytes, std::uint32_t size, std::uint32_t& read) {
  if (const Code fault = TheMachine().faults.Next("ReadHttpData")) return fault;
  return TheMachine().http.Read(request, bytes, size, read);
}

}  // namespace kestrelon::platform
