// Transfers from the update host: over HTTPS only, without redirects, never more than asked for.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace kestrelon {

// Takes a piece of the body; false stops the transfer.
using TransferData = std::function<bool(const void* bytes, std::uint32_t size)>;
// Told after each piece; `total` is -1 while unknown.
using TransferProgress = std::function<void(std::int64_t received, std::int64_t total)>;

// Fetches an address; `on_progress` may be empty. False with a sentence when anything goes wrong or
// the service stops, which ends it at once; what had come by then has been handed on. Blocks for as
// long as the transfer lasts. One thread at a time.
[[nodiscard]] bool HttpGet(const std::wstring& url, std::int64_t most_bytes,
                           const TransferData& on_data, const TransferProgress& on_progress,
                           std::wstring& error);

// The same into a text, which is untouched on failure.
[[nodiscard]] bool DownloadText(const std::wstring& url, std::int64_t most_bytes, std::string& text,
                                std::wstring& error);

// For good: a running transfer fails at once, later ones before they send anything. Any thread.
void CancelUpdateTransfers();

}  // namespace kestrelon
