// What somebody could lay beside the executable under a system library's name: it tells when it is
// loaded.
#include <windows.h>

BOOL WINAPI DllMain(HINSTANCE /*library*/, DWORD reason, LPVOID /*reserved*/) {
  if (reason == DLL_PROCESS_ATTACH) {
    CloseHandle(CreateFileW(L"C:\\planted", GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
  }
  return TRUE;
}
