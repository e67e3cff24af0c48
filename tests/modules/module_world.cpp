#include "tests/modules/module_world.h"

#include "simulation/machine/machine.h"

namespace kestrelon::test {

void InstallModule(const std::string& manifest) {
  simulation::FileSystem& files = simulation::TheMachine().files;
  files.Write(kModuleFile, kModuleContent);
  files.Sign(kModuleFile, kModulePublisher);
  files.SetRawData(kModuleFile, L"KSMANIFEST", manifest);
}

ModuleEntry ApprovedModule(const std::wstring& grant) {
  ModuleEntry entry;
  entry.id = kModuleId;
  entry.enabled = true;
  entry.grant = grant;
  return entry;
}

}  // namespace kestrelon::test
