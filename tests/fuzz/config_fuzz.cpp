// Any JSON text as a configuration: refused with a sentence and without effect, or taken in a form
// that is written and read again unchanged.
#include <cstdint>
#include <string_view>

#include "config/address_spec.h"
#include "config/config_file.h"
#include "tests/fuzz/property.h"

namespace kestrelon {
namespace {

// What the rest of the product relies on in an accepted configuration.
void CheckPromises(const Config& config) {
  for (const AppEntry& app : config.apps) {
    PROPERTY(!app.path.empty());
    for (const std::wstring& hash : app.sha256) {
      PROPERTY(hash.size() == 64);
      PROPERTY(hash.find_first_not_of(L"0123456789abcdef") == std::wstring::npos);
    }
  }
  std::vector<AddressEntry> addresses;
  std::vector<PortRange> ports;
  std::wstring error;
  for (const RuleEntry& rule : config.rules) {
    PROPERTY(!rule.name.empty() && rule.direction <= kDirectionBoth && rule.protocol <= 255);
    PROPERTY(ParseAddressSpec(rule.remote, addresses, error));
    PROPERTY(ParsePortSpec(rule.remote_ports, ports, error));
    PROPERTY(ParsePortSpec(rule.local_ports, ports, error));
  }
  PROPERTY(ParseAddressSpec(config.custom_blocklist, addresses, error));
  PROPERTY(config.modules.size() <= 64);
  for (const ModuleEntry& module : config.modules) PROPERTY(!module.id.empty());
}

void CheckText(std::string_view text) {
  Json document;
  if (!Json::Parse(text, document)) return;
  Config before;
  before.custom_blocklist = L"before";
  Config config = before;
  std::wstring error;
  if (!ConfigFromJson(document, config, error)) {
    PROPERTY(!error.empty() && config == before);
    return;
  }
  CheckPromises(config);
  const std::string written = ConfigText(config);
  Config again;
  PROPERTY(Json::Parse(written, document));
  PROPERTY(ConfigFromJson(document, again, error));
  PROPERTY(again == config);
  PROPERTY(ConfigText(again) == written);
}

}  // namespace
}  // namespace kestrelon

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kestrelon::CheckText({reinterpret_cast<const char*>(data), size});
  return 0;
}
