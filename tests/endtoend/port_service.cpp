// port_service.exe PORT: a Windows service named PortHolder that holds a UDP port of the loopback
// address until it is stopped. Under Wine a socket has an owner only once it was used: it has sent
// itself a byte before the service reports that it runs.
#include <winsock2.h>

#include <ws2tcpip.h>

#include <windows.h>

#include <cwchar>

namespace {

wchar_t service_name[] = L"PortHolder";

// Set once in wmain.
unsigned short port = 0;

// Of the service's thread and the control handler.
SERVICE_STATUS_HANDLE status_handle = nullptr;
HANDLE stop_event = nullptr;

void ReportStatus(DWORD state, DWORD exit_code = NO_ERROR) {
  SERVICE_STATUS status{};
  status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
  status.dwCurrentState = state;
  status.dwControlsAccepted = state == SERVICE_RUNNING ? SERVICE_ACCEPT_STOP : 0;
  status.dwWin32ExitCode = exit_code;
  SetServiceStatus(status_handle, &status);
}

DWORD WINAPI HandleControl(DWORD control, DWORD /*event*/, void* /*data*/, void* /*context*/) {
  if (control == SERVICE_CONTROL_STOP) SetEvent(stop_event);
  const bool known = control == SERVICE_CONTROL_STOP || control == SERVICE_CONTROL_INTERROGATE;
  return known ? NO_ERROR : ERROR_CALL_NOT_IMPLEMENTED;
}

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

void WINAPI ServiceMain(DWORD /*count*/, wchar_t** /*arguments*/) {
  stop_event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  status_handle = RegisterServiceCtrlHandlerExW(service_name, HandleControl, nullptr);
  if (!HoldPort()) {
    ReportStatus(SERVICE_STOPPED, ERROR_SERVICE_SPECIFIC_ERROR);
    return;
  }
  ReportStatus(SERVICE_RUNNING);
  WaitForSingleObject(stop_event, INFINITE);
  ReportStatus(SERVICE_STOPPED);
}

}  // namespace

int wmain(int count, wchar_t** arguments) {
  if (count == 2) port = static_cast<unsigned short>(std::wcstoul(arguments[1], nullptr, 10));
  if (port == 0) return 2;
  const SERVICE_TABLE_ENTRYW table[] = {{service_name, ServiceMain}, {nullptr, nullptr}};
  return StartServiceCtrlDispatcherW(table) ? 0 : 1;
}
