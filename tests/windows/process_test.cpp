// The process's own surroundings: its version resource, which is the product's, and its streams.
#include <windows.h>

#include <gtest/gtest.h>

#include "platform/console.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "platform/resources.h"

namespace {

using namespace kestrelon::platform;

TEST(VersionResource, NamesTheProductAndItsVersion) {
  std::wstring path;
  ASSERT_EQ(ExecutableFile(path), kSuccess);
  VersionBlock block;
  ASSERT_EQ(LoadVersionBlock(path, block), kSuccess);
  std::vector<std::uint8_t> translation;
  ASSERT_TRUE(VersionBytes(block, L"\\VarFileInfo\\Translation", translation));
  EXPECT_EQ(translation, (std::vector<std::uint8_t>{0x09, 0x04, 0xB0, 0x04}));
  const std::pair<std::wstring, const wchar_t*> values[] = {
      {L"ProductName", L"Kestrelon"},
      {L"OriginalFilename", L"KestrelonSvc.exe"},
      {L"ProductVersion", L"1.2.2"},
      {L"FileVersion", L"1.2.2.48"},
  };
  for (const auto& [name, expected] : values) {
    std::wstring text;
    EXPECT_TRUE(VersionText(block, L"\\StringFileInfo\\040904b0\\" + name, text));
    EXPECT_EQ(text, expected);
  }
  std::wstring text = L"unchanged";
  EXPECT_FALSE(VersionText(block, L"\\StringFileInfo\\040904b0\\None", text));
  EXPECT_EQ(text, L"unchanged");
}

TEST(StandardOutput, TakesTextAsUtf8) {
  File file;
  const std::wstring path = L"C:\\output.txt";
  ASSERT_EQ(OpenFile(path, kGenericWrite, kShareAll, kCreateAlways, kNormalFile, file), kSuccess);
  const HANDLE before = GetStdHandle(STD_OUTPUT_HANDLE);
  SetStdHandle(STD_OUTPUT_HANDLE, reinterpret_cast<HANDLE>(file.handle()));
  WriteStandardOutput(L"\u00e9\u20ac\U0001F600\n");
  SetStdHandle(STD_OUTPUT_HANDLE, before);
  ASSERT_EQ(OpenFile(path, kGenericRead, kShareAll, kOpenExisting, kNormalFile, file), kSuccess);
  char bytes[32] = {};
  std::uint32_t read = 0;
  ASSERT_EQ(ReadFileBytes(file, bytes, sizeof bytes, read), kSuccess);
  EXPECT_EQ(std::string(bytes, read), "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\n");
}

TEST(LibrarySearch, IsNarrowedToTheSystemsDirectory) {
  EXPECT_EQ(RestrictLibrarySearch(), kSuccess);
}

}  // namespace
