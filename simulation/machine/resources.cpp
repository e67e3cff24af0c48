#include "platform/resources.h"

#include "platform/files.h"
#include "simulation/machine/letter_case.h"
#include "simulation/machine/machine.h"

namespace kestrelon::platform {

using simulation::TheMachine;

struct VersionBlockState {
  simulation::FileProperties properties;
};

VersionBlock::VersionBlock() : state_(std::make_unique<VersionBlockState>()) {}
VersionBlock::~VersionBlock() = default;

Code LoadVersionBlock(const std::wstring& path, VersionBlock& block) {
  if (const Code fault = TheMachine().faults.Next("LoadVersionBlock")) return fault;
  std::uintptr_t handle = 0;
  if (const Code code =
          TheMachine().files.Open(path, kGenericRead, kShareAll, kOpenExisting, 0, handle)) {
    return code;
  }
  File file;
  file.Adopt(handle);
  std::string content;
  simulation::FileProperties properties;
  if (const Code code = TheMachine().files.Inspect(handle, content, properties)) return code;
  if (properties.version_texts.empty() && properties.version_bytes.empty()) {
    return kResourceNotFound;
  }
  block.state().properties = std::move(properties);
  return kSuccess;
}

bool VersionBytes(const VersionBlock& block, const std::wstring& name,
                  std::vector<std::uint8_t>& bytes) {
  const auto& values = block.state().properties.version_bytes;
  const auto found = values.find(simulation::FoldCase(name));
  if (found == values.end()) return false;
  bytes = found->second;
  return true;
}

bool VersionText(const VersionBlock& block, const std::wstring& name, std::wstring& text) {
  const auto& values = block.state().properties.version_texts;
  const auto found = values.find(simulation::FoldCase(name));
  if (found == values.end()) return false;
  text = found->second;
  return true;
}

}  // namespace kestrelon::platform
