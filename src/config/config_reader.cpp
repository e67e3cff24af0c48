// From a document to a configuration: each value is checked in a fixed order and the first that
// fails ends the reading with a sentence for a person. Nothing is repaired and nothing is kept of
// a document that fails, so that no half of a policy comes into force.
#include <utility>

#include "base/format.h"
#include "base/text.h"
#include "config/address_spec.h"
#include "config/config_file.h"
#include "config/json_fields.h"
#include "platform/security.h"
#include "platform/system_text.h"

namespace kestrelon {
namespace {

constexpr std::size_t kMostHashes = 4096;
constexpr std::size_t kMostModules = 64;
constexpr std::size_t kHashDigits = 64;
constexpr std::uint64_t kLastProtocol = 255;

struct BoolKey {
  const char* key;
  bool otherwise;
  bool Config::*member;
};

constexpr BoolKey kSwitches[] = {
    {"enabled", true, &Config::enabled},
    {"allow_loopback", true, &Config::allow_loopback},
    {"boot_time_filter", true, &Config::boot_time_filter},
    {"notifications", true, &Config::notifications},
    {"notify_system", true, &Config::notify_system},
    {"log_allowed", false, &Config::log_allowed},
};
constexpr BoolKey kUpdateSwitches[] = {
    {"blocklists_auto_update", true, &Config::blocklists_auto_update},
    {"updates_auto_check", true, &Config::updates_auto_check},
};

template <std::size_t N>
bool ReadBools(const Json& document, const BoolKey (&keys)[N], Config& config,
               std::wstring& error) {
  for (const BoolKey& key : keys) {
    if (!ReadBool(document, key.key, key.otherwise, config.*key.member, error)) return false;
  }
  return true;
}

// An array member; an absent one reads as no elements.
bool FindArray(const Json& object, std::string_view key, const Json*& array, std::wstring& error) {
  array = &object.Get(key);
  if (array->IsNull() || array->IsArray()) return true;
  error = Format(L"'%s' must be an array", WideFromUtf8(key));
  return false;
}

// A list of texts; empty ones are dropped. `not_text` is the sentence for any other element.
bool ReadTexts(const Json& document, std::string_view key, const wchar_t* not_text,
               std::vector<std::wstring>& texts, std::wstring& error) {
  const Json* array = nullptr;
  if (!FindArray(document, key, array, error)) return false;
  for (std::size_t i = 0; i < array->size(); ++i) {
    if (!array->At(i).IsString()) {
      error = not_text;
      return false;
    }
    std::wstring text = TrimmedText(array->At(i));
    if (!text.empty()) texts.push_back(std::move(text));
  }
  return true;
}

bool ReadCustomBlocklist(const Json& document, Config& config, std::wstring& error) {
  if (!ReadText(document, "custom_blocklist", config.custom_blocklist, error)) return false;
  std::vector<AddressEntry> entries;
  std::wstring reason;
  if (ParseAddressSpec(config.custom_blocklist, entries, reason)) return true;
  error = Format(L"your own malicious networks: %s", reason);
  return false;
}

bool ReadPresetsVersion(const Json& document, Config& config, std::wstring& error) {
  std::int64_t version = 0;
  if (!ReadWholeNumber(document, "presets_version", version, error)) return false;
  config.presets_version = static_cast<std::int32_t>(version);
  return true;
}

// "allow" or "block", exactly.
bool ActionFromText(std::wstring_view text, bool& allow) {
  allow = text == L"allow";
  return allow || text == L"block";
}

// The accepted form of a hash: 64 hexadecimal digits, in lower case; empty for anything else.
std::wstring HashFromJson(const Json& value) {
  std::wstring hash = TrimmedText(value);
  if (hash.size() != kHashDigits) return {};
  for (wchar_t& c : hash) {
    if (c >= L'A' && c <= L'F') c = static_cast<wchar_t>(c - L'A' + L'a');
    if (!((c >= L'0' && c <= L'9') || (c >= L'a' && c <= L'f'))) return {};
  }
  return hash;
}

bool ReadHashes(const Json& object, std::vector<std::wstring>& hashes, std::wstring& error) {
  const Json* array = nullptr;
  if (!FindArray(object, "sha256", array, error)) return false;
  if (array->size() > kMostHashes) {
    error = L"too many 'sha256' values";
    return false;
  }
  hashes.reserve(array->size());
  for (std::size_t i = 0; i < array->size(); ++i) {
    std::wstring hash = HashFromJson(array->At(i));
    if (hash.empty()) {
      error = L"invalid 'sha256' value";
      return false;
    }
    hashes.push_back(std::move(hash));
  }
  return true;
}

bool ReadAppFields(const Json& object, AppEntry& app, std::wstring& error) {
  return ReadBool(object, "inbound", false, app.inbound, error) &&
         ReadWholeNumber(object, "added", app.added, error) &&
         ReadText(object, "signer", app.signer, error) &&
         ReadText(object, "product", app.product, error) &&
         ReadBool(object, "trust_updates", true, app.trust_updates, error) &&
         ReadWholeNumber(object, "expires", app.expires, error) &&
         ReadBool(object, "until_reboot", false, app.until_reboot, error) &&
         ReadHashes(object, app.sha256, error);
}

bool ReadApp(const Json& object, std::size_t number, AppEntry& app, std::wstring& error) {
  if (!object.IsObject()) {
    error = Format(L"application #%zu is not an object", number);
    return false;
  }
  app.path = TrimmedText(object.Get("path"));
  if (app.path.empty()) {
    error = Format(L"application #%zu has no path", number);
    return false;
  }
  std::wstring action;
  std::wstring reason;
  bool valid = ReadText(object, "action", action, reason);
  if (valid && !object.Has("action")) action = L"allow";
  if (valid && !ActionFromText(action, app.allow)) {
    error = Format(L"invalid application action: %s", action);
    return false;
  }
  valid = valid && ReadAppFields(object, app, reason);
  if (!valid) error = Format(L"application %s: %s", app.path, reason);
  return valid;
}

bool CheckUser(const std::wstring& user, std::wstring& error) {
  platform::Sid sid;
  if (user.empty() || platform::SidFromText(user, sid) == platform::kSuccess) return true;
  error = Format(L"invalid user SID: %s", user);
  return false;
}

bool TakeAction(const Json& object, const std::wstring& action, RuleEntry& rule,
                std::wstring& error) {
  // What a rule does must be said: neither answer would be a safe one to assume.
  if (!object.Has("action")) {
    error = L"missing action (allow or block)";
    return false;
  }
  if (ActionFromText(action, rule.allow)) return true;
  error = Format(L"invalid rule action: %s", action);
  return false;
}

bool TakeDirection(const Json& object, const std::wstring& direction, RuleEntry& rule,
                   std::wstring& error) {
  if (!object.Has("direction") || direction == L"out") {
    rule.direction = kDirectionOut;
  } else if (direction == L"in") {
    rule.direction = kDirectionIn;
  } else if (direction == L"both") {
    rule.direction = kDirectionBoth;
  } else {
    error = Format(L"invalid rule direction: %s", direction);
    return false;
  }
  return true;
}

bool TakeProtocol(std::int64_t protocol, RuleEntry& rule, std::wstring& error) {
  if (static_cast<std::uint64_t>(protocol) > kLastProtocol) {
    error = L"invalid protocol number";
    return false;
  }
  rule.protocol = static_cast<std::uint32_t>(protocol);
  return true;
}

bool CheckSpecs(const RuleEntry& rule, std::wstring& error) {
  std::vector<AddressEntry> addresses;
  std::vector<PortRange> ports;
  return ParseAddressSpec(rule.remote, addresses, error) &&
         ParsePortSpec(rule.remote_ports, ports, error) &&
         ParsePortSpec(rule.local_ports, ports, error);
}

bool ReadRuleFields(const Json& object, RuleEntry& rule, std::wstring& error) {
  std::wstring action;
  std::wstring direction;
  std::int64_t protocol = 0;
  return ReadBool(object, "enabled", true, rule.enabled, error) &&
         ReadText(object, "action", action, error) &&
         ReadText(object, "direction", direction, error) &&
         ReadWholeNumber(object, "protocol", protocol, error) &&
         ReadText(object, "remote", rule.remote, error) &&
         ReadText(object, "remote_ports", rule.remote_ports, error) &&
         ReadText(object, "local_ports", rule.local_ports, error) &&
         ReadText(object, "app", rule.app, error) && ReadText(object, "user", rule.user, error) &&
         CheckUser(rule.user, error) && TakeAction(object, action, rule, error) &&
         TakeDirection(object, direction, rule, error) && TakeProtocol(protocol, rule, error) &&
         CheckSpecs(rule, error);
}

bool ReadRule(const Json& object, std::size_t number, RuleEntry& rule, std::wstring& error) {
  if (!object.IsObject()) {
    error = Format(L"rule #%zu is not an object", number);
    return false;
  }
  std::wstring reason;
  if (!ReadText(object, "name", rule.name, reason)) {
    error = Format(L"rule #%zu: %s", number, reason);
    return false;
  }
  if (rule.name.empty()) rule.name = Format(L"Rule %zu", number);
  if (ReadRuleFields(object, rule, reason)) return true;
  error = Format(L"rule '%s': %s", rule.name, reason);
  return false;
}

bool ReadModule(const Json& object, std::size_t number, ModuleEntry& module, std::wstring& error) {
  if (!object.IsObject()) {
    error = Format(L"module #%zu is not an object", number);
    return false;
  }
  std::wstring reason;
  const bool read = ReadText(object, "id", module.id, reason) &&
                    ReadBool(object, "enabled", false, module.enabled, reason) &&
                    ReadText(object, "version", module.version, reason) &&
                    ReadText(object, "grant", module.grant, reason) &&
                    ReadWholeNumber(object, "approved", module.approved, reason);
  if (!read) {
    error = Format(L"module #%zu: %s", number, reason);
    return false;
  }
  if (module.id.empty()) {
    error = Format(L"module #%zu has no id", number);
    return false;
  }
  return true;
}

// Reads each element of an array member by `read`, which is told the element's number from 1.
template <typename Entry>
bool ReadEntries(const Json& array, bool (*read)(const Json&, std::size_t, Entry&, std::wstring&),
                 std::vector<Entry>& entries, std::wstring& error) {
  entries.reserve(array.size());
  for (std::size_t i = 0; i < array.size(); ++i) {
    if (!read(array.At(i), i + 1, entries.emplace_back(), error)) return false;
  }
  return true;
}

bool ReadApps(const Json& document, Config& config, std::wstring& error) {
  const Json* array = nullptr;
  return FindArray(document, "apps", array, error) &&
         ReadEntries(*array, ReadApp, config.apps, error);
}

bool ReadRules(const Json& document, Config& config, std::wstring& error) {
  const Json* array = nullptr;
  return FindArray(document, "rules", array, error) &&
         ReadEntries(*array, ReadRule, config.rules, error);
}

bool ReadModules(const Json& document, Config& config, std::wstring& error) {
  const Json* array = nullptr;
  if (!FindArray(document, "modules", array, error)) return false;
  if (array->size() > kMostModules) {
    error = L"too many modules";
    return false;
  }
  for (std::size_t i = 0; i < array->size(); ++i) {
    ModuleEntry module;
    if (!ReadModule(array->At(i), i + 1, module, error)) return false;
    for (const ModuleEntry& earlier : config.modules) {
      if (!platform::EqualIgnoringCase(earlier.id, module.id)) continue;
      error = Format(L"module listed twice: %s", module.id);
      return false;
    }
    config.modules.push_back(std::move(module));
  }
  return true;
}

}  // namespace

bool ConfigFromJson(const Json& document, Config& config, std::wstring& error) {
  if (!document.IsObject()) {
    error = L"configuration is not a JSON object";
    return false;
  }
  Config read;
  const bool valid =
      ReadBools(document, kSwitches, read, error) &&
      ReadTexts(document, "log_allowed_apps", L"'log_allowed_apps' must contain paths",
                read.log_allowed_apps, error) &&
      ReadTexts(document, "blocklists", L"'blocklists' must contain list ids", read.blocklists,
                error) &&
      ReadBools(document, kUpdateSwitches, read, error) &&
      ReadCustomBlocklist(document, read, error) && ReadPresetsVersion(document, read, error) &&
      ReadApps(document, read, error) && ReadRules(document, read, error) &&
      ReadModules(document, read, error);
  if (valid) config = std::move(read);
  return valid;
}

}  // namespace kestrelon
