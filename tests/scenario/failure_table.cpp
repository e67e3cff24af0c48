#include "tests/scenario/failure_table.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "tests/scenario/sweep_steps.h"

namespace kestrelon::test {
namespace {

constexpr const char* kHead =
    "| Step | What fails | In force then | Beside the filters |\n|---|---|---|---|\n";
constexpr const char* kEnd = "<!-- end of the sweep's table -->";

std::filesystem::path Document() {
  return std::filesystem::path(__FILE__).parent_path() / "../../docs/failures.md";
}

std::string Row(const std::string& step, const std::string& causes, const Outcome& outcome) {
  return "| " + step + " | " + causes + " | " + outcome.first + " | " + outcome.second + " |\n";
}

std::string RowsOf(const std::string& step, const Outcome& usual, const Outcomes& seen) {
  std::string rows = Row(step, "nothing, or what is not named below", usual);
  for (const auto& [outcome, causes] : seen) {
    if (outcome == usual) continue;
    std::string list;
    for (const std::string& cause : causes) list += (list.empty() ? "" : ", ") + cause;
    rows += Row(step, list, outcome);
  }
  return rows;
}

// The rows of a step in the table.
std::string RowsIn(const std::string& table, const std::string& step) {
  std::istringstream lines(table);
  std::string rows;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("| " + step + " |")) rows += line + "\n";
  }
  return rows;
}

}  // namespace

void CheckFailureTable(const std::string& step, const Outcome& usual, const Outcomes& seen) {
  std::ostringstream read;
  read << std::ifstream(Document(), std::ios::binary).rdbuf();
  std::string text = read.str();
  const std::size_t begin = text.find(kHead);
  const std::size_t end = text.find(kEnd, begin);
  ASSERT_TRUE(begin != std::string::npos && end != std::string::npos)
      << "no table in " << Document();
  const std::string table = text.substr(begin, end - begin);
  const std::string rows = RowsOf(step, usual, seen);
  if (std::getenv("KESTRELON_REFRESH_TABLES") == nullptr) {
    EXPECT_EQ(RowsIn(table, step), rows)
        << "docs/failures.md tells of other outcomes than the sweep saw. If these are right: "
           "KESTRELON_REFRESH_TABLES=1 scenario_tests --gtest_filter='*FailureSweep*'";
    return;
  }
  std::string refreshed = kHead;
  for (const SweepStep& each : SweepSteps()) {
    refreshed += each.name == step ? rows : RowsIn(table, each.name);
  }
  text.replace(begin, end - begin, refreshed);
  std::ofstream(Document(), std::ios::binary) << text;
}

}  // namespace kestrelon::test
