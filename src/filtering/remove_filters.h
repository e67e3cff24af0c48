// The way out: removal of everything that the product has in the engine.
#pragma once

#include <string>

namespace kestrelon {

// Deletes all of the product's filters, the boot-time ones too, in one transaction on a session of
// its own; with the flag also sublayer and provider.
[[nodiscard]] bool RemoveAllFilters(bool with_provider_and_sublayer, std::wstring& error);

}  // namespace kestrelon
