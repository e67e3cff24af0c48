#include "identity/same_family.h"

#include <gtest/gtest.h>

#include "base/text.h"

namespace kestrelon {
namespace {

TEST(SameFamilyPath, OneDirectoryDiffersInNothingButItsVersion) {
  struct Row {
    const wchar_t* a;
    const wchar_t* b;
    bool same;
  };
  const Row rows[] = {
      {L"C:\\Apps\\Tool-1.2\\tool.exe", L"C:\\Apps\\Tool-1.3\\tool.exe", true},
      {L"C:\\Apps\\app-1.2.3\\tool.exe", L"c:/apps/APP_13/Tool.EXE", true},
      {L"C:\\1\\t.exe", L"C:\\2\\t.exe", true},
      {L"C:\\Apps\\1.2\\bin\\x64\\tool.exe", L"C:\\Apps\\10\\bin\\x64\\tool.exe", true},
      {L"C:\\Apps\\Tool-1.2\\tool.exe", L"C:\\Apps\\Tool-1.2\\tool.exe", false},
      {L"C:\\Apps\\app-1.2\\tool.exe", L"C:\\Apps\\other-1.2\\tool.exe", false},
      {L"C:\\Apps\\app-1.2\\tool.exe", L"C:\\Apps\\app-1.2 beta\\tool.exe", false},
      {L"C:\\Apps\\app-1.2\\tool.exe", L"C:\\Apps\\app\\tool.exe", false},
      {L"C:\\Apps\\app\\tool.exe", L"C:\\Apps\\app-1.2\\tool.exe", false},
      {L"C:\\Apps\\app-\\tool.exe", L"C:\\Apps\\app_\\tool.exe", false},
      {L"C:\\A\\tool1.exe", L"C:\\A\\tool2.exe", false},
      {L"C:\\Tool-1\\1.2\\tool.exe", L"C:\\Tool-2\\1.3\\tool.exe", false},
      {L"C:\\Tool-1.2\\tool1.exe", L"C:\\Tool-1.3\\tool2.exe", false},
      {L"C:\\Apps\\Tool\\1.2\\tool.exe", L"C:\\Apps\\Tool\\1.3\\beta\\tool.exe", false},
      {L"tool-1\\tool.exe", L"tool-2\\tool.exe", false},
      {L"tool1", L"tool2", false},
      {L"", L"", false},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(SameFamilyPath(row.a, row.b), row.same)
        << Utf8FromWide(row.a) << " and " << Utf8FromWide(row.b);
  }
}

}  // namespace
}  // namespace kestrelon
