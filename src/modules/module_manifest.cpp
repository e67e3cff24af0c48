// One small reader for each key, called in a fixed order: the first that fails ends the reading
// with its sentence, and nothing is kept of a manifest that fails.
#include "modules/module_manifest.h"

#include <algorithm>
#include <set>
#include <span>
#include <utility>

#include "base/format.h"
#include "base/text.h"
#include "config/config.h"
#include "config/json.h"
#include "config/json_fields.h"

namespace kestrelon {
namespace {

constexpr std::size_t kLongestId = 40;
constexpr const wchar_t* kIdLetters = L"abcdefghijklmnopqrstuvwxyz0123456789-";
constexpr const wchar_t* kUserSession = L"user_session";
constexpr std::size_t kMostNetworkEntries = 8;
constexpr std::int64_t kLastPort = 65535;
constexpr const wchar_t* kLanScope = L"lan";

// All that a module may ask for. The last two are approved by the user like the first, though no
// command tests them yet.
constexpr std::wstring_view kPermissions[] = {kPermissionStatusRead, L"events.read", L"notify"};

// A word of the manifest and the number that it stands for.
struct Word {
  const wchar_t* text;
  std::uint32_t number;
};

constexpr Word kDirections[] = {
    {L"out", kDirectionOut}, {L"in", kDirectionIn}, {L"both", kDirectionBoth}};
constexpr Word kProtocols[] = {{L"tcp", 6}, {L"udp", 17}};

// A text of the manifest that is kept as it stands there, but for the blanks around it.
struct TextKey {
  const char* key;
  std::wstring ModuleManifest::*member;
};

constexpr TextKey kRequiredTexts[] = {{"name", &ModuleManifest::name},
                                      {"version", &ModuleManifest::version},
                                      {"publisher", &ModuleManifest::publisher}};
constexpr TextKey kOptionalTexts[] = {{"min_kestrelon", &ModuleManifest::min_kestrelon},
                                      {"run", &ModuleManifest::run},
                                      {"description", &ModuleManifest::description}};

bool FindWord(std::span<const Word> words, std::wstring_view text, std::uint32_t& number) {
  const auto found = std::ranges::find(words, text, &Word::text);
  if (found == words.end()) return false;
  number = found->number;
  return true;
}

// The text exactly as it stands, for what is compared with words; empty for any other value.
std::wstring ExactText(const Json& value) {
  return value.StringOr(L"");
}

// An array member, an absent one as no elements; null when it is something else.
const Json* FindArray(const Json& document, std::string_view key, std::wstring& error) {
  const Json& member = document.Get(key);
  if (member.IsNull() || member.IsArray()) return &member;
  error = Format(L"manifest: '%s' must be an array", WideFromUtf8(key));
  return nullptr;
}

bool ParseDocument(std::string_view text, Json& document, std::wstring& error) {
  if (text.size() > kLongestManifest) {
    error = L"manifest is too large";
    return false;
  }
  std::string reason;
  if (Json::Parse(text, document, &reason) && document.IsObject()) return true;
  error = Format(L"manifest is not valid JSON: %s", WideFromUtf8(reason));
  return false;
}

bool ReadId(const Json& document, std::wstring& id, std::wstring& error) {
  id = TrimmedText(document.Get("id"));
  const bool valid = !id.empty() && id.size() <= kLongestId &&
                     id.find_first_not_of(kIdLetters) == std::wstring::npos;
  if (!valid) error = L"manifest: invalid or missing 'id'";
  return valid;
}

bool ReadRequiredTexts(const Json& document, ModuleManifest& manifest, std::wstring& error) {
  for (const TextKey& text : kRequiredTexts) {
    manifest.*text.member = TrimmedText(document.Get(text.key));
    if (!(manifest.*text.member).empty()) continue;
    error = Format(L"manifest: missing '%s'", WideFromUtf8(text.key));
    return false;
  }
  return true;
}

bool ReadOptionalTexts(const Json& document, ModuleManifest& manifest, std::wstring& error) {
  for (const TextKey& text : kOptionalTexts) {
    if (ReadText(document, text.key, manifest.*text.member, error)) continue;
    error = L"manifest: 'min_kestrelon', 'run' and 'description' must be strings";
    return false;
  }
  return true;
}

bool CompleteRun(std::wstring& run, std::wstring& error) {
  if (run.empty()) run = kUserSession;
  if (run == kUserSession) return true;
  error = Format(L"manifest: unknown 'run' value: %s", run);
  return false;
}

bool ReadPermissions(const Json& document, std::vector<std::wstring>& permissions,
                     std::wstring& error) {
  const Json* const array = FindArray(document, "permissions", error);
  if (array == nullptr) return false;
  std::set<std::wstring> named;
  for (std::size_t i = 0; i < array->size(); ++i) {
    const std::wstring permission = ExactText(array->At(i));
    if (std::ranges::find(kPermissions, permission) == std::end(kPermissions)) {
      error = Format(L"manifest: unknown permission '%s'", permission);
      return false;
    }
    named.insert(permission);
  }
  permissions.assign(named.begin(), named.end());
  return true;
}

bool ReadDirection(const Json& element, std::uint32_t& direction, std::wstring& error) {
  const std::wstring text = ExactText(element.Get("dir"));
  if (FindWord(kDirections, text, direction)) return true;
  error = Format(L"manifest: unknown network direction '%s'", text);
  return false;
}

bool ReadProtocol(const Json& element, std::uint32_t& protocol, std::wstring& error) {
  const std::wstring text = ExactText(element.Get("protocol"));
  if (FindWord(kProtocols, text, protocol)) return true;
  error = Format(L"manifest: unknown protocol '%s'", text);
  return false;
}

bool ReadPort(const Json& element, std::uint32_t& port, std::wstring& error) {
  std::int64_t number = 0;
  if (!ReadWholeNumber(element, "port", number, error) || number < 1 || number > kLastPort) {
    error = L"manifest: invalid port";
    return false;
  }
  port = static_cast<std::uint32_t>(number);
  return true;
}

bool ReadScope(const Json& element, std::wstring& scope, std::wstring& error) {
  scope = ExactText(element.Get("scope"));
  if (scope == kLanScope) return true;
  error = Format(L"manifest: unknown network scope '%s'", scope);
  return false;
}

bool ReadWhy(const Json& element, std::wstring& why, std::wstring& error) {
  why = TrimmedText(element.Get("why"));
  if (!why.empty()) return true;
  error = L"manifest: a network entry must say why it is needed";
  return false;
}

bool ReadNetworkEntry(const Json& element, ModuleNetworkEntry& entry, std::wstring& error) {
  if (!element.IsObject()) {
    error = L"manifest: a network entry is not an object";
    return false;
  }
  return ReadDirection(element, entry.direction, error) &&
         ReadProtocol(element, entry.protocol, error) && ReadPort(element, entry.port, error) &&
         ReadScope(element, entry.scope, error) && ReadWhy(element, entry.why, error);
}

bool ReadNetwork(const Json& document, std::vector<ModuleNetworkEntry>& network,
                 std::wstring& error) {
  const Json* const array = FindArray(document, "network", error);
  if (array == nullptr) return false;
  if (array->size() > kMostNetworkEntries) {
    error = L"manifest: too many network entries";
    return false;
  }
  network.resize(array->size());
  for (std::size_t i = 0; i < array->size(); ++i) {
    if (!ReadNetworkEntry(array->At(i), network[i], error)) return false;
  }
  return true;
}

bool RefuseDownloads(const Json& document, std::wstring& error) {
  const Json* const array = FindArray(document, "downloads", error);
  if (array == nullptr) return false;
  if (array->size() == 0) return true;
  error = L"manifest: modules may not download anything";
  return false;
}

bool ReadManifest(std::string_view text, ModuleManifest& manifest, std::wstring& error) {
  Json document;
  return ParseDocument(text, document, error) && ReadId(document, manifest.id, error) &&
         ReadRequiredTexts(document, manifest, error) &&
         ReadOptionalTexts(document, manifest, error) && CompleteRun(manifest.run, error) &&
         ReadPermissions(document, manifest.permissions, error) &&
         ReadNetwork(document, manifest.network, error) && RefuseDownloads(document, error);
}

// The numbers never exceed 65535; the grant prints them as signed ones.
std::wstring GrantLine(const ModuleNetworkEntry& entry) {
  return Format(L"net:%s/%d/%d/%s", DirectionName(entry.direction),
                static_cast<int>(entry.protocol), static_cast<int>(entry.port), entry.scope);
}

}  // namespace

bool ParseModuleManifest(std::string_view text, ModuleManifest& manifest, std::wstring* error) {
  ModuleManifest read;
  std::wstring reason;
  if (!ReadManifest(text, read, reason)) {
    if (error != nullptr) *error = std::move(reason);
    return false;
  }
  manifest = std::move(read);
  return true;
}

const wchar_t* DirectionName(std::uint32_t direction) {
  const auto* const found = std::ranges::find(kDirections, direction, &Word::number);
  return found == std::end(kDirections) ? L"" : found->text;
}

std::wstring ModuleGrantText(const ModuleManifest& manifest) {
  std::vector<std::wstring> network;
  for (const ModuleNetworkEntry& entry : manifest.network) network.push_back(GrantLine(entry));
  std::ranges::sort(network);

  std::wstring grant;
  for (const std::wstring& permission : manifest.permissions) grant += L"perm:" + permission + L"|";
  for (const std::wstring& line : network) grant += line + L"|";
  if (!grant.empty()) grant.pop_back();
  return grant;
}

}  // namespace kestrelon
