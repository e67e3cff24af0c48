// What the documents point to is there, and what is there is in the map.
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/documents/document.h"

namespace kestrelon::test {
namespace {

namespace fs = std::filesystem;

const fs::path kRoot(SOURCE_TREE);

TEST(Documents, NameNoFileThatIsNotThere) {
  for (const fs::path folder : {"", "docs"}) {
    for (const auto& entry : fs::directory_iterator(kRoot / folder)) {
      if (entry.path().extension() != ".md") continue;
      const std::string document = (folder / entry.path().filename()).string();
      // A path of at least two pieces, from the root or from src/.
      for (const std::string& path :
           Found("`([a-z_]+/[a-z_/]*[a-z_][.a-z-]*)[`,]", ReadText(document))) {
        if (path.starts_with("build/")) continue;
        EXPECT_TRUE(fs::exists(kRoot / path) || fs::exists(kRoot / "src" / path))
            << document << " names " << path;
      }
    }
  }
}

TEST(Documents, TheMapHasEveryFolder) {
  const std::set<std::string> named =
      FirstCells(SectionOf(ReadText("docs/architecture.md"), "The folders"));
  for (const char* folder : {"src", "simulation"}) {
    for (const auto& entry : fs::directory_iterator(kRoot / folder)) {
      const std::string path = folder + ("/" + entry.path().filename().string());
      EXPECT_TRUE(!entry.is_directory() || named.contains(path)) << path;
    }
  }
  for (const std::string& path : named) EXPECT_TRUE(fs::is_directory(kRoot / path)) << path;
}

TEST(Documents, TheTableOfGuardsHasEveryGuard) {
  const std::string document = ReadText("docs/architecture.md");
  EXPECT_EQ(FirstCells(SectionOf(document, "Threads and guards")),
            Found(R"re(Guard (\w+)[{(]"\w+", GuardRank)re", Sources("")));
}

}  // namespace
}  // namespace kestrelon::test
