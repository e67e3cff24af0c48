// What comes of one transfer from the update host, and how a stop ends it.
#include "updates/update_transfer.h"

#include <gtest/gtest.h>

#include <thread>

#include "simulation/machine/machine.h"

namespace kestrelon {
namespace {

using simulation::HttpResponse;

const std::wstring kUrl = L"https://updates.test/file";
constexpr std::int64_t kMostBytes = 200000;
const std::string kLargest(kMostBytes, 'x');

class UpdateTransfer : public testing::Test {
 protected:
  // The size of what came, or why not all of it did.
  std::wstring Got(const std::wstring& url = kUrl) {
    std::int64_t received = 0;
    progress.clear();
    std::wstring error;
    const auto take = [&](const void*, std::uint32_t size) {
      EXPECT_LE(size, 65536U);
      received += size;
      return received <= refused_from;
    };
    const auto tell = [&](std::int64_t now, std::int64_t total) {
      EXPECT_EQ(now, received);
      progress.emplace_back(now, total);
    };
    const bool got = HttpGet(url, kMostBytes, take, tell, error);
    EXPECT_LE(received, kMostBytes);
    EXPECT_EQ(machine.http.open_handles(), 0U);
    return got ? std::to_wstring(received) : error;
  }

  simulation::Machine& machine = simulation::TheMachine();
  std::int64_t refused_from = kMostBytes;
  std::vector<std::pair<std::int64_t, std::int64_t>> progress;
};

TEST_F(UpdateTransfer, TellsWhyTheFileDidNotCome) {
  const std::pair<HttpResponse, std::wstring> cases[] = {
      {{.body = kLargest, .chunk = 100000}, L"200000"},
      {{.body = kLargest, .chunked = true}, L"200000"},
      {{.body = ""}, L"0"},
      {{.body = kLargest + "x"}, L"the file is larger than expected"},
      {{.body = kLargest + "x", .chunked = true}, L"the file is larger than expected"},
      {{.body = "little", .length = 5'000'000'000}, L"the file is larger than expected"},
      {{.body = "little", .length = 7}, L"the download was cut off"},
      {{.body = "little", .fail_after = 3, .read_failure = 0}, L"the download was cut off"},
      {{.body = "little", .fail_after = 3},
       L"The connection with the server was terminated abnormally (12030)"},
      {{.failure = 12029}, L"A connection with the server could not be established (12029)"},
      {{.failure = 12200}, L"network error 12200"},
      {{.failure = platform::kAccessDenied}, L"network error 5"},
      {{.status = 301, .redirect = L"https://updates.test/other"}, L"HTTP 301"},
      {{.status = 500, .body = "no"}, L"HTTP 500"},
      {{.status = 206, .body = "part"}, L"HTTP 206"},
  };
  machine.http.Serve(L"https://updates.test/other", {.body = "other"});
  for (const auto& [response, expected] : cases) {
    machine.http.Serve(kUrl, response);
    EXPECT_EQ(Got(), expected);
  }
  machine.http.Serve(L"http://updates.test/file", {.body = "plain"});
  for (const wchar_t* const url : {L"http://updates.test/file", L"updates.test/file", L""}) {
    EXPECT_EQ(Got(url), L"invalid address") << testing::PrintToString(url);
  }
  const std::size_t requests = machine.http.Requests().size();
  machine.faults.FailOnce("ForbidHttpRedirects", platform::kAccessDenied);
  EXPECT_EQ(Got(), L"network error 5");
  EXPECT_EQ(machine.http.Requests().size(), requests) << "nothing is asked if it may be redirected";
}

TEST_F(UpdateTransfer, TellsHowFarItIsUntilAPieceIsNotTaken) {
  machine.http.Serve(kUrl, {.body = kLargest, .chunk = 100000});
  ASSERT_EQ(Got(), L"200000");
  const decltype(progress) pieces = {
      {65536, 200000}, {131072, 200000}, {196608, 200000}, {200000, 200000}};
  EXPECT_EQ(progress, pieces);
  refused_from = 131072;
  EXPECT_EQ(Got(), L"cannot save the file");
  EXPECT_EQ(progress.size(), 2U);
  machine.http.Serve(kUrl, {.body = "little", .chunked = true});
  ASSERT_EQ(Got(), L"6");
  EXPECT_EQ(progress, (decltype(progress){{6, -1}}));
}

TEST_F(UpdateTransfer, AsksPastEveryCache) {
  machine.http.Serve(kUrl, {.body = "little"});
  ASSERT_EQ(Got(), L"6");
  const simulation::HttpRequest request = machine.http.Requests().at(0);
  EXPECT_EQ(request.client.agent, L"Kestrelon-Update");
  EXPECT_EQ(request.client.timeouts, (platform::HttpTimeouts{15000, 15000, 30000, 60000}));
  EXPECT_EQ(request.headers, L"Cache-Control: no-cache\r\n");
  EXPECT_EQ(request.flags, 0x800100U);
}

TEST_F(UpdateTransfer, LeavesTheTextAloneUnlessAllOfItCame) {
  std::string text = "before";
  std::wstring error;
  machine.http.Serve(kUrl, {.body = "little", .length = 7});
  EXPECT_FALSE(DownloadText(kUrl, 7, text, error));
  EXPECT_EQ(text, "before");
  machine.http.Serve(kUrl, {.body = "little", .chunk = 4});
  EXPECT_TRUE(DownloadText(kUrl, 6, text, error)) << testing::PrintToString(error);
  EXPECT_EQ(text, "little");
}

// The tests of fetched lists stop the same routine at each of its calls.
TEST_F(UpdateTransfer, IsStoppedWhileTheServerKeepsItWaiting) {
  machine.http.Serve(kUrl, {.body = "little", .fail_after = 3, .stalls = true});
  std::wstring result;
  std::thread transfer([&] { result = Got(); });
  machine.http.WaitForBlocked();
  CancelUpdateTransfers();
  transfer.join();
  EXPECT_EQ(result, L"the service is stopping");
  EXPECT_EQ(progress.size(), 1U);
  const std::size_t requests = machine.http.Requests().size();
  EXPECT_EQ(Got(), L"the service is stopping");
  EXPECT_EQ(machine.http.Requests().size(), requests) << "a later one sends nothing";
}

}  // namespace
}  // namespace kestrelon
