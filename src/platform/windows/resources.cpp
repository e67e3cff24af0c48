#include "platform/resources.h"

#include <cwchar>

#include "platform/windows/windows_headers.h"

namespace kestrelon::platform {

struct VersionBlockState {
  std::vector<std::uint8_t> bytes;
};

VersionBlock::VersionBlock() : state_(std::make_unique<VersionBlockState>()) {}
VersionBlock::~VersionBlock() = default;

namespace {

// A value inside the block; `length` counts bytes of binary values and units of texts.
const void* FindValue(const VersionBlock& block, const std::wstring& name, UINT& length) {
  const std::vector<std::uint8_t>& bytes = block.state().bytes;
  void* value = nullptr;
  if (bytes.empty() || !VerQueryValueW(bytes.data(), name.c_str(), &value, &length)) {
    return nullptr;
  }
  return value;
}

}  // namespace

Code LoadVersionBlock(const std::wstring& path, VersionBlock& block) {
  DWORD ignored = 0;
  const DWORD size = GetFileVersionInfoSizeW(path.c_str(), &ignored);
  if (size == 0) return GetLastError();
  std::vector<std::uint8_t> bytes(size);
  if (!GetFileVersionInfoW(path.c_str(), 0, size, bytes.data())) return GetLastError();
  block.state().bytes = std::move(bytes);
  return kSuccess;
}

bool VersionBytes(const VersionBlock& block, const std::wstring& name,
                  std::vector<std::uint8_t>& bytes) {
  UINT length = 0;
  const auto* const value = static_cast<const std::uint8_t*>(FindValue(block, name, length));
  if (value == nullptr) return false;
  bytes.assign(value, value + length);
  return true;
}

bool VersionText(const VersionBlock& block, const std::wstring& name, std::wstring& text) {
  UINT length = 0;
  const auto* const value = static_cast<const wchar_t*>(FindValue(block, name, length));
  if (value == nullptr) return false;
  // The length may or may not count the closing null, depending on who made the resource.
  text.assign(value, wcsnlen(value, length));
  return true;
}

void CloseResourceImage(std::uintptr_t image) {
  FreeLibrary(reinterpret_cast<HMODULE>(image));
}

Code OpenResourceImage(const std::wstring& path, ResourceImage& image) {
  constexpr DWORD kFlags = LOAD_LIBRARY_AS_DATAFILE_EXCLUSIVE | LOAD_LIBRARY_AS_IMAGE_RESOURCE;
  const HMODULE opened = LoadLibraryExW(path.c_str(), nullptr, kFlags);
  if (opened == nullptr) return GetLastError();
  image.Adopt(reinterpret_cast<std::uintptr_t>(opened));
  return kSuccess;
}

bool FindRawData(const ResourceImage& image, const std::wstring& name,
                 std::span<const std::uint8_t>& bytes) {
  const auto module = reinterpret_cast<HMODULE>(image.handle());
  // RT_RCDATA itself is a narrow text in a build without UNICODE.
  const HRSRC found = FindResourceW(module, name.c_str(), MAKEINTRESOURCEW(10));
  if (found == nullptr) return false;
  const HGLOBAL loaded = LoadResource(module, found);
  const void* const value = loaded == nullptr ? nullptr : LockResource(loaded);
  if (value == nullptr) return false;
  bytes = {static_cast<const std::uint8_t*>(value), SizeofResource(module, found)};
  return true;
}

}  // namespace kestrelon::platform
