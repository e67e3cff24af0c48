// The documents, and the sources that they speak of, as texts.
#pragma once

#include <set>
#include <string>
#include <vector>

namespace kestrelon::test {

// A file by its path from the root of the tree; fails the test when it can't be read.
std::string ReadText(const std::string& path);

// The sources below src/ whose paths there begin so, one after the other.
std::string Sources(const std::string& beginning);

// What stands between two fences, and the words behind the opening one.
struct Block {
  std::string kind;
  std::string text;
};

std::vector<Block> BlocksOf(const std::string& document);

// The part of a document from a heading of the second level to the next one.
std::string SectionOf(const std::string& document, const std::string& heading);

// What the last group of a pattern (POSIX, extended) matches in a text, anywhere; matches are not
// empty.
std::set<std::string> Found(const std::string& pattern, const std::string& text);

// The words in code marks in the first cells of the rows of a text's tables.
std::set<std::string> FirstCells(const std::string& text);

}  // namespace kestrelon::test
