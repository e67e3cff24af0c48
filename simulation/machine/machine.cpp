#include "simulation/machine/machine.h"

namespace simulation {
namespace {

constexpr const wchar_t* kSystemImages[] = {L"svchost.exe", L"lsass.exe", L"ntoskrnl.exe"};

void InstallSystemFiles(FileSystem& files) {
  for (const wchar_t* image : kSystemImages) {
    const std::wstring path = std::wstring(L"C:\\Windows\\System32\\") + image;
    const std::wstring name = image;
    files.Write(path, "MZ image of " + std::string(name.begin(), name.end()));
    files.SignInCatalog(path, L"Microsoft Windows");
    const std::vector<std::uint8_t> english_unicode = {0x09, 0x04, 0xB0, 0x04};
    files.SetVersion(path, L"\\VarFileInfo\\Translation", english_unicode);
    const std::wstring table = L"\\StringFileInfo\\040904b0\\";
    files.SetVersion(path, table + L"ProductName",
                     L"Microsoft\u00AE Windows\u00AE Operating System");
    files.SetVersion(path, table + L"OriginalFilename", image);
  }
  for (const wchar_t* directory : {L"C:\\Windows\\Temp", L"C:\\ProgramData", L"C:\\Program Files",
                                   L"C:\\Program Files (x86)", L"D:\\"}) {
    files.MakeDirectories(directory);
  }
}

void InstallServices(ServiceTable& services) {
  constexpr std::uint32_t kSharedHost = 1288;  // of a group whose services run in one process
  const std::wstring host = L"%SystemRoot%\\System32\\svchost.exe -k ";
  services.Add({.name = L"BFE",
                .display_name = L"Base Filtering Engine",
                .binary_path = host + L"LocalServiceNoNetworkFirewall -p",
                .sid_type = 3,
                .process_id = 1716});
  services.Add({.name = L"Dnscache",
                .display_name = L"DNS Client",
                .binary_path = host + L"NetworkService -p",
                .sid_type = 1,
                .process_id = 1944});
  services.Add({.name = L"Dhcp",
                .display_name = L"DHCP Client",
                .binary_path = host + L"LocalServiceNetworkRestricted -p",
                .sid_type = 1,
                .process_id = kSharedHost});
  services.Add({.name = L"W32Time",
                .display_name = L"Windows Time",
                .binary_path = host + L"LocalService",
                .sid_type = 1,
                .process_id = 2108});
  services.Add({.name = L"EventLog",
                .display_name = L"Windows Event Log",
                .binary_path = host + L"LocalServiceNetworkRestricted -p",
                .sid_type = 1,
                .process_id = kSharedHost});
}

}  // namespace

Machine::Machine()
    : watches(waits),
      files(faults, clock, watches),
      http(faults),
      pipes(faults, token),
      processes(environment, files, clock, faults),
      sessions(processes, token) {
  faults.WhenPowerGoes([this] {
    pipes.WakeAll();
    http.WakeAll();
    processes.WakeAll();
  });
  engine.SetClock([this] { return clock.SystemTime(); });
  InstallSystemFiles(files);
  InstallServices(services);
  network.SetDnsServers({L"192.0.2.53"});
}

void Machine::Restart() {
  faults.Clear();
  pipes.DropHandles();
  files.PowerOn();
  services.DropHandles();
  network.DropNotifications();
  http.DropHandles();
  windows_firewall.DropHandles();
  sessions.Restart();
  processes.Restart();
  clock.RestartTick();
  engine.Restart();
  engine.Start();
}

Machine& TheMachine() {
  // Never destroyed: threads and static objects may use it until the process has ended.
  static Machine* const machine = new Machine;
  return *machine;
}

}  // namespace simulation
