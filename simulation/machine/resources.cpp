#include "platform/resources.h"

#include "platform/files.h"
#include "simulation/machine/letter_case.h"
#include "simulation/machine/machine.h"

namespace kestrelon::platform {

using simulation::TheMachine;

namespace {

constexpr Code kNoImage = 193;  // ERROR_BAD_EXE_FORMAT

// A file as it was when its image was opened; held against writers for as long.
struct Image {
  File file;
  simulation::FileProperties properties;
};

// Opens a file and takes its content and what a test gave it.
Code Inspect(const std::wstring& path, std::uint32_t share, File& file, std::string& content,
             simulation::FileProperties& properties) {
  std::uintptr_t handle = 0;
  if (const Code code =
          TheMachine().files.Open(path, kGenericRead, share, kOpenExisting, 0, handle)) {
    return code;
  }
  file.Adopt(handle);
  return TheMachine().files.Inspect(handle, content, properties);
}

}  // namespace

struct VersionBlockState {
  simulation::FileProperties properties;
};

VersionBlock::VersionBlock() : state_(std::make_unique<VersionBlockState>()) {}
VersionBlock::~VersionBlock() = default;

Code LoadVersionBlock(const std::wstring& path, VersionBlock& block) {
  if (const Code fault = TheMachine().faults.Next("LoadVersionBlock")) return fault;
  File file;
  std::string content;
  simulation::FileProperties properties;
  if (const Code code = Inspect(path, kShareAll, file, content, properties)) return code;
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

void CloseResourceImage(std::uintptr_t image) {
  delete reinterpret_cast<Image*>(image);
}

Code OpenResourceImage(const std::wstring& path, ResourceImage& image) {
  if (const Code fault = TheMachine().faults.Next("OpenResourceImage")) return fault;
  auto opened = std::make_unique<Image>();
  std::string content;
  if (const Code code =
          Inspect(path, kShareRead | kShareDelete, opened->file, content, opened->properties)) {
    return code;
  }
  if (!content.starts_with("MZ") && opened->properties.raw_data.empty()) return kNoImage;
  image.Adopt(reinterpret_cast<std::uintptr_t>(opened.release()));
  return kSuccess;
}

bool FindRawData(const ResourceImage& image, const std::wstring& name,
                 std::span<const std::uint8_t>& bytes) {
  const auto& resources = reinterpret_cast<const Image*>(image.handle())->properties.raw_data;
  const auto found = resources.find(simulation::FoldCase(name));
  if (found == resources.end()) return false;
  bytes = found->second;
  return true;
}

}  // namespace kestrelon::platform
