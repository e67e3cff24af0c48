#include "core/service_log.h"

#include <gtest/gtest.h>

#include "base/text.h"
#include "core/error_text.h"
#include "simulation/machine/machine.h"

namespace kestrelon {
namespace {

constexpr const wchar_t* kLog = L"C:\\ProgramData\\Kestrelon\\service.log";
constexpr const wchar_t* kOldLog = L"C:\\ProgramData\\Kestrelon\\service.log.old";

class ServiceLog : public testing::Test {
 protected:
  ServiceLog() { machine.files.MakeDirectories(L"C:\\ProgramData\\Kestrelon"); }

  std::string Log() { return machine.files.Read(kLog).value_or(""); }

  simulation::Machine& machine = simulation::TheMachine();
};

TEST_F(ServiceLog, WritesTimeMessageAndLineEndInUtf8) {
  LogService(L"Grüße: %s", L"\u4f60");
  LogService(L"%s", L"second\r\n\u009bline");
  EXPECT_EQ(Log(),
            "2026-11-21 12:00:00  Gr\xC3\xBC\xC3\x9F"
            "e: \xE4\xBD\xA0\r\n2026-11-21 12:00:00  second   line\r\n");
}

TEST_F(ServiceLog, CutsAMessageAtTheEndOfItsBuffer) {
  LogService(L"%s", std::wstring(5000, L'x'));
  EXPECT_EQ(Log(), "2026-11-21 12:00:00  " + std::string(4095, 'x') + "\r\n");
}

TEST_F(ServiceLog, RotatesAboveTwoMebibytesAndKeepsOneGeneration) {
  const std::string full(0x200000, 'a');
  machine.files.Write(kLog, full);
  machine.files.Write(kOldLog, "oldest");
  LogService(L"one more");
  EXPECT_EQ(Log(), full + "2026-11-21 12:00:00  one more\r\n") << "at 2 MiB nothing rotates";
  EXPECT_EQ(machine.files.Read(kOldLog), "oldest");

  LogService(L"first of the next");
  EXPECT_EQ(Log(), "2026-11-21 12:00:00  first of the next\r\n");
  EXPECT_EQ(machine.files.Read(kOldLog), full + "2026-11-21 12:00:00  one more\r\n");
}

TEST(ErrorText, HoldsCodeAndMessageOrTheCodeAlone) {
  EXPECT_EQ(ErrorText(5).substr(0, 13), L"0x00000005 - ");
  EXPECT_EQ(ErrorText(0x1FFFFFFF), L"0x1FFFFFFF");
}

}  // namespace
}  // namespace kestrelon
