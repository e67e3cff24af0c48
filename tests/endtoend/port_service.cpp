// port_service.exe PORT: a Windows service named PortHolder that holds a UDP port of the loopback
// address for as long as its machine runs. Under Wine a socket has an owner only once it was used:
// it has sent itself a byte before the service reports that it runs.
#include <winsock2.h>

#include <windows.h>

#include <cwchar>

namespace {

wchar_t service_name[] = L"PortHolder";

// Set once in wmain.
unsigned short port = 0;

bool HoldPort() {
  WSADATA data;
  if (WSAStartup(MAKEWORD(2, 2), &data) != 0) return false;
  const SOCKET socket = ::socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in own{};
  own.sin_family = AF_INET;
  own.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  own.sin_port = htons(port);
  const auto* const address = reinterpret_cast<const sockaddr*>(&own);
  return bind(socket, address, sizeof own) == 0 &&
         sendto(socket, "x", 1, 0, address, sizeof own) == 1;
}

DWORD WINAPI IgnoreControl(DWORD /*control*/, DWORD /*event*/, void* /*data*/, void* /*context*/) {
  return NO_ERROR;
}

void WINAPI ServiceMain(DWORD /*count*/, wchar_t** /*arguments*/) {
  SERVICE_STATUS status{};
  status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
  status.dwCurrentState = HoldPort() ? SERVICE_RUNNING : SERVICE_STOPPED;
  SetServiceStatus(RegisterServiceCtrlHandlerExW(service_name, IgnoreControl, nullptr), &status);
  if (status.dwCurrentState == SERVICE_RUNNING) Sleep(INFINITE);
}

}  // namespace

int wmain(int count, wchar_t** arguments) {
  if (count == 2) port = static_cast<unsigned short>(std::wcstoul(arguments[1], nullptr, 10));
  if (port == 0) return 2;
  const SERVICE_TABLE_ENTRYW table[] = {{service_name, ServiceMain}, {nullptr, nullptr}};
  return StartServiceCtrlDispatcherW(table) ? 0 : 1;
}
