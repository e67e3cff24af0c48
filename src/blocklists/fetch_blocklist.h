// One download of a feed.
#pragma once

#include <string>

namespace kestrelon {

// Fetches a text of at most 8 MiB over HTTPS; redirects are followed. Blocks until it is complete,
// fails or is cancelled. False with a sentence; `body` is unchanged then. One thread at a time.
[[nodiscard]] bool FetchBlocklistUrl(const std::wstring& url, std::string& body,
                                     std::wstring& error);

// For good: a running fetch fails at once, later ones before they send anything. Any thread.
void CancelBlocklistFetches();
[[nodiscard]] bool BlocklistFetchesCancelled();

}  // namespace kestrelon
