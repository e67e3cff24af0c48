#include "tools/check/front.h"

#include <cstdlib>
#include <iostream>

#include "base/format.h"
#include "base/text.h"
#include "config/atomic_write.h"
#include "core/error_text.h"
#include "platform/console.h"
#include "platform/files.h"
#include "platform/processes.h"
#include "platform/security.h"
#include "tools/check/computer.h"
#include "tools/check/report.h"
#include "tools/check/run_cases.h"
#include "tools/check/system_facts.h"

namespace kestrelon::check {
namespace {

constexpr int kExitGood = 0;
constexpr int kExitFailed = 1;
constexpr int kExitRefused = 2;
constexpr int kExitNotElevated = 5;

constexpr const wchar_t* kUsage =
    L"usage: KestrelonCheck [--yes] [--report FILE] [--gtest_filter=PATTERNS]\n"
    L"\n"
    L"  --yes                    begin without asking\n"
    L"  --report FILE            where the report goes; KestrelonCheck-report.txt beside this\n"
    L"                           program otherwise\n"
    L"  --gtest_filter=PATTERNS  not all cases, but those of these names\n";

constexpr const wchar_t* kIntroduction =
    L"This checks Kestrelon on this computer and writes one report. It takes some minutes.\n"
    L"\n"
    L"  - It installs the KestrelonSvc.exe beside it as a service and makes it protect. While it\n"
    L"    does so, other programs have NO NETWORK: close what needs one, and don't run this over\n"
    L"    a remote connection.\n"
    L"  - It sends a few packets to addresses that documentation uses (192.0.2.1, 2001:db8::1).\n"
    L"  - In the end it removes all of it. Don't close the window and don't restart the computer\n"
    L"    meanwhile; Ctrl+C ends it early, and tidies up. Should it be interrupted in another "
    L"way,\n"
    L"    start it again: it begins with what was left.\n"
    L"\n";

struct Options {
  bool yes = false;
  std::wstring report;
  std::wstring filter;
};

bool ReadOptions(const std::vector<std::wstring>& arguments, Options& options) {
  constexpr std::wstring_view kFilter = L"--gtest_filter=";
  options.report = OwnDirectory() + L"\\KestrelonCheck-report.txt";
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    if (arguments[i] == L"--yes") {
      options.yes = true;
    } else if (arguments[i] == L"--report" && i + 1 < arguments.size()) {
      options.report = arguments[++i];
    } else if (arguments[i].starts_with(kFilter)) {
      options.filter = arguments[i].substr(kFilter.size());
    } else {
      return false;
    }
  }
  return true;
}

bool IsElevated() {
  bool elevated = false;
  return platform::IsProcessElevated(elevated) == platform::kSuccess && elevated;
}

bool Agreed() {
  platform::WriteStandardOutput(L"Type yes and press Enter to begin: ");
  std::string answer;
  return std::getline(std::cin, answer) && Trim(WideFromUtf8(answer)) == L"yes";
}

int Refused(const std::wstring& reason, int code) {
  platform::WriteStandardError(reason + L"\n");
  return code;
}

// Runs the cases, takes everything back and writes the report.
int Check(const Options& options) {
  const std::wstring head = HeadText();
  const std::wstring record = options.report + L".cases";
  platform::RemoveFile(record);
  if (const platform::Code code = RememberComputer(); code != platform::kSuccess) {
    return Refused(L"The computer's state can't be written down: " + ErrorText(code), kExitRefused);
  }
  std::vector<Finding> findings = RunCases(record, options.filter);
  const std::vector<Finding> after = RestoreComputer();
  findings.insert(findings.end(), after.begin(), after.end());

  const std::vector<CaseResult> results = ReadRecord(record);
  std::wstring error;
  if (!AtomicWriteText(options.report, ReportText(head, results, findings), error)) {
    return Refused(L"The report can't be written: " + error, kExitFailed);
  }
  platform::RemoveFile(record);
  for (const Finding& finding : findings) {
    if (!finding.good) platform::WriteStandardOutput(L"FAILED: " + finding.sentence + L"\n");
  }
  platform::WriteStandardOutput(
      Format(L"\n%s\nThe report: %s\n", SummaryText(results, findings), options.report));
  return NothingFailed(results, findings) ? kExitGood : kExitFailed;
}

int Begin(const std::vector<std::wstring>& arguments) {
  Options options;
  if (!ReadOptions(arguments, options)) return Refused(kUsage, kExitRefused);
  if (!IsElevated()) {
    return Refused(L"This check must be run as administrator.", kExitNotElevated);
  }
  platform::WriteStandardOutput(kIntroduction);
  if (WasInterrupted()) {
    platform::WriteStandardOutput(L"An earlier check was interrupted: removing what it left.\n\n");
    for (const Finding& finding : RestoreComputer()) {
      if (!finding.good) return Refused(finding.sentence, kExitRefused);
    }
  }
  if (const std::wstring reason = WhyNotHere(); !reason.empty()) {
    return Refused(reason + L" This check installs and removes it, so none is made here.",
                   kExitRefused);
  }
  if (!options.yes && !Agreed()) return Refused(L"No check was made.", kExitRefused);
  return Check(options);
}

}  // namespace

int RunFront(const std::vector<std::wstring>& arguments) {
  const int code = Begin(arguments);
  if (HasConsoleToItself()) {
    platform::WriteStandardOutput(L"Press Enter to close this window.");
    std::cin.get();
  }
  return code;
}

}  // namespace kestrelon::check
