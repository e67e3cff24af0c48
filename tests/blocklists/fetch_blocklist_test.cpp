// What comes of one download, and how it is given up.
#include "blocklists/fetch_blocklist.h"

#include <gtest/gtest.h>

#include "core/error_text.h"
#include "simulation/machine/machine.h"

namespace kestrelon {
namespace {

const std::wstring kUrl = L"https://feeds.test/list";
constexpr std::size_t kLargestBody = 0x800000;

class FetchBlocklist : public testing::TestWithParam<const char*> {
 protected:
  // The size of what came, or why nothing did.
  std::wstring Fetched(const std::wstring& url = kUrl) {
    std::string body = "untouched";
    std::wstring error;
    const bool fetched = FetchBlocklistUrl(url, body, error);
    EXPECT_EQ(machine.http.open_handles(), 0U);
    EXPECT_TRUE(fetched || body == "untouched");
    return fetched ? std::to_wstring(body.size()) : error;
  }

  simulation::Machine& machine = simulation::TheMachine();
};

TEST_F(FetchBlocklist, TellsWhyNothingCame) {
  const std::string large(kLargestBody, 'x');
  const std::pair<simulation::HttpResponse, std::wstring> cases[] = {
      {{.body = "twelve bytes", .chunk = 5}, L"12"},
      {{.redirect = L"https://mirror.test/list"}, L"6"},
      {{.redirect = L"http://mirror.test/list"}, L"HTTP 302"},
      {{.status = 206, .body = "half"}, L"HTTP 206"},
      {{.failure = 12175}, ErrorText(12175)},
      {{.body = "twelve bytes", .fail_after = 6}, ErrorText(12030)},
      {{.body = large, .chunk = 1 << 20}, std::to_wstring(kLargestBody)},
      {{.body = large + "x", .chunk = 1 << 20}, L"the list is too large"},
  };
  machine.http.Serve(L"https://mirror.test/list", {.body = "mirror"});
  machine.http.Serve(L"http://mirror.test/list", {.body = "plain"});
  for (const auto& [response, expected] : cases) {
    machine.http.Serve(kUrl, response);
    EXPECT_EQ(Fetched(), expected);
  }
  for (const wchar_t* const url : {L"http://mirror.test/list", L"mirror.test/list", L""}) {
    EXPECT_EQ(Fetched(url), L"invalid URL") << testing::PrintToString(url);
  }
  machine.http.Serve(kUrl, {.body = large + "x", .chunk = 1 << 30});
  machine.faults.FailAlways("ReadHttpData", platform::kAccessDenied);
  EXPECT_EQ(Fetched(), L"the list is too large") << "before it is read";
}

TEST_P(FetchBlocklist, EndsWithTheCallThatFailsOrIsCancelled) {
  machine.http.Serve(kUrl, {.body = "list"});
  machine.faults.FailOnce(GetParam(), platform::kAccessDenied);
  EXPECT_EQ(Fetched(), ErrorText(platform::kAccessDenied));
  machine.faults.RunBefore(GetParam(), CancelBlocklistFetches);
  EXPECT_EQ(Fetched(), L"stopped");
  const std::size_t requests = machine.http.Requests().size();
  EXPECT_EQ(Fetched(), L"stopped");
  EXPECT_EQ(machine.http.Requests().size(), requests) << "a later one sends nothing";
}

INSTANTIATE_TEST_SUITE_P(At, FetchBlocklist,
                         testing::Values("OpenHttpSession", "ConnectHttp", "OpenHttpRequest",
                                         "SendHttpRequest", "ReceiveHttpResponse",
                                         "QueryHttpStatus", "QueryHttpData", "ReadHttpData"));

}  // namespace
}  // namespace kestrelon
