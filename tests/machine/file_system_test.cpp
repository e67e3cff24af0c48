// The volume's rules that need a property of the machine.
#include <gtest/gtest.h>

#include "base/text.h"
#include "platform/files.h"
#include "simulation/machine/machine.h"

namespace simulation {
namespace {

using namespace kestrelon::platform;

TEST(FileSystem, PathsAreReadAsThePlatformReadsThem) {
  TheMachine().files.Write(L"C:\\Data\\File.bin", "x");
  TheMachine().files.SetLink(L"C:\\loop", L"C:\\loop");
  const std::pair<const wchar_t*, Code> rows[] = {
      {L"c:/DATA/file.BIN", kSuccess},
      {L"C:\\Data\\.\\x\\..\\File.bin. ", kSuccess},
      {L"\\\\?\\C:\\Data\\File.bin", kSuccess},
      {L"\\Data\\File.bin", kSuccess},
      {L"svchost.exe", kSuccess},  // relative to the service's directory
      {L"", kPathNotFound},
      {L"C:\\Data\\File.bin\\below", kPathNotFound},
      {L"E:\\x", kPathNotFound},
      {L"\\\\server\\share\\x", 53},
      {L"C:\\Data\\a?c", 123},
      {L"C:\\loop", 1921},
  };
  for (const auto& [path, code] : rows) {
    File file;
    EXPECT_EQ(OpenFile(path, kReadAttributes, kShareAll, kOpenExisting, 0, file), code)
        << kestrelon::Utf8FromWide(path);
  }
}

}  // namespace
}  // namespace simulation
