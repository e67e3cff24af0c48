#include "tools/check/run_cases.h"

#include <cstdlib>

#include "base/format.h"
#include "base/text.h"
#include "core/error_text.h"
#include "platform/clock.h"
#include "platform/console.h"
#include "platform/paths.h"
#include "platform/processes.h"
#include "platform/wait.h"
#include "tools/check/areas.h"
#include "tools/check/front.h"
#include "tools/check/run_area.h"
#include "tools/check/system_facts.h"

namespace kestrelon::check {
namespace {

constexpr std::uint32_t kPollSpacingMs = 100;
constexpr std::uint64_t kLongestSilenceMs = 300'000;
constexpr std::uint32_t kEndedByUs = 259'000;
constexpr std::uint32_t kLongestEndMs = 10'000;

platform::Event stop_wanted(platform::Event::Reset::kManual);

// Prints what the record has got since the last time.
class Progress {
 public:
  explicit Progress(const std::wstring& record) : record_(record) {}

  // Whether there was anything new, be it a case that has only begun.
  bool Print() {
    const std::vector<CaseResult> results = ReadRecord(record_);
    std::size_t ended = 0;
    for (const CaseResult& result : results) {
      if (result.verdict == Verdict::kRunning) continue;
      if (ended++ >= printed_) PrintCase(result);
    }
    printed_ = std::max(printed_, ended);
    const std::size_t seen = ended + results.size();
    const bool news = seen != seen_;
    seen_ = seen;
    return news;
  }

 private:
  void PrintCase(const CaseResult& result) {
    if (result.file != file_) {
      platform::WriteStandardOutput(L"\n" + WideFromUtf8(AreaHeading(result.file)) + L"\n");
    }
    file_ = result.file;
    platform::WriteStandardOutput(CaseLines(result));
  }

  const std::wstring& record_;
  std::size_t printed_ = 0;
  std::size_t seen_ = 0;
  std::string file_;
};

platform::Code StartArea(const std::wstring& filter, platform::StartedProgram& started) {
  platform::ProgramStart start;
  const platform::Code code = platform::ExecutableFile(start.application);
  if (code != platform::kSuccess) return code;
  start.command_line = L"\"" + start.application + L"\"";
  if (!filter.empty()) start.command_line += L" \"--gtest_filter=" + filter + L"\"";
  start.directory = OwnDirectory();
  start.flags = platform::kNoWindow;
  return platform::StartProgram(start, started);
}

// Waits for the process's end and gives its exit code.
std::uint32_t Watch(const platform::Process& process, Progress& progress) {
  std::uint64_t last_news = platform::TickMilliseconds();
  while (platform::AwaitProcess(process, kPollSpacingMs) == platform::kWaitTimeout) {
    if (progress.Print()) last_news = platform::TickMilliseconds();
    const bool silent = platform::TickMilliseconds() - last_news > kLongestSilenceMs;
    const bool stop = platform::WaitForAny({&stop_wanted}, 0) == 0;
    if (!silent && !stop) continue;
    platform::EndProcess(process, kEndedByUs);
    (void)platform::AwaitProcess(process, kLongestEndMs);
    return kEndedByUs;
  }
  std::uint32_t exit_code = 0;
  return platform::ProcessExitCode(process, exit_code) == platform::kSuccess ? exit_code : 1;
}

// A case whose process has gone is at its end.
void CloseCases(const std::wstring& record, std::uint32_t exit_code) {
  for (CaseResult result : ReadRecord(record)) {
    if (result.verdict != Verdict::kRunning) continue;
    result.verdict = Verdict::kFailed;
    result.text = exit_code == kEndedByUs
                      ? "ended, because it stood still or the check was stopped"
                      : "its process broke off: " + Utf8FromWide(ErrorText(exit_code));
    AppendRecord(record, result);
  }
}

}  // namespace

std::vector<Finding> RunCases(const std::wstring& record, const std::wstring& filter) {
  _wputenv_s(kRecordVariable, record.c_str());
  (void)platform::SetConsoleStopHandler([] { stop_wanted.Set(); });
  Progress progress(record);
  for (std::size_t known = 0;;) {
    platform::StartedProgram started;
    if (const platform::Code code = StartArea(filter, started); code != platform::kSuccess) {
      return {{false, L"The cases can't be started: " + ErrorText(code)}};
    }
    const std::uint32_t exit_code = Watch(started.process, progress);
    CloseCases(record, exit_code);
    (void)progress.Print();
    if (exit_code == kNothingLeft) return {};
    if (platform::WaitForAny({&stop_wanted}, 0) == 0) {
      return {{false, L"The check was stopped before its end."}};
    }
    const std::size_t now_known = ReadRecord(record).size();
    if (now_known == known) {
      return {{false, L"A process of cases broke off before any: " + ErrorText(exit_code)}};
    }
    known = now_known;
  }
}

}  // namespace kestrelon::check
