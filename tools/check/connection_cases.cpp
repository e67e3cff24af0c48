// Connections of this very process, decided by the real engine.
#include <winsock2.h>

#include <ws2tcpip.h>

#include "platform/paths.h"
#include "platform/system_text.h"
#include "tools/check/cases.h"

namespace kestrelon::check {
namespace {

// Addresses that nobody has, and a port that nobody serves.
constexpr const char* kAddresses[] = {"192.0.2.1", "2001:db8::1"};
constexpr const char* kPort = "47808";

class Connections : public InstalledService {
 protected:
  Connections() {
    WSADATA data;
    EXPECT_EQ(WSAStartup(MAKEWORD(2, 2), &data), 0);
  }
  ~Connections() override { WSACleanup(); }

  // What a datagram to the address answers: 0 when it was sent.
  static int SendTo(const char* address) {
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICHOST;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo* to = nullptr;
    if (getaddrinfo(address, kPort, &hints, &to) != 0) return WSAGetLastError();
    const SOCKET socket = ::socket(to->ai_family, SOCK_DGRAM, 0);
    const bool sent = sendto(socket, "?", 1, 0, to->ai_addr, static_cast<int>(to->ai_addrlen)) == 1;
    const int code = sent ? 0 : WSAGetLastError();
    closesocket(socket);
    freeaddrinfo(to);
    return code;
  }

  // Whether this process reaches itself over TCP.
  static bool ReachesItself() {
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int size = sizeof name;
    const SOCKET server = ::socket(AF_INET, SOCK_STREAM, 0);
    const SOCKET client = ::socket(AF_INET, SOCK_STREAM, 0);
    bind(server, reinterpret_cast<sockaddr*>(&name), size);
    getsockname(server, reinterpret_cast<sockaddr*>(&name), &size);
    listen(server, 1);
    const bool reached = connect(client, reinterpret_cast<const sockaddr*>(&name), size) == 0;
    closesocket(client);
    closesocket(server);
    return reached;
  }

  // A configuration with more members, in which this process is listed with an action, or, with
  // none, is not.
  static void Put(const char* action, const char* members = "") {
    std::wstring program;
    ASSERT_EQ(platform::ExecutableFile(program), platform::kSuccess);
    std::string apps;
    if (*action != '\0') {
      apps = "{\"path\":" + Json(program).Dump(false) + ",\"action\":\"" + action + "\"}";
    }
    const Json reply = SetConfig(R"({"presets_version":9,"apps":[)" + apps + "]" + members + "}");
    ASSERT_TRUE(reply.Get("ok").boolean()) << reply.Dump(false);
  }

  static bool IsThisProgram(const std::wstring& path) {
    std::wstring program;
    return platform::ExecutableFile(program) == platform::kSuccess &&
           platform::EqualIgnoringCase(path, program);
  }

  // Whether a list has a record of what the cases sent.
  static bool IsToldOf(const char* command, const char* list) {
    const Json records = Ask(command).Get(list);
    for (std::size_t i = 0; i < records.size(); ++i) {
      const Json& record = records.At(i);
      if (record.Get("remote_addr").text() == kAddresses[0] &&
          std::to_string(record.Get("remote_port").integer()) == kPort &&
          record.Get("dir").text() == "out" && IsThisProgram(record.Get("app").StringOr(L""))) {
        return true;
      }
    }
    return false;
  }
};

TEST_F(Connections, AreBlockedUnlessTheirProgramIsListed) {
  std::size_t tried = 0;
  for (const char* address : kAddresses) {
    Put("", R"(,"enabled":false)");
    if (SendTo(address) != 0) continue;  // there is no route
    ++tried;
    Put("");
    EXPECT_EQ(SendTo(address), WSAEACCES) << address;
    Put("allow");
    EXPECT_EQ(SendTo(address), 0) << address;
    Put("block");
    EXPECT_EQ(SendTo(address), WSAEACCES) << address;
  }
  if (tried == 0) GTEST_SKIP() << "this computer has no network";
}

TEST_F(Connections, AreBlockedByARuleWhateverIsListed) {
  Put("allow");
  if (SendTo(kAddresses[0]) != 0) GTEST_SKIP() << "this computer has no network";
  Put("allow", R"(,"rules":[{"name":"never","action":"block","remote":"192.0.2.0/24"}])");
  EXPECT_EQ(SendTo(kAddresses[0]), WSAEACCES);
}

TEST_F(Connections, StayBlockedWhileTheServiceIsDown) {
  Put("allow");
  if (SendTo(kAddresses[0]) != 0) GTEST_SKIP() << "this computer has no network";
  Put("");
  ASSERT_TRUE(BringDownService());
  EXPECT_EQ(SendTo(kAddresses[0]), WSAEACCES);
}

TEST_F(Connections, WithinTheComputerFollowTheSettingForThem) {
  Put("", R"(,"allow_loopback":false)");
  EXPECT_FALSE(ReachesItself());
  Put("", R"(,"allow_loopback":true)");
  EXPECT_TRUE(ReachesItself());
}

TEST_F(Connections, AreToldOfWhenBlockedAndOnRequestWhenAllowed) {
  Put("allow", R"(,"log_allowed":true)");
  if (SendTo(kAddresses[0]) != 0) GTEST_SKIP() << "this computer has no network";
  EXPECT_TRUE(Within(10, [] { return IsToldOf(R"({"cmd":"get_allowed"})", "connections"); }));
  EXPECT_FALSE(IsToldOf(R"({"cmd":"get_log"})", "events"));
  Put("");
  EXPECT_EQ(SendTo(kAddresses[0]), WSAEACCES);
  EXPECT_TRUE(Within(10, [] { return IsToldOf(R"({"cmd":"get_log"})", "events"); }));
}

}  // namespace
}  // namespace kestrelon::check
