// URLs as the platform's HTTP client takes them apart.
#pragma once

#include <string>

#include "platform/http.h"

namespace simulation {

// As platform::CrackUrl tells; `parts` are unchanged on failure.
kestrelon::platform::Code ParseUrl(const std::wstring& url, kestrelon::platform::UrlParts& parts);

// The one text of all URLs with these parts: scheme and host in lower case, the port only if it is
// not the scheme's own, and "/" for an empty path.
std::wstring UrlText(const kestrelon::platform::UrlParts& parts);

}  // namespace simulation
