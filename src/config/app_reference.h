// The forms that an application text can take beside a path: "service:NAME", "package:NAME" and
// "System" for the kernel. All are recognised without regard to case.
#pragma once

#include <string>
#include <string_view>

namespace kestrelon {

[[nodiscard]] bool IsServiceRef(std::wstring_view text);
// The trimmed service name; empty when the text is no service reference.
[[nodiscard]] std::wstring ServiceRefName(std::wstring_view text);

[[nodiscard]] bool IsPackageRef(std::wstring_view text);
// The trimmed package name; empty when the text is no package reference.
[[nodiscard]] std::wstring PackageRefName(std::wstring_view text);

[[nodiscard]] bool IsSystemApp(std::wstring_view text);

// The file that "System" stands for where a file is needed: the expanded path of ntoskrnl.exe.
[[nodiscard]] std::wstring KernelImagePath();

}  // namespace kestrelon
