// What the platform's HTTP client makes of an answer, asked from a server of this process.
#include <winsock2.h>

#include <ws2tcpip.h>

#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "platform/http.h"

namespace {

using namespace kestrelon::platform;

// Gives one client the same bytes whatever it asks, and then hangs up.
class OneAnswer {
 public:
  explicit OneAnswer(const std::string& answer) {
    WSADATA data;
    EXPECT_EQ(WSAStartup(MAKEWORD(2, 2), &data), 0);
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int size = sizeof name;
    listener_ = socket(AF_INET, SOCK_STREAM, 0);
    bind(listener_, reinterpret_cast<sockaddr*>(&name), size);
    getsockname(listener_, reinterpret_cast<sockaddr*>(&name), &size);
    EXPECT_EQ(listen(listener_, 1), 0);
    port_ = ntohs(name.sin_port);
    thread_ = std::thread([this, answer] { Serve(answer); });
  }
  ~OneAnswer() {
    closesocket(listener_);
    if (thread_.joinable()) thread_.join();
    WSACleanup();
  }

  std::uint16_t port() const { return port_; }

  // What the client has sent; waits until it has been answered.
  std::string Request() {
    thread_.join();
    return request_;
  }

 private:
  void Serve(const std::string& answer) {
    const SOCKET client = accept(listener_, nullptr, nullptr);
    char letter = 0;
    while (!request_.ends_with("\r\n\r\n") && recv(client, &letter, 1, 0) == 1) request_ += letter;
    send(client, answer.data(), static_cast<int>(answer.size()), 0);
    closesocket(client);
  }

  SOCKET listener_ = INVALID_SOCKET;
  std::uint16_t port_ = 0;
  std::string request_;
  std::thread thread_;
};

// A request to a server of this process, answered.
struct Answered {
  explicit Answered(std::uint16_t port) {
    EXPECT_EQ(OpenHttpSession(L"Contract", 1, session), kSuccess);  // 1: without a proxy
    EXPECT_EQ(ForbidHttpRedirects(session), kSuccess);
    EXPECT_EQ(ConnectHttp(session, L"127.0.0.1", port, connection), kSuccess);
    EXPECT_EQ(OpenHttpRequest(connection, L"GET", L"/file", kHttpRefresh, request), kSuccess);
    EXPECT_EQ(SendHttpRequest(request.handle(), L"X-Contract: kept\r\n"), kSuccess);
    EXPECT_EQ(ReceiveHttpResponse(request.handle()), kSuccess);
  }

  HttpHandle session, connection, request;
};

TEST(HttpRequest, CarriesTheAgentAndTheHeadersOfTheCaller) {
  OneAnswer server("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
  const Answered answered(server.port());
  const std::string request = server.Request();
  for (const char* const part : {"GET /file HTTP/1.1\r\n", "\r\nUser-Agent: Contract\r\n",
                                 "\r\nX-Contract: kept\r\n", "no-cache"}) {
    EXPECT_NE(request.find(part), std::string::npos) << part << " in:\n" << request;
  }
}

TEST(HttpAnswer, TellsStatusAndLengthAndHasItsBodyReadToTheEnd) {
  constexpr std::int64_t kNone = -1;
  const struct {
    std::string answer;
    std::uint32_t status;
    std::int64_t length;
    std::string body;
  } cases[] = {
      {"200 OK\r\nContent-Length: 5\r\n\r\nwhole", 200, 5, "whole"},
      {"200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nwho\r\n2\r\nle\r\n0\r\n\r\n", 200, kNone,
       "whole"},
      {"301 Moved Permanently\r\nLocation: /other\r\nContent-Length: 2\r\n\r\ngo", 301, 2, "go"},
      {"200 OK\r\nContent-Length: 5000000000\r\n\r\nmore", 200, 5000000000, "more"},
      {"200 OK\r\nContent-Length: 9223372036854775808\r\n\r\n", 200, kNone, ""},
  };
  for (const auto& [answer, status, length, body] : cases) {
    OneAnswer server("HTTP/1.1 " + answer);
    const Answered answered(server.port());
    const std::uintptr_t request = answered.request.handle();
    std::uint32_t told = 0;
    EXPECT_EQ(QueryHttpStatus(request, told), kSuccess);
    EXPECT_EQ(told, status) << answer;
    std::int64_t promised = kNone;
    EXPECT_EQ(QueryHttpLength(request, promised) == kSuccess, length != kNone) << answer;
    EXPECT_EQ(promised, length);
    std::string read;
    std::uint32_t size = 0;
    while (QueryHttpData(request, size) == kSuccess && size != 0) {
      std::string piece(size, '\0');
      ASSERT_EQ(ReadHttpData(request, piece.data(), size, size), kSuccess);
      read.append(piece, 0, size);
    }
    EXPECT_EQ(read, body) << answer;
  }
}

}  // namespace
