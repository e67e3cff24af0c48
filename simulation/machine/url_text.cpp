#include "simulation/machine/url_text.h"

#include <string_view>

#include "simulation/machine/letter_case.h"

namespace simulation {

using kestrelon::platform::Code;
using kestrelon::platform::kInsufficientBuffer;
using kestrelon::platform::kSuccess;
using kestrelon::platform::UrlParts;

namespace {

constexpr Code kInvalidUrl = 12005;
constexpr Code kUnrecognizedScheme = 12006;

constexpr std::uint16_t kHttpPort = 80;
constexpr std::uint16_t kHttpsPort = 443;
constexpr std::size_t kHostBuffer = 256;  // both with the closing null
constexpr std::size_t kPathBuffer = 2048;

std::uint16_t DefaultPort(bool secure) {
  return secure ? kHttpsPort : kHttpPort;
}

bool ParsePort(std::wstring_view digits, std::uint16_t& port) {
  std::uint32_t number = 0;
  for (const wchar_t digit : digits) {
    if (digit < L'0' || digit > L'9') return false;
    number = number * 10 + static_cast<std::uint32_t>(digit - L'0');
    if (number > 0xFFFF) return false;
  }
  port = static_cast<std::uint16_t>(number);
  return true;
}

// "user:password@host:port", with the host perhaps an IPv6 address in brackets.
bool ParseAuthority(std::wstring_view authority, UrlParts& parts) {
  if (const std::size_t at = authority.find(L'@'); at != authority.npos) {
    authority.remove_prefix(at + 1);
  }
  const std::size_t bracket = authority.find(L']');
  const std::size_t colon = authority.find(L':', bracket == authority.npos ? 0 : bracket);
  parts.host = authority.substr(0, colon);
  if (parts.host.empty()) return false;
  parts.port = DefaultPort(parts.secure);
  if (colon == authority.npos || colon + 1 == authority.size()) return true;
  return ParsePort(authority.substr(colon + 1), parts.port);
}

}  // namespace

Code ParseUrl(const std::wstring& url, UrlParts& parts) {
  const std::size_t colon = url.find(L':');
  if (colon == url.npos) return kUnrecognizedScheme;
  const std::wstring scheme = FoldCase(std::wstring_view(url).substr(0, colon));
  UrlParts parsed;
  parsed.secure = scheme == L"HTTPS";
  if (!parsed.secure && scheme != L"HTTP") return kUnrecognizedScheme;

  std::wstring_view rest = std::wstring_view(url).substr(colon + 1);
  if (!rest.starts_with(L"//")) return kInvalidUrl;
  rest.remove_prefix(2);
  const std::size_t end = rest.find_first_of(L"/?#");
  if (!ParseAuthority(rest.substr(0, end), parsed)) return kInvalidUrl;
  if (end != rest.npos) parsed.path = rest.substr(end);
  if (parsed.host.size() >= kHostBuffer || parsed.path.size() >= kPathBuffer) {
    return kInsufficientBuffer;
  }
  parts = parsed;
  return kSuccess;
}

std::wstring UrlText(const UrlParts& parts) {
  std::wstring text = parts.secure ? L"https://" : L"http://";
  for (const wchar_t letter : parts.host) text += LowerLetter(letter);
  if (parts.port != DefaultPort(parts.secure)) text += L':' + std::to_wstring(parts.port);
  if (!parts.path.starts_with(L'/')) text += L'/';
  return text + parts.path;
}

}  // namespace simulation
