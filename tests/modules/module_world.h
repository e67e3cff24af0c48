// The one known module as a file of the simulated machine.
#pragma once

#include <string>

#include "config/config.h"

namespace kestrelon::test {

inline constexpr const wchar_t* kModuleId = L"lan-messages";
inline constexpr const wchar_t* kModuleFile =
    L"C:\\Program Files\\Kestrelon\\modules\\lan-messages\\KSMessages.exe";
inline constexpr const wchar_t* kModulePublisher = L"TARGON HELVERIK Ltd. Co.";

// What is in the file that development builds pin.
inline constexpr const char* kModuleContent = "module for development builds";

// A manifest that asks for the status and a UDP port inbound, and the text that approves it.
inline constexpr const char* kModuleManifest = R"({
  "id": "lan-messages", "name": "LAN Messages", "version": "1.0",
  "publisher": "TARGON HELVERIK Ltd. Co.", "permissions": ["status.read"],
  "network": [{"dir": "in", "protocol": "udp", "port": 53535, "scope": "lan", "why": "messages"}]
})";
inline constexpr const wchar_t* kModuleGrant = L"perm:status.read|net:in/17/53535/lan";

// Puts the module's file where it belongs, signed by its publisher, with a manifest.
void InstallModule(const std::string& manifest = kModuleManifest);

// The entry of a module that is on, with what its user approved.
ModuleEntry ApprovedModule(const std::wstring& grant = kModuleGrant);

}  // namespace kestrelon::test
