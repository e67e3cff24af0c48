// The platform's HTTP client against real servers over TLS: tests/wine/run_tests.sh runs one whose
// authority this machine trusts (C:\feed) and one that nobody trusts (C:\untrusted). What they
// answer is told by tests/endtoend/feed_server.py.
#include "platform/http.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

namespace {

using namespace kestrelon::platform;

constexpr std::uint16_t kFeedPort = 28444;
constexpr std::uint16_t kUntrustedPort = 28445;

// So large that it comes in several pieces, and no two places in it are alike.
std::string LargeBody() {
  std::string body;
  for (int number = 0; body.size() < 300000; ++number) body += std::to_string(number) + "\n";
  return body;
}

void Put(const std::string& file, const std::string& bytes) {
  std::ofstream("C:\\feed\\www\\" + file, std::ios::binary) << bytes;
}

struct Answer {
  Code code = kSuccess;
  std::uint32_t status = 0;
  std::string body;
  int reads = 0;
};

Code ReadBody(std::uintptr_t request, Answer& answer) {
  for (;;) {
    std::uint32_t available = 0;
    if (const Code code = QueryHttpData(request, available)) return code;
    if (available == 0) return kSuccess;
    std::string piece(available, '\0');
    std::uint32_t read = 0;
    if (const Code code = ReadHttpData(request, piece.data(), available, read)) return code;
    answer.body.append(piece, 0, read);
    ++answer.reads;
  }
}

Answer Get(const std::wstring& path, std::uint16_t port = kFeedPort,
           const std::wstring& host = L"localhost") {
  HttpHandle session, connection, request;
  Answer answer;
  const auto step = [&answer](Code code) { return (answer.code = code) == kSuccess; };
  const HttpTimeouts timeouts = {.resolve = 5000, .connect = 5000, .send = 5000, .receive = 5000};
  if (!step(OpenHttpSession(L"Kestrelon test", kHttpAutomaticProxy, session)) ||
      !step(SetHttpTimeouts(session, timeouts)) ||
      !step(ConnectHttp(session, host, port, connection)) ||
      !step(OpenHttpRequest(connection, L"GET", path, kHttpSecure, request)) ||
      !step(SendHttpRequest(request.handle())) || !step(ReceiveHttpResponse(request.handle())) ||
      !step(QueryHttpStatus(request.handle(), answer.status))) {
    return answer;
  }
  answer.code = ReadBody(request.handle(), answer);
  return answer;
}

TEST(Http, GivesTheStatusAndTheBodyByteForByte) {
  const std::string body = LargeBody();
  Put("large", body);
  Put("chunked", body);
  Put("chunked.chunked", "");
  for (const wchar_t* path : {L"/large", L"/chunked"}) {
    const Answer answer = Get(path);
    ASSERT_EQ(answer.code, kSuccess);
    EXPECT_EQ(answer.status, 200u);
    EXPECT_TRUE(answer.body == body) << answer.body.size() << " bytes";
    EXPECT_GT(answer.reads, 1);
  }
  Put("broken.status", "503");
  EXPECT_EQ(Get(L"/broken").status, 503u);
  EXPECT_EQ(Get(L"/none").status, 404u);
}

TEST(Http, FollowsRedirects) {
  Put("target", "here");
  Put("first.redirect", "/second");
  Put("second.redirect", "https://localhost:28444/target");
  const Answer answer = Get(L"/first");
  EXPECT_EQ(answer.code, kSuccess);
  EXPECT_EQ(answer.status, 200u);
  EXPECT_EQ(answer.body, "here");
}

TEST(Http, SendsThePathWithItsQueryAndTheAgent) {
  Put("agent", "");
  EXPECT_EQ(Get(L"/agent?a=b").status, 200u);
  std::ifstream log("C:\\feed\\requests");
  const std::string lines{std::istreambuf_iterator<char>(log), {}};
  EXPECT_NE(lines.find("/agent?a=b 200 Kestrelon test\n"), lines.npos) << lines;
}

TEST(Http, TellsWhyNoConnectionComesAbout) {
  EXPECT_EQ(Get(L"/x", kFeedPort, L"no-such-host.invalid").code, 12007u);
  EXPECT_EQ(Get(L"/x", 1).code, 12029u);
  const Code untrusted = Get(L"/x", kUntrustedPort).code;
  // ERROR_WINHTTP_SECURE_FAILURE; Wine's own is ERROR_WINHTTP_SECURE_CHANNEL_ERROR.
  EXPECT_TRUE(untrusted == 12175 || untrusted == 12157) << untrusted;
}

TEST(Http, NeverTakesACutBodyForMoreThanItIs) {
  Put("cut", LargeBody());
  Put("cut.cut", "5000");
  const Answer answer = Get(L"/cut");
  EXPECT_EQ(answer.status, 200u);
  // The platform tells that the connection was lost; Wine ends the body there.
  if (answer.code == kSuccess) {
    EXPECT_TRUE(answer.body == LargeBody().substr(0, 5000)) << answer.body.size() << " bytes";
  } else {
    EXPECT_EQ(answer.code, 12030u);
  }
}

}  // namespace
