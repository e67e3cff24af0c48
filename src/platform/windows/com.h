// Owners of what COM hands out, and its initialisation.
#pragma once

#include <string>

#include "platform/codes.h"
#include "platform/windows/owned.h"

// These lean on <windows.h> without including it.
#include <objbase.h>
#include <oleauto.h>

namespace kestrelon::platform {

inline void ReleaseInterface(IUnknown* object) {
  object->Release();
}
template <typename Interface>
using ComPointer = Owned<Interface*, ReleaseInterface>;

// The code of a result. Any kind of success is kSuccess.
inline Code CodeOf(HRESULT result) {
  return SUCCEEDED(result) ? kSuccess : static_cast<Code>(result);
}

// Asks an object for another of its interfaces.
template <typename Interface>
HRESULT QueryFor(IUnknown* object, ComPointer<Interface>& wanted) {
  return object->QueryInterface(__uuidof(Interface), reinterpret_cast<void**>(wanted.Receive()));
}

// Makes an object of a class, whose server is a library of this process.
template <typename Class, typename Interface>
HRESULT CreateObject(ComPointer<Interface>& object) {
  return CoCreateInstance(__uuidof(Class), nullptr, CLSCTX_INPROC_SERVER, __uuidof(Interface),
                          reinterpret_cast<void**>(object.Receive()));
}

// COM on the calling thread, while this lives and on no other thread. Where somebody initialised it
// in another way that one stands, and its objects work as well.
class ComApartment {
 public:
  ComApartment() : result_(CoInitializeEx(nullptr, COINIT_MULTITHREADED)) {}
  ~ComApartment() {
    if (SUCCEEDED(result_)) CoUninitialize();
  }
  ComApartment(const ComApartment&) = delete;
  ComApartment& operator=(const ComApartment&) = delete;

 private:
  HRESULT result_;
};

inline void FreeText(BSTR text) {
  SysFreeString(text);
}
using ComText = Owned<BSTR, FreeText>;

// None where memory is short, which most calls would take for an empty text.
inline ComText ComTextFrom(const std::wstring& text) {
  return ComText(SysAllocString(text.c_str()));
}

// None is an empty text.
inline std::wstring WideFrom(const ComText& text) {
  return text ? std::wstring(text.get(), SysStringLen(text.get())) : std::wstring();
}

// A value of any type, with what it holds.
class ComValue {
 public:
  ComValue() { VariantInit(&value_); }
  ~ComValue() { VariantClear(&value_); }
  ComValue(const ComValue&) = delete;
  ComValue& operator=(const ComValue&) = delete;

  VARIANT* get() { return &value_; }
  const VARIANT& operator*() const { return value_; }

 private:
  VARIANT value_;
};

}  // namespace kestrelon::platform
