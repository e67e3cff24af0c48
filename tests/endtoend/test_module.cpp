// The tests' module: does what it is ordered to and tells what came of it.
//
// Started by the service it takes orders from the lines of C:\module\orders, beginning with the
// first one, and answers each with a line in C:\module\answers; the very first answer is "started"
// and its arguments. Started otherwise its arguments are the orders, answered on the output.
//
//   connect           opens the module pipe, in place of what was open: "connected", or "no pipe"
//   burst N MESSAGE   sends a message N times: "N replies", as many as came
//   list PIPE         its access list, as text
//   exit CODE         ends with this exit code, unanswered
//   anything else     is sent as a message: the reply, or "disconnected"
#include <windows.h>

#include <aclapi.h>
#include <sddl.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>

namespace {

constexpr char kOrdersFile[] = "C:\\module\\orders";
constexpr char kAnswersFile[] = "C:\\module\\answers";
constexpr std::chrono::milliseconds kPollSpacing{20};

// One at a time; it ends with the process.
class Connection {
 public:
  bool Open() {
    if (pipe_ != INVALID_HANDLE_VALUE) CloseHandle(pipe_);
    pipe_ = CreateFileW(L"\\\\.\\pipe\\Kestrelon.Modules", GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                        OPEN_EXISTING, 0, nullptr);
    DWORD mode = PIPE_READMODE_MESSAGE;
    return pipe_ != INVALID_HANDLE_VALUE &&
           SetNamedPipeHandleState(pipe_, &mode, nullptr, nullptr) != FALSE;
  }

  // False when the other side is gone.
  bool Ask(const std::string& message, std::string& answer) {
    char bytes[16384];
    DWORD moved = 0;
    if (!WriteFile(pipe_, message.data(), static_cast<DWORD>(message.size()), &moved, nullptr) ||
        !ReadFile(pipe_, bytes, sizeof bytes, &moved, nullptr)) {
      return false;
    }
    answer.assign(bytes, moved);
    return true;
  }

 private:
  HANDLE pipe_ = INVALID_HANDLE_VALUE;
};

std::string AccessList(const std::string& pipe) {
  const HANDLE handle = CreateFileA(("\\\\.\\pipe\\" + pipe).c_str(), READ_CONTROL, 0, nullptr,
                                    OPEN_EXISTING, 0, nullptr);
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  char* text = nullptr;
  if (GetSecurityInfo(handle, SE_KERNEL_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                      nullptr, nullptr, &descriptor) != ERROR_SUCCESS ||
      !ConvertSecurityDescriptorToStringSecurityDescriptorA(
          descriptor, SDDL_REVISION_1, DACL_SECURITY_INFORMATION, &text, nullptr)) {
    return "unreadable";
  }
  CloseHandle(handle);
  return text;  // never freed: few are asked for
}

std::string Obey(Connection& connection, const std::string& order) {
  std::istringstream words(order);
  std::string verb;
  words >> verb;
  if (verb == "connect") return connection.Open() ? "connected" : "no pipe";
  if (verb == "list") {
    std::string pipe;
    words >> pipe;
    return AccessList(pipe);
  }
  if (verb == "exit") {
    std::string code;
    words >> code;
    ExitProcess(std::strtoul(code.c_str(), nullptr, 0));
  }
  std::string answer = "disconnected";
  if (verb == "burst") {
    int wanted = 0;
    std::string message;
    std::getline(words >> wanted >> std::ws, message);
    int replies = 0;
    while (replies < wanted && connection.Ask(message, answer)) ++replies;
    return std::to_string(replies) + " replies";
  }
  connection.Ask(order, answer);
  return answer;
}

// Takes the next order once it is there as a whole.
std::string NextOrder(std::streamoff& position) {
  for (;; std::this_thread::sleep_for(kPollSpacing)) {
    std::ifstream orders(kOrdersFile, std::ios::binary);
    std::string order;
    if (!orders.seekg(position) || !std::getline(orders, order) || orders.eof()) continue;
    position = orders.tellg();
    return order;
  }
}

[[noreturn]] void ServeOrders(Connection& connection, const std::string& arguments) {
  std::ofstream answers(kAnswersFile, std::ios::binary | std::ios::app);
  answers << "started" + arguments + '\n' << std::flush;
  for (std::streamoff position = 0;;) {
    answers << Obey(connection, NextOrder(position)) + '\n' << std::flush;
  }
}

}  // namespace

int main(int argc, char** argv) {
  Connection connection;
  if (argc > 1 && argv[1][0] != '-') {
    for (int i = 1; i < argc; ++i) std::cout << Obey(connection, argv[i]) << '\n';
    return 0;
  }
  std::string arguments;
  for (int i = 1; i < argc; ++i) arguments += std::string(" ") + argv[i];
  ServeOrders(connection, arguments);
}
