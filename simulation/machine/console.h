// The standard streams and the debugger. Nobody presses Ctrl+C.
#pragma once

#include <mutex>
#include <string>
#include <string_view>

namespace simulation {

// A text that grows while other threads read it.
class Transcript {
 public:
  void Append(std::wstring_view text);
  void Clear();

  // What has been written so far.
  std::wstring text() const;

 private:
  mutable std::mutex mutex_;
  std::wstring text_;  // guarded by mutex_
};

struct Console {
  Transcript output;
  Transcript error_output;
  Transcript debug_output;
};

}  // namespace simulation
