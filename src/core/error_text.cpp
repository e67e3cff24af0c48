#include "core/error_text.h"

#include "base/format.h"
#include "base/text.h"
#include "platform/system_text.h"

namespace kestrelon {

std::wstring ErrorText(platform::Code code) {
  std::wstring message = platform::SystemMessage(code);
  // The filtering engine's codes have their texts in its own library.
  if (message.empty()) message = platform::ModuleMessage(L"fwpuclnt.dll", code);
  const std::wstring trimmed(Trim(message));
  return Format(L"0x%08X%s%s", code, trimmed.empty() ? L"" : L" - ", trimmed);
}

}  // namespace kestrelon
