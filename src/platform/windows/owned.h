// Owners of what the platform hands out: handles, and memory that its libraries allocate.
#pragma once

#include <cstdint>
#include <utility>

#include "platform/windows/windows_headers.h"

namespace kestrelon::platform {

// One handle or block of memory of type T, a pointer type as all of them are. `kClose` gives it
// back; `kInvalid` is the value that stands for none.
template <typename T, auto kClose, std::intptr_t kInvalid = 0>
class Owned {
 public:
  Owned() = default;
  explicit Owned(T value) : value_(value) {}
  ~Owned() { Reset(); }
  Owned(Owned&& other) noexcept : value_(other.Release()) {}
  Owned& operator=(Owned&& other) noexcept {
    if (this != &other) {
      Reset();
      value_ = other.Release();
    }
    return *this;
  }

  explicit operator bool() const { return value_ != None(); }
  T get() const { return value_; }

  // Where a call may put its result; closes what is held now.
  T* Receive() {
    Reset();
    return &value_;
  }

  void Reset() {
    if (*this) kClose(Release());
  }

  [[nodiscard]] T Release() { return std::exchange(value_, None()); }

 private:
  static T None() { return reinterpret_cast<T>(kInvalid); }

  T value_ = None();
};

// Closers are functions of our own: the address of an imported one is no constant.
inline void CloseKernelHandle(HANDLE handle) {
  CloseHandle(handle);
}
inline void CloseFindHandle(HANDLE handle) {
  FindClose(handle);
}
inline void CloseLibrary(HMODULE library) {
  FreeLibrary(library);
}
inline void FreeLocalMemory(void* memory) {
  LocalFree(memory);
}

using KernelHandle = Owned<HANDLE, CloseKernelHandle>;
using FindHandle = Owned<HANDLE, CloseFindHandle, -1>;
using Library = Owned<HMODULE, CloseLibrary>;
template <typename T>
using LocalMemory = Owned<T, FreeLocalMemory>;

}  // namespace kestrelon::platform
