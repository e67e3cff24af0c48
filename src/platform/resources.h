// Resources of executable files: their version and raw data. Nothing of a file runs.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "platform/codes.h"
#include "platform/handle.h"

namespace kestrelon::platform {

struct VersionBlockState;

// The version resource of one file, loaded by LoadVersionBlock.
class VersionBlock {
 public:
  VersionBlock();
  ~VersionBlock();
  VersionBlock(const VersionBlock&) = delete;
  VersionBlock& operator=(const VersionBlock&) = delete;

  VersionBlockState& state() const { return *state_; }

 private:
  std::unique_ptr<VersionBlockState> state_;
};

[[nodiscard]] Code LoadVersionBlock(const std::wstring& path, VersionBlock& block);

// The bytes of a binary value such as "\VarFileInfo\Translation"; false when there is none.
[[nodiscard]] bool VersionBytes(const VersionBlock& block, const std::wstring& name,
                                std::vector<std::uint8_t>& bytes);

// The text of a value such as "\StringFileInfo\040904b0\ProductName"; false when there is none.
[[nodiscard]] bool VersionText(const VersionBlock& block, const std::wstring& name,
                               std::wstring& text);

// An executable file mapped for its resources alone; while it is open nobody can write to the file.
void CloseResourceImage(std::uintptr_t image);
using ResourceImage = Handle<&CloseResourceImage>;

[[nodiscard]] Code OpenResourceImage(const std::wstring& path, ResourceImage& image);

// The bytes of the resource of raw data (RT_RCDATA) with a name, there while the image is open;
// false when there is none, or it can't be read.
[[nodiscard]] bool FindRawData(const ResourceImage& image, const std::wstring& name,
                               std::span<const std::uint8_t>& bytes);

}  // namespace kestrelon::platform
