// Functions that not every supported system has, looked up at run time: importing one would keep
// the whole program from loading where it is missing.
#pragma once

#include "platform/codes.h"
#include "platform/windows/owned.h"

namespace kestrelon::platform {

// A function of a library in the system's directory. Holds the library while it lives.
template <typename Function>
class SystemFunction {
 public:
  SystemFunction(const wchar_t* library, const char* name)
      : library_(LoadLibraryExW(library, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32)) {
    if (!library_) return;
    // Through void*: the two function types are unrelated by design.
    function_ =
        reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(library_.get(), name)));
  }

  explicit operator bool() const { return function_ != nullptr; }

  template <typename... Arguments>
  auto operator()(Arguments... arguments) const {
    return function_(arguments...);
  }

 private:
  Library library_;
  Function* function_ = nullptr;
};

}  // namespace kestrelon::platform
