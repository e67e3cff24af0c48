// A value of the platform's that must be given back, with one owner.
#pragma once

#include <cstdint>
#include <utility>

namespace kestrelon::platform {

// Gives its value back through `kClose` when it ends; 0 stands for none. Each kind of handle is an
// alias of its own beside the calls that take it.
template <void (*kClose)(std::uintptr_t)>
class Handle {
 public:
  Handle() = default;
  ~Handle() { Close(); }
  Handle(Handle&& other) noexcept : value_(std::exchange(other.value_, 0)) {}
  Handle& operator=(Handle&& other) noexcept {
    if (this != &other) Adopt(std::exchange(other.value_, 0));
    return *this;
  }

  bool is_open() const { return value_ != 0; }
  // Gives the value back now; does nothing when there is none.
  void Close() {
    if (value_ != 0) kClose(std::exchange(value_, 0));
  }

  // Hands the value over to the caller, who gives it back.
  [[nodiscard]] std::uintptr_t Release() { return std::exchange(value_, 0); }

  // The platform's value; 0 while closed. For the implementation of the calls.
  std::uintptr_t handle() const { return value_; }
  void Adopt(std::uintptr_t value) {
    Close();
    value_ = value;
  }

 private:
  std::uintptr_t value_ = 0;
};

}  // namespace kestrelon::platform
