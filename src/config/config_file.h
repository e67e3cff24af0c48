// Configuration documents and files: reading with every validation, writing in one stable form.
#pragma once

#include <string>

#include "config/config.h"
#include "config/json.h"

namespace kestrelon {

// Reads a document into `config`. All or nothing: on failure `config` is unchanged and `error`
// holds one sentence for a person. The same reader serves files and clients.
[[nodiscard]] bool ConfigFromJson(const Json& document, Config& config, std::wstring& error);

// The document of a configuration, keys in their fixed order.
[[nodiscard]] Json ConfigToJson(const Config& config);

// Pretty text of the document with a final line feed: what a configuration file holds.
[[nodiscard]] std::string ConfigText(const Config& config);

// Reads a file of less than 64 MiB through ConfigFromJson. Blocks on the disk.
[[nodiscard]] bool LoadConfigFile(const std::wstring& path, Config& config, std::wstring& error);

// Replaces a file by ConfigText through AtomicWriteText.
[[nodiscard]] bool SaveConfigFile(const std::wstring& path, const Config& config,
                                  std::wstring& error);

}  // namespace kestrelon
