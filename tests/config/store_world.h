// The configuration's files on the simulated machine, for the tests of the store.
#pragma once

#include <string>

#include "config/config.h"
#include "simulation/machine/machine.h"

namespace kestrelon::test {

inline const std::wstring kDirectory = L"C:\\ProgramData\\Kestrelon";
inline const std::wstring kConfigFile = kDirectory + L"\\config.json";
inline const std::wstring kLastGood = kConfigFile + L".lastgood";
inline const std::wstring kBackups = kDirectory + L"\\backups\\";

class StoreWorld {
 public:
  StoreWorld() { files().MakeDirectories(kDirectory); }

  simulation::Machine& machine() { return simulation::TheMachine(); }
  simulation::FileSystem& files() { return machine().files; }

  // Puts a file in place as a save would have left it.
  void Put(const std::wstring& path, const Config& config);
  // What a file now loads as; fails the test when it doesn't.
  Config Loaded(const std::wstring& path);
  // Marks the machine as one that has had a configuration.
  void SetCreated(std::uint32_t value = 1);
  bool Created();

  // Runs ObtainStartConfig as a fresh process would.
  Config Obtain();
  // Kind, cause and source of the fallback in force, each followed by "|".
  std::wstring Fallback();

  // The messages of service.log without their stamps, each closed by a line feed.
  std::wstring Log();
};

// A configuration by which a test knows again what it wrote.
Config MarkedConfig(const std::wstring& mark);

// What is left when nothing can be recovered.
Config StrictConfig();

}  // namespace kestrelon::test
