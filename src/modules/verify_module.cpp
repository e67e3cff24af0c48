// A row of checks, each of which fills in what it learns of the file and gives the problem that it
// meets. The first problem ends the look, so that a user is told of the nearest one.
#include "modules/verify_module.h"

#include <algorithm>
#include <span>
#include <string_view>
#include <utility>

#include "base/format.h"
#include "core/error_text.h"
#include "identity/file_identity.h"
#include "modules/known_modules.h"
#include "platform/resources.h"
#include "platform/system_text.h"

namespace kestrelon {
namespace {

constexpr const wchar_t* kManifestResource = L"KSMANIFEST";

// What is known of a module's file so far.
struct Look {
  ModuleStatus status;
  FileIdentity identity;
  const PinnedModule* pinned = nullptr;  // whose hash the file has; null for any other file
};

// Gives the problem that ends the look; empty when there is none.
using Check = std::wstring (*)(Look& look);

std::wstring FindModule(Look& look) {
  const KnownModule* const known = FindKnownModule(look.status.id);
  if (known == nullptr) return L"unknown module";
  look.status.path = ModulePath(*known);
  return {};
}

std::wstring FindFile(Look& look) {
  look.identity = IdentityFor(look.status.path);
  look.status.installed = look.identity.exists;
  if (look.identity.signed_) look.status.signer = look.identity.signer;
  return look.status.installed ? L"" : L"the module file is missing";
}

// Another file than the pinned one is no problem yet: the user is to see what it claims to be.
std::wstring FindPin(Look& look) {
  const std::vector<PinnedModule>& pinned = PinnedModules();
  const auto found = std::ranges::find_if(pinned, [&look](const PinnedModule& row) {
    return row.id == look.status.id &&
           platform::EqualIgnoringCase(row.sha256, look.identity.sha256);
  });
  if (found != pinned.end()) look.pinned = &*found;
  return {};
}

// Neither hash nor signature is enough by itself: the pinned file is verified once its signature
// is.
std::wstring CheckSigner(Look& look) {
  if (look.pinned == nullptr) return {};
  const std::wstring& publisher = look.pinned->publisher;
  if (!look.identity.signed_) {
    return Format(L"the signature of %s on the module file is not valid", publisher);
  }
  if (look.status.signer != publisher) {
    return Format(L"the module is signed by %s, not by %s", look.status.signer, publisher);
  }
  look.status.verified = true;
  return {};
}

// Takes away what tools put around a text that they store as a resource.
std::string_view WithoutMarks(std::string_view text) {
  constexpr std::string_view kTail("\0\n\r", 3);
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  text = text.substr(0, text.find_last_not_of(kTail) + 1);
  if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
  return text;
}

std::wstring ReadManifest(Look& look) {
  platform::ResourceImage image;
  if (const platform::Code code = platform::OpenResourceImage(look.status.path, image)) {
    return ErrorText(code);
  }
  std::span<const std::uint8_t> bytes;
  if (!platform::FindRawData(image, kManifestResource, bytes) || bytes.empty() ||
      bytes.size() > kLongestManifest) {
    return L"the file has no Kestrelon module manifest";
  }
  const std::string text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  std::wstring problem;
  if (!ParseModuleManifest(WithoutMarks(text), look.status.manifest, &problem)) return problem;
  return {};
}

std::wstring CheckManifestOwner(Look& look) {
  const ModuleManifest& manifest = look.status.manifest;
  if (manifest.id != look.status.id) {
    return Format(L"the manifest belongs to another module (%s)", manifest.id);
  }
  if (look.pinned != nullptr && manifest.publisher != look.pinned->publisher) {
    return Format(L"the manifest names another publisher (%s)", manifest.publisher);
  }
  look.status.manifest_valid = true;
  look.status.grant = ModuleGrantText(manifest);
  return {};
}

std::wstring CheckVerified(Look& look) {
  if (look.status.verified) return {};
  return L"the module file is not the one shipped with this Kestrelon version";
}

constexpr Check kChecks[] = {&FindModule,   &FindFile,           &FindPin,      &CheckSigner,
                             &ReadManifest, &CheckManifestOwner, &CheckVerified};

}  // namespace

ModuleStatus VerifyModule(const std::wstring& id) {
  Look look;
  look.status.id = id;
  for (const Check check : kChecks) {
    look.status.problem = check(look);
    if (!look.status.problem.empty()) break;
  }
  return std::move(look.status);
}

const ModuleEntry* FindModuleEntry(const Config& config, const std::wstring& id) {
  const auto found = std::ranges::find_if(config.modules, [&id](const ModuleEntry& entry) {
    return platform::EqualIgnoringCase(entry.id, id);
  });
  return found == config.modules.end() ? nullptr : &*found;
}

bool ModuleIsActive(const Config& config, const ModuleStatus& status) {
  const ModuleEntry* const entry = FindModuleEntry(config, status.id);
  return entry != nullptr && entry->enabled && status.verified && status.manifest_valid &&
         entry->grant == status.grant;
}

}  // namespace kestrelon
