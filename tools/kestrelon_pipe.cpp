// KestrelonPipe: a client of the control pipe for the command line. Sends a request to the service
// and prints what comes back; for people who look into a running service, and for tests.
//
// The exit code is 0 when every reply has `ok` true, 1 when one has not, 2 when none came, which is
// told on the error output.
#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "base/format.h"
#include "base/text.h"
#include "config/json.h"
#include "control/frames.h"
#include "control/pipe_server.h"
#include "core/error_text.h"
#include "platform/clock.h"
#include "platform/console.h"
#include "platform/pipes.h"

namespace kestrelon {
namespace {

constexpr int kExitSuccess = 0;
constexpr int kExitRefused = 1;
constexpr int kExitNoAnswer = 2;

// All instances of a pipe are taken for the moment between one client and the next, and after the
// last one has left there is none for a shorter one.
constexpr platform::Code kPipeBusy = 231;
constexpr std::uint32_t kConnectSpacingMs = 20;
constexpr int kTriesWhileBusy = 250;
constexpr int kTriesWhileAbsent = 10;

constexpr const wchar_t* kUsage =
    L"usage: KestrelonPipe [--clients N] [REQUEST]\n"
    L"       KestrelonPipe --follow\n"
    L"\n"
    L"  REQUEST      a JSON object, or a command's name alone: status stands for\n"
    L"               {\"cmd\":\"status\"}. Read from the input when not given.\n"
    L"  --clients N  open N connections, then send the request on each\n"
    L"  --follow     print events, one a line, until the connection ends\n";

struct Arguments {
  bool follow = false;
  std::size_t clients = 1;
  bool has_request = false;
  std::string request;
};

bool IsCommandName(const std::wstring& text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](wchar_t c) {
    return (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z') || c == L'_';
  });
}

std::string CommandRequest(const std::wstring& name) {
  Json request;
  request["cmd"] = Json(name);
  return request.Dump(false);
}

// A count from 1 to 255, as many as the pipe has instances; 0 for anything else.
std::size_t CountFromText(const std::wstring& text) {
  std::size_t count = 0;
  for (const wchar_t c : text) {
    if (c < L'0' || c > L'9' || count > 255) return 0;
    count = count * 10 + static_cast<std::size_t>(c - L'0');
  }
  return count <= 255 ? count : 0;
}

bool ReadArguments(const std::vector<std::wstring>& texts, Arguments& arguments) {
  for (std::size_t i = 0; i < texts.size(); ++i) {
    const std::wstring& text = texts[i];
    if (text == L"--follow") {
      arguments.follow = true;
    } else if (text == L"--clients" && i + 1 < texts.size()) {
      arguments.clients = CountFromText(texts[++i]);
    } else if (!text.starts_with(L'-') && !arguments.has_request) {
      arguments.has_request = true;
      arguments.request = IsCommandName(text) ? CommandRequest(text) : Utf8FromWide(text);
    } else {
      return false;
    }
  }
  return arguments.clients != 0 && !(arguments.follow && arguments.has_request);
}

std::string ReadStandardInput() {
  std::string text;
  char piece[0x10000];
  while (const std::size_t read = std::fread(piece, 1, sizeof(piece), stdin)) {
    text.append(piece, read);
  }
  return text;
}

bool Connect(platform::Pipe& pipe) {
  platform::Code code = platform::kSuccess;
  for (int tries = 1;; ++tries) {
    code = platform::OpenPipe(kControlPipeName, true, pipe);
    const bool may_come = (code == kPipeBusy && tries < kTriesWhileBusy) ||
                          (code == platform::kFileNotFound && tries < kTriesWhileAbsent);
    if (!may_come) break;
    platform::SleepMilliseconds(kConnectSpacingMs);
  }
  if (code == platform::kSuccess) return true;
  const std::wstring text = ErrorText(code);
  platform::WriteStandardError(
      code == platform::kFileNotFound
          ? L"The Kestrelon service is not running.\n"
          : Format(L"Connecting to the Kestrelon service failed: %s\n", text));
  return false;
}

int NoAnswer() {
  platform::WriteStandardError(L"The service ended the connection.\n");
  return kExitNoAnswer;
}

// Sends the request and prints the reply, indented; as it came when it is no JSON.
int Ask(const platform::Pipe& pipe, const std::string& request) {
  std::string text;
  if (!WriteFrame(pipe, request) || !ReadFrame(pipe, text)) return NoAnswer();
  Json reply;
  const bool parsed = Json::Parse(text, reply);
  platform::WriteStandardOutput(WideFromUtf8(parsed ? reply.Dump(true) : text) + L"\n");
  return reply.Get("ok").boolean() ? kExitSuccess : kExitRefused;
}

int Follow(const platform::Pipe& pipe) {
  std::string event;
  if (!WriteFrame(pipe, CommandRequest(L"subscribe"))) return NoAnswer();
  while (ReadFrame(pipe, event)) platform::WriteStandardOutput(WideFromUtf8(event) + L"\n");
  return NoAnswer();
}

int Run(const std::vector<std::wstring>& texts) {
  Arguments arguments;
  if (!ReadArguments(texts, arguments)) {
    platform::WriteStandardError(kUsage);
    return kExitNoAnswer;
  }
  if (!arguments.follow && !arguments.has_request) arguments.request = ReadStandardInput();
  std::vector<platform::Pipe> pipes(arguments.clients);
  for (platform::Pipe& pipe : pipes) {
    if (!Connect(pipe)) return kExitNoAnswer;
  }
  if (arguments.follow) return Follow(pipes.front());
  int result = kExitSuccess;
  for (const platform::Pipe& pipe : pipes) {
    result = std::max(result, Ask(pipe, arguments.request));
  }
  return result;
}

}  // namespace
}  // namespace kestrelon

int main() {
  return kestrelon::Run(kestrelon::platform::CommandLineArguments());
}
