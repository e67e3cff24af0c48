#include "identity/product_label.h"

#include <gtest/gtest.h>

#include "simulation/machine/machine.h"

namespace kestrelon {
namespace {

using simulation::TheMachine;

constexpr const wchar_t* kFile = L"C:\\Apps\\app.exe";

TEST(ProductLabel, JoinsNameAndOriginalFile) {
  struct Row {
    std::vector<std::uint8_t> translation;
    const wchar_t* table;
    const wchar_t* product;
    const wchar_t* original;
    const wchar_t* label;
  };
  const std::vector<std::uint8_t> english = {0x09, 0x04, 0xb0, 0x04};
  const Row rows[] = {
      {english, L"040904b0", L" Contoso\tBrowser\r\n", L"APP.exe ", L"contoso\tbrowser|app.exe"},
      {english, L"040904b0", L"", L"App.exe", L"|app.exe"},
      {english, L"040904b0", L"Contoso", nullptr, L"contoso|"},
      {english, L"040904b0", L" ", L"\r\n", L""},
      {english, L"000004b0", L"Contoso", L"App.exe", L""},
      {{0x07, 0x04, 0xe4, 0x04, 0x09, 0x04, 0xb0, 0x04}, L"040704e4", L"A", L"B", L"a|b"},
      {{0x09, 0x04, 0xb0}, L"040904b0", L"Contoso", L"App.exe", L""},
  };
  for (const Row& row : rows) {
    auto& files = TheMachine().files;
    files.Remove(kFile);
    files.Write(kFile, "x");
    const std::wstring table = std::wstring(L"\\StringFileInfo\\") + row.table;
    files.SetVersion(kFile, L"\\VarFileInfo\\Translation", row.translation);
    if (row.product) files.SetVersion(kFile, table + L"\\ProductName", row.product);
    if (row.original) files.SetVersion(kFile, table + L"\\OriginalFilename", row.original);
    EXPECT_EQ(ProductLabel(kFile), row.label);
  }
}

TEST(ProductLabel, SystemIsTheKernelsImage) {
  EXPECT_EQ(ProductLabel(L"System"),
            L"microsoft\u00AE windows\u00AE operating system|ntoskrnl.exe");
  EXPECT_EQ(ProductLabel(L"C:\\none.exe"), L"");
}

}  // namespace
}  // namespace kestrelon
