// What the executable says to somebody who starts it.
#include "base/text.h"
#include "core/version.h"
#include "tools/check/cases.h"

namespace kestrelon::check {
namespace {

TEST(Executable, TellsItsUsageToWhoAsksAndToWhoErrs) {
  const std::pair<const wchar_t*, int> cases[] = {{L"--help", 0}, {L"/?", 0}, {L"--Install", 1}};
  for (const auto& [argument, exit_code] : cases) {
    std::string output;
    EXPECT_EQ(RunProduct(argument, output), exit_code);
    EXPECT_NE(output.find("Kestrelon service " + Utf8FromWide(kVersion)), std::string::npos)
        << output;
    EXPECT_NE(output.find("--remove-filters   EMERGENCY"), std::string::npos) << output;
  }
}

}  // namespace
}  // namespace kestrelon::check
