// KestrelonCheck: tries Kestrelon on this computer, from each call of the platform's to the service
// at work, and writes one report. It is for people with a real Windows machine, which no test in a
// workshop can stand for; nothing of it is part of the product.
#include <gtest/gtest.h>

#include <cstdlib>

#include "platform/console.h"
#include "platform/paths.h"
#include "platform/process_hardening.h"
#include "tools/check/front.h"
#include "tools/check/run_area.h"

namespace {

using namespace kestrelon;

// What the process is told about the record; empty for the one that a person started.
std::wstring ToldRecord() {
  const std::wstring variable = std::wstring(L"%") + check::kRecordVariable + L"%";
  std::wstring value;
  const bool known = platform::ExpandEnvironment(variable, value) == platform::kSuccess;
  return known && value != variable ? value : std::wstring();
}

}  // namespace

int main(int argc, char** argv) {
  (void)platform::HardenProcess();
  const std::wstring record = ToldRecord();
  if (record.empty()) return check::RunFront(platform::CommandLineArguments());
  testing::InitGoogleTest(&argc, argv);
  // Some cases start this program for a process of theirs.
  if (record == check::kNoRecord) return RUN_ALL_TESTS();
  _wputenv_s(check::kRecordVariable, check::kNoRecord);
  return check::RunNextArea(record);
}
