// One small reader for each key, called in a fixed order: the first that fails ends the reading
// with its sentence, and nothing is kept of a manifest that fails.
#include "updates/update_manifest.h"

#include <algorithm>
#include <vector>

#include "base/format.h"
#include "base/text.h"
#include "config/json.h"
#include "deployment.h"
#include "platform/system_text.h"

namespace kestrelon {
namespace {

constexpr std::int64_t kFormat = 1;
constexpr const wchar_t* kProduct = L"Kestrelon";
constexpr std::wstring_view kDigits = L"0123456789";
constexpr std::size_t kVersionGroups = 3;
constexpr std::size_t kLongestVersionGroup = 4;
constexpr std::int64_t kLastBuild = 1'000'000;
constexpr std::int64_t kLargestInstaller = 200 * 1024 * 1024;
constexpr std::size_t kSha256Digits = 64;
constexpr std::size_t kLongestNotes = 1000;
constexpr std::wstring_view kInstallerExtension = L".exe";

// None of these may be in the installer's address: it is a plain path, and its end a file's name.
constexpr std::wstring_view kRefusedInUrls = L"?#\\ \"'<>%";

// A reader takes one thing over into the manifest; what it gives is the sentence of its failure, or
// empty.
using Reader = std::wstring (*)(const Json& document, UpdateManifest& manifest);

// A string that is absent, or something else, counts as the empty one.
std::wstring TextOf(const Json& document, std::string_view key) {
  return document.Get(key).StringOr(L"");
}

bool IsNumberFrom(const Json& value, std::int64_t least, std::int64_t most, std::int64_t& number) {
  if (!value.IsWholeNumber()) return false;
  // A number such as 48.0 is held as a floating one.
  number = value.is_integer() ? value.integer() : static_cast<std::int64_t>(value.floating());
  return number >= least && number <= most;
}

bool IsVersionGroup(std::wstring_view group) {
  return !group.empty() && group.size() <= kLongestVersionGroup &&
         group.find_first_not_of(kDigits) == std::wstring_view::npos;
}

bool IsInstallerUrl(std::wstring_view url) {
  const std::wstring_view base = kUpdateBase;
  return url.starts_with(base) && url.size() > base.size() + kInstallerExtension.size() &&
         url.find_first_of(kRefusedInUrls) == std::wstring_view::npos &&
         url.find(L"..") == std::wstring_view::npos &&
         platform::EqualIgnoringCase(url.substr(url.size() - kInstallerExtension.size()),
                                     kInstallerExtension);
}

std::wstring ReadFormat(const Json& document, UpdateManifest&) {
  std::int64_t format = 0;
  if (IsNumberFrom(document.Get("format"), kFormat, kFormat, format)) return {};
  return L"unknown manifest format";
}

std::wstring ReadProduct(const Json& document, UpdateManifest&) {
  if (TextOf(document, "product") == kProduct) return {};
  return L"the manifest is not for Kestrelon";
}

// The manifest already has the channel that is asked for.
std::wstring ReadChannel(const Json& document, UpdateManifest& manifest) {
  const std::wstring channel = TextOf(document, "channel");
  if (channel == manifest.channel) return {};
  return Format(L"the manifest is for another channel (%s)", channel);
}

std::wstring ReadVersion(const Json& document, UpdateManifest& manifest) {
  manifest.version = TextOf(document, "version");
  const std::vector<std::wstring_view> groups = SplitAt(manifest.version, L".");
  if (groups.size() == kVersionGroups && std::ranges::all_of(groups, IsVersionGroup)) return {};
  return L"invalid version in the manifest";
}

std::wstring ReadBuild(const Json& document, UpdateManifest& manifest) {
  std::int64_t build = 0;
  if (!IsNumberFrom(document.Get("build"), 1, kLastBuild, build)) {
    return L"invalid build number in the manifest";
  }
  manifest.build = static_cast<std::int32_t>(build);
  return {};
}

std::wstring ReadDate(const Json& document, UpdateManifest& manifest) {
  manifest.date = TextOf(document, "date");
  return {};
}

std::wstring ReadUrl(const Json& document, UpdateManifest& manifest) {
  manifest.url = TextOf(document, "url");
  if (IsInstallerUrl(manifest.url)) return {};
  return Format(L"the installer address is not on %s", kUpdateBase);
}

std::wstring ReadSize(const Json& document, UpdateManifest& manifest) {
  if (IsNumberFrom(document.Get("size"), 1, kLargestInstaller, manifest.size)) return {};
  return L"invalid installer size";
}

std::wstring ReadSha256(const Json& document, UpdateManifest& manifest) {
  manifest.sha256 = platform::LowerCase(TextOf(document, "sha256"));
  if (manifest.sha256.size() == kSha256Digits &&
      manifest.sha256.find_first_not_of(L"0123456789abcdef") == std::wstring::npos) {
    return {};
  }
  return L"invalid SHA-256 in the manifest";
}

// Notes that are too long are cut. Where a character takes two units, none is cut in half.
std::wstring NotesOf(const Json& document, std::string_view key) {
  std::wstring notes = TextOf(document, key);
  if (notes.size() <= kLongestNotes) return notes;
  notes.resize(kLongestNotes);
  const bool half = notes.back() >= 0xD800 && notes.back() <= 0xDBFF;
  if (half) notes.pop_back();
  return notes;
}

std::wstring ReadNotes(const Json& document, UpdateManifest& manifest) {
  manifest.notes_sk = NotesOf(document, "notes_sk");
  manifest.notes_en = NotesOf(document, "notes_en");
  return {};
}

constexpr Reader kReaders[] = {ReadFormat, ReadProduct, ReadChannel, ReadVersion, ReadBuild,
                               ReadDate,   ReadUrl,     ReadSize,    ReadSha256,  ReadNotes};

bool ParseDocument(std::string_view bytes, Json& document) {
  return bytes.size() <= kLongestUpdateManifest && Json::Parse(bytes, document) &&
         document.IsObject();
}

}  // namespace

bool ParseUpdateManifest(std::string_view bytes, const std::wstring& channel,
                         UpdateManifest& manifest, std::wstring& error) {
  Json document;
  if (!ParseDocument(bytes, document)) {
    error = L"the update manifest is not valid JSON";
    return false;
  }
  UpdateManifest read;
  read.channel = channel;
  for (const Reader reader : kReaders) {
    if (std::wstring problem = reader(document, read); !problem.empty()) {
      error = std::move(problem);
      return false;
    }
  }
  manifest = std::move(read);
  return true;
}

}  // namespace kestrelon
