// Any text as an update manifest: refused with a sentence and without effect, or taken in bounds,
// for the one channel that was asked for.
#include <cstdint>
#include <string_view>

#include "tests/fuzz/property.h"
#include "updates/update_manifest.h"

namespace kestrelon {
namespace {

void CheckVersion(const std::wstring& version) {
  std::size_t dots = 0;
  std::size_t digits = 0;
  for (const wchar_t c : version) {
    PROPERTY(c == L'.' ? digits > 0 && ++dots <= 2 : c >= L'0' && c <= L'9' && digits < 4);
    digits = c == L'.' ? 0 : digits + 1;
  }
  PROPERTY(dots == 2 && digits > 0);
}

// What the address ends in becomes a file's name.
void CheckUrl(const std::wstring& url) {
  PROPERTY(url.starts_with(L"https://localhost:28444/"));
  const std::wstring name = url.substr(url.rfind(L'/') + 1);
  PROPERTY(name.size() >= 4 && name[name.size() - 4] == L'.');
  PROPERTY(url.find_first_of(L"?#\\ \"'<>%") == std::wstring::npos);
  PROPERTY(url.find(L"..") == std::wstring::npos);
}

void CheckBounds(const UpdateManifest& manifest) {
  CheckVersion(manifest.version);
  CheckUrl(manifest.url);
  PROPERTY(manifest.build >= 1 && manifest.build <= 1000000);
  PROPERTY(manifest.size >= 1 && manifest.size <= 209715200);
  PROPERTY(manifest.sha256.size() == 64);
  PROPERTY(manifest.sha256.find_first_not_of(L"0123456789abcdef") == std::wstring::npos);
  PROPERTY(manifest.notes_sk.size() <= 1000 && manifest.notes_en.size() <= 1000);
}

void CheckText(std::string_view text) {
  UpdateManifest before;
  before.channel = L"before";
  int taken = 0;
  for (const wchar_t* const channel : {L"stable", L"test"}) {
    UpdateManifest manifest = before;
    std::wstring error;
    if (!ParseUpdateManifest(text, channel, manifest, error)) {
      PROPERTY(!error.empty() && manifest == before);
      continue;
    }
    PROPERTY(error.empty() && manifest.channel == channel && text.size() <= 65536);
    CheckBounds(manifest);
    ++taken;
  }
  PROPERTY(taken <= 1);
}

}  // namespace
}  // namespace kestrelon

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kestrelon::CheckText({reinterpret_cast<const char*>(data), size});
  return 0;
}
