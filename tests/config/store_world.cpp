#include "tests/config/store_world.h"

#include <gtest/gtest.h>

#include "base/text.h"
#include "config/config_file.h"
#include "config/config_store.h"
#include "config/presets.h"

namespace kestrelon::test {
namespace {

const std::wstring kRegistryKey = L"SOFTWARE\\Kestrelon";
constexpr std::size_t kStampLength = 21;  // "YYYY-MM-DD hh:mm:ss" and two blanks

}  // namespace

void StoreWorld::Put(const std::wstring& path, const Config& config) {
  files().Write(path, ConfigText(config));
}

Config StoreWorld::Loaded(const std::wstring& path) {
  Config config;
  std::wstring error;
  EXPECT_TRUE(LoadConfigFile(path, config, error)) << error;
  return config;
}

void StoreWorld::SetCreated(std::uint32_t value) {
  machine().registry.SetDword(kRegistryKey, L"ConfigCreated", value);
}

bool StoreWorld::Created() {
  return machine().registry.Dword(kRegistryKey, L"ConfigCreated") == 1u;
}

Config StoreWorld::Obtain() {
  const GuardLock lock(ConfigGuard);
  Core.FallbackKind.clear();
  Core.FallbackCause.clear();
  Core.FallbackFrom.clear();
  Config config;
  ObtainStartConfig(config);
  return config;
}

std::wstring StoreWorld::Fallback() {
  const GuardLock lock(ConfigGuard);
  return Core.FallbackKind + L"|" + Core.FallbackCause + L"|" + Core.FallbackFrom + L"|";
}

std::wstring StoreWorld::Log() {
  std::wstring messages;
  const std::wstring text = WideFromUtf8(files().Read(kDirectory + L"\\service.log").value_or(""));
  for (const std::wstring_view line : SplitAt(text, L"\n")) {
    if (line.size() > kStampLength) {
      messages += std::wstring(Trim(line.substr(kStampLength))) + L"\n";
    }
  }
  return messages;
}

Config MarkedConfig(const std::wstring& mark) {
  Config config = DefaultConfig();
  config.apps.push_back({});
  config.apps.back().path = mark;
  return config;
}

Config StrictConfig() {
  Config config = DefaultConfig();
  for (RuleEntry& rule : config.rules) rule.enabled = false;
  return config;
}

}  // namespace kestrelon::test
