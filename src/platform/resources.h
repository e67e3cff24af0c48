// Version resources of files.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/codes.h"

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

}  // namespace kestrelon::platform
