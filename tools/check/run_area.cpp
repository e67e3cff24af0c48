#include "tools/check/run_area.h"

#include <windows.h>

#include <gtest/gtest.h>
#include <shlwapi.h>

#include <algorithm>
#include <map>
#include <set>
#include <sstream>
#include <tuple>
#include <utility>

#include "base/text.h"
#include "core/error_text.h"
#include "tools/check/areas.h"
#include "tools/check/record.h"
#include "tools/check/system_facts.h"
#include "unproved_cases.h"

namespace kestrelon::check {
namespace {

using Area = std::pair<int, std::string>;  // order and file

// Suites that an administrator's program can't run, and why. (Wine and its bench don't tell an
// administrator from LocalSystem.)
constexpr struct {
  const char* suite;
  const char* reason;
} kForLocalSystem[] = {
    {"LinkedToken", "only LocalSystem is given a token to start programs with"},
    {"ForegroundRun", "only LocalSystem may add filters to the sublayer, which is locked at once"},
};

std::string NameOf(const testing::TestInfo& info) {
  return std::string(info.test_suite_name()) + "." + info.name();
}

// The reasons why cases can't be proved under Wine, by their names.
std::map<std::string, std::string> UnprovedUnderWine() {
  std::map<std::string, std::string> reasons;
  std::istringstream lines(kUnprovedCases);
  for (std::string line; std::getline(lines, line);) {
    const std::size_t end = line.find(' ');
    if (line.starts_with('#') || end == std::string::npos) continue;
    reasons[line.substr(0, end)] = line.substr(line.find_first_not_of(' ', end));
  }
  return reasons;
}

// What stands between this run and a case.
class Obstacles {
 public:
  Obstacles() : engine_(EngineAnswer()), wine_(!WineVersion().empty()) {
    if (wine_) lacking_ = UnprovedUnderWine();
  }

  // Whether the case is to be left out; the verdict and the reason are then in the result.
  bool Hold(const std::string& suite, CaseResult& result) const {
    if (const auto found = lacking_.find(result.name); found != lacking_.end()) {
      result.verdict = Verdict::kLacking;
      result.text = found->second;
      return true;
    }
    result.verdict = Verdict::kSkipped;
    if (engine_ != platform::kSuccess &&
        (suite.starts_with("Wfp") || AreaNeedsEngine(result.file))) {
      result.text = "the filtering engine does not answer: " + Utf8FromWide(ErrorText(engine_));
      return true;
    }
    if (wine_ || RunsAsLocalSystem()) return false;
    for (const auto& [needing, reason] : kForLocalSystem) {
      result.text = reason;
      if (suite == needing) return true;
    }
    return false;
  }

 private:
  platform::Code engine_;
  bool wine_;
  std::map<std::string, std::string> lacking_;
};

// Writes down each case of a run when it begins and when it ends.
class Recorder : public testing::EmptyTestEventListener {
 public:
  explicit Recorder(std::wstring record) : record_(std::move(record)) {}

  void OnTestStart(const testing::TestInfo& info) override {
    AppendRecord(record_, {NameOf(info), info.file(), Verdict::kRunning, ""});
  }

  void OnTestEnd(const testing::TestInfo& info) override {
    const testing::TestResult& result = *info.result();
    CaseResult told{NameOf(info), info.file(), Verdict::kPassed, TextOf(result)};
    if (result.Failed()) {
      told.verdict = Verdict::kFailed;
    } else if (result.Skipped()) {
      told.verdict = Verdict::kSkipped;
    }
    AppendRecord(record_, told);
  }

 private:
  static std::string TextOf(const testing::TestResult& result) {
    std::string text;
    for (int i = 0; i < result.total_part_count(); ++i) {
      const testing::TestPartResult& part = result.GetTestPartResult(i);
      if (part.failed() && part.file_name() != nullptr) {
        text += std::string(part.file_name()) + ":" + std::to_string(part.line_number()) + "\n";
      }
      if (!part.passed()) text += std::string(part.message()) + "\n";
    }
    return text;
  }

  std::wstring record_;
};

// A filter of GoogleTest's: patterns between colons, and behind a "-" those that are not wanted.
class Wishes {
 public:
  explicit Wishes(std::string filter) {
    std::ranges::replace(filter, ':', ';');  // as the platform separates patterns
    const std::size_t minus = filter.find('-');
    wanted_ = filter.substr(0, minus);
    if (wanted_.empty()) wanted_ = "*";
    if (minus != std::string::npos) unwanted_ = filter.substr(minus + 1);
  }

  bool Hold(const std::string& name) const {
    return PathMatchSpecA(name.c_str(), wanted_.c_str()) &&
           (unwanted_.empty() || !PathMatchSpecA(name.c_str(), unwanted_.c_str()));
  }

 private:
  std::string wanted_, unwanted_;
};

using Cases = std::vector<const testing::TestInfo*>;

// The cases that are wanted and not in the record, by area.
std::map<Area, Cases> CasesLeft(const std::wstring& record) {
  const Wishes wishes(GTEST_FLAG_GET(filter));
  std::set<std::string> known;
  for (const CaseResult& result : ReadRecord(record)) known.insert(result.name);
  std::map<Area, Cases> left;
  const testing::UnitTest& all = *testing::UnitTest::GetInstance();
  for (int i = 0; i < all.total_test_suite_count(); ++i) {
    const testing::TestSuite& suite = *all.GetTestSuite(i);
    for (int j = 0; j < suite.total_test_count(); ++j) {
      const testing::TestInfo& info = *suite.GetTestInfo(j);
      const std::string name = NameOf(info);
      if (!wishes.Hold(name) || known.contains(name)) continue;
      left[{AreaOrder(info.file()), info.file()}].push_back(&info);
    }
  }
  return left;
}

}  // namespace

int RunNextArea(const std::wstring& record) {
  const std::map<Area, Cases> left = CasesLeft(record);
  if (left.empty()) return kNothingLeft;
  const Obstacles obstacles;
  std::string filter;
  for (const testing::TestInfo* info : left.begin()->second) {
    CaseResult result{NameOf(*info), info->file(), Verdict::kRunning, ""};
    if (obstacles.Hold(info->test_suite_name(), result)) {
      AppendRecord(record, result);
    } else {
      filter += result.name + ":";
    }
  }
  if (filter.empty()) return 0;
  GTEST_FLAG_SET(filter, filter);
  testing::TestEventListeners& listeners = testing::UnitTest::GetInstance()->listeners();
  delete listeners.Release(listeners.default_result_printer());
  listeners.Append(new Recorder(record));
  // Failures are in the record; another exit code than this one is a process that broke off.
  std::ignore = RUN_ALL_TESTS();
  return 0;
}

}  // namespace kestrelon::check
