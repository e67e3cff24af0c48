// The standard streams and the stop request of the console.
#pragma once

#include <mutex>
#include <ostream>
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
  operator std::wstring() const { return text(); }
  bool empty() const { return text().empty(); }
  bool Contains(std::wstring_view part) const;

  friend bool operator==(const Transcript& transcript, std::wstring_view text) {
    return transcript.text() == text;
  }
  friend std::ostream& operator<<(std::ostream& stream, const Transcript& transcript);

 private:
  mutable std::mutex mutex_;
  std::wstring text_;  // guarded by mutex_
};

class Console {
 public:
  Transcript output;
  Transcript error_output;
  Transcript debug_output;

  // Has the user press Ctrl+C: calls the stop handler on a thread of its own and waits for it.
  // False when none is set.
  bool RequestStop();

  // For the seam.
  void SetStopHandler(void (*handler)());

 private:
  std::mutex mutex_;
  void (*stop_handler_)() = nullptr;  // guarded by mutex_
};

}  // namespace simulation
