#include "tools/check/report.h"

#include <algorithm>
#include <cctype>
#include <map>

#include "base/format.h"
#include "base/text.h"
#include "platform/clock.h"
#include "tools/check/areas.h"
#include "tools/check/system_facts.h"

namespace kestrelon::check {
namespace {

constexpr const wchar_t* kIndent = L"                      ";

// Each verdict as a column of the report.
const wchar_t* VerdictText(Verdict verdict) {
  switch (verdict) {
    case Verdict::kPassed:
      return L"  passed              ";
    case Verdict::kSkipped:
      return L"  skipped             ";
    case Verdict::kLacking:
      return L"  not on this system  ";
    default:
      return L"  FAILED              ";
  }
}

// "MakePipe.IsRefusedWhenTaken" as "MakePipe: is refused when taken".
std::wstring Sentence(const std::string& name) {
  std::string sentence;
  const std::size_t dot = name.find('.');
  for (const char c : name.substr(dot + 1)) {
    if (std::isupper(c) && !sentence.empty()) sentence += ' ';
    sentence += static_cast<char>(std::tolower(c));
  }
  return WideFromUtf8(name.substr(0, dot) + ": " + sentence);
}

std::size_t CountOf(Verdict verdict, const std::vector<CaseResult>& results) {
  return static_cast<std::size_t>(std::ranges::count(results, verdict, &CaseResult::verdict));
}

std::size_t CountPassed(const std::vector<CaseResult>& results,
                        const std::vector<Finding>& findings) {
  return CountOf(Verdict::kPassed, results) +
         static_cast<std::size_t>(std::ranges::count(findings, true, &Finding::good));
}

// What failed, with what broke off in its middle.
std::size_t CountFailed(const std::vector<CaseResult>& results,
                        const std::vector<Finding>& findings) {
  return CountOf(Verdict::kFailed, results) + CountOf(Verdict::kRunning, results) +
         static_cast<std::size_t>(std::ranges::count(findings, false, &Finding::good));
}

std::wstring FindingLine(const Finding& finding) {
  return VerdictText(finding.good ? Verdict::kPassed : Verdict::kFailed) + finding.sentence +
         L"\r\n";
}

}  // namespace

std::wstring CaseLines(const CaseResult& result) {
  std::wstring lines = VerdictText(result.verdict) + Sentence(result.name) + L"\r\n";
  if (result.verdict == Verdict::kPassed) return lines;
  const std::wstring text = WideFromUtf8(result.text);
  for (const std::wstring_view line : SplitAt(text, L"\n")) {
    if (!line.empty()) lines += std::wstring(kIndent).append(line) + L"\r\n";
  }
  return lines;
}

std::wstring SummaryText(const std::vector<CaseResult>& results,
                         const std::vector<Finding>& findings) {
  return Format(L"%zu passed, %zu failed, %zu skipped, %zu not on this system",
                CountPassed(results, findings), CountFailed(results, findings),
                CountOf(Verdict::kSkipped, results), CountOf(Verdict::kLacking, results));
}

bool NothingFailed(const std::vector<CaseResult>& results, const std::vector<Finding>& findings) {
  return CountFailed(results, findings) == 0 && CountOf(Verdict::kPassed, results) > 0;
}

std::wstring HeadText() {
  const platform::CalendarTime now = platform::LocalTime().value_or(platform::CalendarTime{});
  std::wstring head = L"Kestrelon on this computer\r\n\r\n";
  head += Format(L"Date        %04u-%02u-%02u %02u:%02u\r\n", now.year, now.month, now.day,
                 now.hour, now.minute);
  head += Format(L"System      %s\r\n", SystemName());
  head += Format(L"Run as      %s\r\n",
                 RunsAsLocalSystem() ? L"LocalSystem" : L"an elevated administrator");
  head += Format(L"Product     KestrelonSvc.exe %s\r\n", ServiceVersion());
  head += Format(L"SHA-256     %s\r\n", ServiceSha256());
  return head;
}

std::string ReportText(const std::wstring& head, const std::vector<CaseResult>& results,
                       const std::vector<Finding>& findings) {
  std::map<std::pair<int, std::string>, std::wstring> areas;
  for (const CaseResult& result : results) {
    areas[{AreaOrder(result.file), AreaHeading(result.file)}] += CaseLines(result);
  }
  std::wstring text = head;
  for (const auto& [area, lines] : areas) {
    text += L"\r\n" + WideFromUtf8(area.second) + L"\r\n" + lines;
  }
  text += L"\r\nThe computer after the check\r\n";
  for (const Finding& finding : findings) text += FindingLine(finding);
  text += L"\r\n" + SummaryText(results, findings) + L"\r\n";
  return Utf8FromWide(text);
}

}  // namespace kestrelon::check
