// The report: what a person reads in the end, and what runs past on the console before.
#pragma once

#include <string>
#include <vector>

#include "tools/check/record.h"

namespace kestrelon::check {

// Something else than a case that is right or not, such as the machine's state after the check.
struct Finding {
  bool good = false;
  std::wstring sentence;
};

// One case in one line, and below it, for one that didn't pass, why; with its line ends.
[[nodiscard]] std::wstring CaseLines(const CaseResult& result);

// "190 passed, 0 failed, 2 skipped, 13 not on this system", findings counted in, and whether
// nothing failed, which takes at least one case that passed.
[[nodiscard]] std::wstring SummaryText(const std::vector<CaseResult>& results,
                                       const std::vector<Finding>& findings);
[[nodiscard]] bool NothingFailed(const std::vector<CaseResult>& results,
                                 const std::vector<Finding>& findings);

// What stands at the head of the report: the machine, the product, the time.
[[nodiscard]] std::wstring HeadText();

// The whole report, in UTF-8.
[[nodiscard]] std::string ReportText(const std::wstring& head,
                                     const std::vector<CaseResult>& results,
                                     const std::vector<Finding>& findings);

}  // namespace kestrelon::check
