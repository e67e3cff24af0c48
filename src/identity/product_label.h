// What a file says of its product, in one comparable text.
#pragma once

#include <string>

namespace kestrelon {

// "product name|original file name" in lower case from the version resource; empty without both.
// "System" stands for the kernel's image.
[[nodiscard]] std::wstring ProductLabel(const std::wstring& path);

}  // namespace kestrelon
