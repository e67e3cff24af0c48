// Any text as the command line of a service: the program it names is found the same way whatever
// surrounds the line, and nothing behind closing quotes becomes part of it.
#include <cstdint>
#include <string>
#include <string_view>

#include "base/text.h"
#include "identity/service_info.h"
#include "tests/fuzz/property.h"

namespace kestrelon {
namespace {

void Check(std::string_view text) {
  const std::wstring line = WideFromUtf8(text);
  const std::wstring program = ExecutableOfCommandLine(line);
  PROPERTY(ExecutableOfCommandLine(L" \t" + line + L"\r\n ") == program);
  PROPERTY(program.find(L'"') == std::wstring::npos || !Trim(line).starts_with(L'"'));

  // In quotes of its own, arguments behind it change nothing.
  if (line.find(L'"') != std::wstring::npos) return;
  const std::wstring quoted = L'"' + line + L'"';
  PROPERTY(ExecutableOfCommandLine(quoted) == ExecutableOfCommandLine(quoted + L" \"-k\" a.exe"));
}

}  // namespace
}  // namespace kestrelon

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kestrelon::Check({reinterpret_cast<const char*>(data), size});
  return 0;
}
