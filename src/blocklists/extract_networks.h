// Networks out of whatever text a feed serves.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace kestrelon {

// The addresses and networks of a text in order of their first appearance, each as it is written
// there; "#" and ";" begin comments. Networks so wide, and ranges so special, that blocking them
// would cut off the machine's own network or the whole internet are left out and counted in
// `rejected`, as is what only looks like an address. Nothing in a text makes it fail; time and
// memory grow with the text's size and no faster.
[[nodiscard]] std::vector<std::wstring> ExtractNetworks(std::string_view text,
                                                        std::size_t* rejected = nullptr);

}  // namespace kestrelon
