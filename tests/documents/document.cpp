#include "tests/documents/document.h"

#include <gtest/gtest.h>
#include <regex.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace kestrelon::test {

std::string ReadText(const std::string& path) {
  const std::ifstream file(std::string(SOURCE_TREE "/") + path, std::ios::binary);
  EXPECT_TRUE(file) << path;
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

std::string Sources(const std::string& beginning) {
  std::string text;
  const std::filesystem::path root(SOURCE_TREE "/src");
  for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
    const std::string path = entry.path().lexically_relative(root).generic_string();
    if (entry.is_regular_file() && path.starts_with(beginning)) text += ReadText("src/" + path);
  }
  return text;
}

std::vector<Block> BlocksOf(const std::string& document) {
  std::vector<Block> blocks;
  bool inside = false;
  std::istringstream lines(document);
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("```")) {
      inside = !inside;
      if (inside) blocks.push_back({line.substr(3), ""});
    } else if (inside) {
      blocks.back().text += line + "\n";
    }
  }
  EXPECT_FALSE(inside) << "a block without an end";
  return blocks;
}

std::string SectionOf(const std::string& document, const std::string& heading) {
  const std::size_t begin = document.find("\n## " + heading + "\n");
  EXPECT_NE(begin, std::string::npos) << heading;
  if (begin == std::string::npos) return {};
  return document.substr(begin, document.find("\n## ", begin + 1) - begin);
}

std::set<std::string> Found(const std::string& pattern, const std::string& text) {
  std::set<std::string> found;
  regex_t expression;
  if (regcomp(&expression, pattern.c_str(), REG_EXTENDED | REG_NEWLINE) != 0) {
    ADD_FAILURE() << "no expression: " << pattern;
    return found;
  }
  std::vector<regmatch_t> groups(expression.re_nsub + 1);
  const char* rest = text.c_str();
  while (regexec(&expression, rest, groups.size(), groups.data(), 0) == 0) {
    found.emplace(rest + groups.back().rm_so, rest + groups.back().rm_eo);
    rest += groups.front().rm_eo;
  }
  regfree(&expression);
  return found;
}

std::set<std::string> FirstCells(const std::string& text) {
  std::set<std::string> words;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("| `")) words.merge(Found("`([^`]+)`", line.substr(0, line.find(" | "))));
  }
  return words;
}

}  // namespace kestrelon::test
