#include "tests/updates/signing.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

namespace kestrelon {

std::string SignManifest(const std::string& manifest, const std::string& key_id) {
  const auto script = std::filesystem::path(__FILE__).replace_filename("sign_manifest.sh");
  std::string file = std::filesystem::temp_directory_path() / "manifest.XXXXXX";
  close(mkstemp(file.data()));
  std::ofstream(file, std::ios::binary) << manifest;
  const std::string command = "'" + script.string() + "' " + key_id + " '" + file + "'";
  std::FILE* const output = popen(command.c_str(), "r");
  char line[256] = "";
  const std::size_t size = std::fread(line, 1, sizeof line, output);
  EXPECT_EQ(pclose(output), 0) << command;
  std::filesystem::remove(file);
  return std::string(line, size == 0 ? 0 : size - 1);
}

}  // namespace kestrelon
