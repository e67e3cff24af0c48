// Any two texts as paths: whether one is where the other's next version would stand is told both
// ways alike, never of a path and itself, and never across drives, files or depths.
#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

#include "base/text.h"
#include "identity/same_family.h"
#include "platform/system_text.h"
#include "tests/fuzz/property.h"

namespace kestrelon {
namespace {

constexpr std::wstring_view kSlashes = L"\\/";

void Check(const std::wstring& a, const std::wstring& b) {
  PROPERTY(!SameFamilyPath(a, a));
  const bool related = SameFamilyPath(a, b);
  PROPERTY(related == SameFamilyPath(b, a));
  if (!related) return;
  const auto left = SplitAt(a, kSlashes);
  const auto right = SplitAt(b, kSlashes);
  PROPERTY(left.size() == right.size());
  PROPERTY(platform::EqualIgnoringCase(left.back(), right.back()));
  std::size_t differing = 0;
  for (std::size_t i = 0; i < left.size(); ++i) {
    if (!platform::EqualIgnoringCase(left[i], right[i])) ++differing;
  }
  PROPERTY(differing == 1);
}

}  // namespace
}  // namespace kestrelon

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const std::size_t end = std::min(text.find('\n'), size);
  kestrelon::Check(kestrelon::WideFromUtf8(text.substr(0, end)),
                   kestrelon::WideFromUtf8(text.substr(std::min(end + 1, size))));
  return 0;
}
