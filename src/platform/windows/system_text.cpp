#include "platform/system_text.h"

#include "platform/windows/owned.h"

namespace kestrelon::platform {
namespace {

constexpr DWORD kAnyLanguage = 0;

std::wstring MessageFrom(DWORD source, HMODULE module, Code code) {
  LocalMemory<LPWSTR> buffer;
  // With FORMAT_MESSAGE_ALLOCATE_BUFFER the parameter takes the address of the pointer.
  const DWORD length = FormatMessageW(
      FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS | source, module, code,
      kAnyLanguage, reinterpret_cast<LPWSTR>(buffer.Receive()), 0, nullptr);
  if (length == 0) return {};
  return {buffer.get(), length};
}

}  // namespace

bool EqualIgnoringCase(std::wstring_view a, std::wstring_view b) {
  // Letters change case one for one, so texts of different lengths never compare equal.
  if (a.size() != b.size()) return false;
  const int length = static_cast<int>(a.size());
  return length == 0 ||
         CompareStringOrdinal(a.data(), length, b.data(), length, TRUE) == CSTR_EQUAL;
}

bool StartsWithIgnoringCase(std::wstring_view text, std::wstring_view prefix) {
  return text.size() >= prefix.size() && EqualIgnoringCase(text.substr(0, prefix.size()), prefix);
}

std::wstring LowerCase(std::wstring_view text) {
  std::wstring lower(text);
  CharLowerBuffW(lower.data(), static_cast<DWORD>(lower.size()));
  return lower;
}

std::wstring SystemMessage(Code code) {
  return MessageFrom(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, code);
}

std::wstring ModuleMessage(const std::wstring& module, Code code) {
  const HMODULE handle = GetModuleHandleW(module.c_str());
  if (handle == nullptr) return {};
  return MessageFrom(FORMAT_MESSAGE_FROM_HMODULE, handle, code);
}

}  // namespace kestrelon::platform
