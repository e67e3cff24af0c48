// Any bytes as a JSON text: refused with a reason and without effect, or read, written and read
// again without loss.
#include <cstdint>
#include <set>
#include <string_view>

#include "config/json.h"
#include "tests/fuzz/property.h"

namespace kestrelon {
namespace {

void CheckSame(const Json& a, const Json& b) {
  PROPERTY(a.kind() == b.kind());
  PROPERTY(a.boolean() == b.boolean());
  // Both are finite; -0.0 may come back as 0, which compares equal.
  PROPERTY(a.floating() == b.floating());
  PROPERTY(!a.is_integer() || a.integer() == b.integer());
  PROPERTY(a.text() == b.text());
  PROPERTY(a.size() == b.size());
  std::set<std::string_view> keys;
  for (std::size_t i = 0; i < a.size(); ++i) {
    CheckSame(a.At(i), b.At(i));
    CheckSame(a.ValueAt(i), b.ValueAt(i));
    if (!a.IsObject()) continue;
    PROPERTY(a.KeyAt(i) == b.KeyAt(i));
    PROPERTY(keys.insert(a.KeyAt(i)).second);
  }
}

void CheckText(std::string_view text) {
  Json value = "before";
  std::string error;
  if (!Json::Parse(text, value, &error)) {
    PROPERTY(!error.empty() && value.text() == "before");
    return;
  }
  PROPERTY(error.empty());
  const Json copy = value;
  const std::string compact = value.Dump(false);
  for (const std::string& written : {compact, value.Dump(true)}) {
    Json again;
    PROPERTY(Json::Parse(written, again, &error));
    CheckSame(value, again);
    PROPERTY(again.Dump(false) == compact);
  }
  // Taking the value apart must not reach its copy.
  value["new"] = copy;
  value["new"].Append(value);
  PROPERTY(copy.Dump(false) == compact);
}

}  // namespace
}  // namespace kestrelon

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kestrelon::CheckText({reinterpret_cast<const char*>(data), size});
  return 0;
}
