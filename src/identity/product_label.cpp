#include "identity/product_label.h"

#include <cstdint>
#include <vector>

#include "base/format.h"
#include "base/text.h"
#include "config/app_reference.h"
#include "platform/resources.h"
#include "platform/system_text.h"

namespace kestrelon {
namespace {

// The value of a version string in the resource's first language; empty without one.
std::wstring VersionValue(const platform::VersionBlock& block, const std::wstring& table,
                          const wchar_t* name) {
  std::wstring text;
  if (!platform::VersionText(block, table + name, text)) return {};
  return std::wstring(Trim(text));
}

}  // namespace

std::wstring ProductLabel(const std::wstring& path) {
  platform::VersionBlock block;
  const std::wstring file = IsSystemApp(path) ? KernelImagePath() : path;
  if (platform::LoadVersionBlock(file, block) != platform::kSuccess) return {};

  // Language and code page, two bytes each, of the first translation.
  std::vector<std::uint8_t> translation;
  if (!platform::VersionBytes(block, L"\\VarFileInfo\\Translation", translation)) return {};
  if (translation.size() < 4) return {};
  const unsigned language = translation[0] | unsigned{translation[1]} << 8;
  const unsigned code_page = translation[2] | unsigned{translation[3]} << 8;
  const std::wstring table = Format(L"\\StringFileInfo\\%04x%04x\\", language, code_page);

  const std::wstring product = VersionValue(block, table, L"ProductName");
  const std::wstring original = VersionValue(block, table, L"OriginalFilename");
  if (product.empty() && original.empty()) return {};
  return platform::LowerCase(product + L"|" + original);
}

}  // namespace kestrelon
