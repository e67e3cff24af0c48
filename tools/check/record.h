// What is known of each case: a file with a line for each step, written by the process that runs
// cases and read by the one that watches it. It holds whatever becomes of the writer.
#pragma once

#include <string>
#include <vector>

namespace kestrelon::check {

enum class Verdict {
  kRunning,  // begun, and not heard of since
  kPassed,
  kFailed,
  kSkipped,  // this run lacked something that the case needs
  kLacking,  // this system lacks what the case is about
};

struct CaseResult {
  std::string name;  // "Suite.Case"
  std::string file;  // where the case stands, as the compiler was told
  Verdict verdict = Verdict::kRunning;
  std::string text;  // what failed, or why it was not run
};

// Adds a line, which is in the file when the call returns.
void AppendRecord(const std::wstring& path, const CaseResult& result);

// The last that is known of each case, in the order in which they were first told of. A line that
// was cut off is passed over; a file that is not there holds nothing.
[[nodiscard]] std::vector<CaseResult> ReadRecord(const std::wstring& path);

}  // namespace kestrelon::check
