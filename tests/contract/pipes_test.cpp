// Named pipes: connections, messages, waiting and its end.
#include "platform/pipes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <future>
#include <string>
#include <vector>

#include "platform/clock.h"

namespace {

using namespace kestrelon::platform;
using namespace std::chrono_literals;

// Codes of pipes that the product doesn't name.
constexpr Code kBrokenPipe = 109;
constexpr Code kPipeBusy = 231;
constexpr Code kPipeClosing = 232;
constexpr Code kPipeNotConnected = 233;
constexpr Code kOperationAborted = 995;

constexpr std::size_t kChunk = 0x4000;
constexpr std::size_t kBuffer = 0x10000;

std::wstring FreshName() {
  static int names = 0;
  return L"\\\\.\\pipe\\Kestrelon contract " + std::to_wstring(TickMilliseconds()) + L" " +
         std::to_wstring(++names);
}

PipeSettings SettingsOf(const std::wstring& name) {
  return {.name = name,
          .open_mode = kPipeDuplex,
          .pipe_mode = kPipeMessageType | kPipeMessageRead | kPipeRejectRemote,
          .instances = kUnlimitedPipeInstances,
          .out_buffer_bytes = kBuffer,
          .in_buffer_bytes = kBuffer};
}

Code Make(const PipeSettings& settings, Pipe& pipe) {
  SecurityDescriptor descriptor;
  const Code code = DescriptorFromText(L"D:P(A;;GA;;;SY)(A;;GA;;;BA)", descriptor);
  return code == kSuccess ? MakePipe(settings, descriptor, pipe) : code;
}

struct Listening {
  std::wstring name = FreshName();
  Pipe server;

  Listening() { EXPECT_EQ(Make(SettingsOf(name), server), kSuccess); }
  Code Open(Pipe& client) const { return OpenPipe(name, /*reads_messages=*/true, client); }
};

// The two ends of one connection.
struct Ends : Listening {
  Pipe client;

  Ends() {
    EXPECT_EQ(Open(client), kSuccess);
    EXPECT_EQ(AwaitPipeClient(server), kPipeConnected);
  }
};

Code Write(const Pipe& pipe, const std::string& message) {
  std::uint32_t written = 0;
  const auto size = static_cast<std::uint32_t>(message.size());
  const Code code = WritePipe(pipe, message.data(), size, written);
  EXPECT_EQ(written, code == kSuccess ? size : 0);
  return code;
}

// One read of at most `size` bytes.
Code Read(const Pipe& pipe, std::string& bytes, std::size_t size = kChunk) {
  std::string buffer(size, '?');
  std::uint32_t read = 0;
  const Code code = ReadPipe(pipe, buffer.data(), static_cast<std::uint32_t>(size), read);
  bytes = buffer.substr(0, read);
  return code;
}

// The next whole message, read in chunks; the code of a failure otherwise.
std::string ReadMessage(const Pipe& pipe) {
  std::string message;
  for (;;) {
    std::string chunk;
    const Code code = Read(pipe, chunk);
    message += chunk;
    if (code == kMoreData) continue;
    return code == kSuccess ? message : "failed with " + std::to_string(code);
  }
}

std::string Pattern(std::size_t size) {
  std::string text(size, ' ');
  for (std::size_t i = 0; i < size; ++i) text[i] = static_cast<char>('a' + i % 23);
  return text;
}

// A call on a thread of its own.
class BackgroundCall {
 public:
  explicit BackgroundCall(std::function<Code()> call)
      : result_(std::async(std::launch::async, std::move(call))) {}

  // Whether it has not ended in a time in which nothing but waiting takes so long.
  bool Waits() { return !EndsWithin(100ms); }

  Code Result() {
    EXPECT_TRUE(EndsWithin(20s));
    return result_.get();
  }

  // Cancels what waits on `pipe` until the call ends, however late it came to wait.
  Code ResultOfCancel(const Pipe& pipe) {
    for (int tries = 0; tries < 100 && Waits(); ++tries) {
      EXPECT_EQ(CancelPipe(pipe.handle()), kSuccess);
    }
    return Result();
  }

 private:
  bool EndsWithin(std::chrono::milliseconds time) {
    return result_.wait_for(time) == std::future_status::ready;
  }

  std::future<Code> result_;
};

TEST(MakePipe, IsRefusedByTheFlagForTheFirstInstanceWhileThePipeExists) {
  PipeSettings settings = SettingsOf(FreshName());
  settings.open_mode |= kPipeFirstInstance;
  Pipe first;
  Pipe second;
  Pipe client;
  ASSERT_EQ(Make(settings, first), kSuccess);
  EXPECT_EQ(Make(settings, second), kAccessDenied);
  EXPECT_FALSE(second.is_open());
  EXPECT_EQ(Make(SettingsOf(settings.name), second), kSuccess);
  second.Close();
  ASSERT_EQ(OpenPipe(settings.name, true, client), kSuccess);
  first.Close();
  EXPECT_EQ(Make(settings, first), kAccessDenied) << "a client is still there";
  client.Close();
  EXPECT_EQ(Make(settings, first), kSuccess);
}

TEST(OpenPipe, NeedsAFreeInstanceOfTheNameInAnyLetterCase) {
  Pipe client;
  Pipe second;
  EXPECT_EQ(OpenPipe(FreshName(), true, client), kFileNotFound);
  Listening pipe;
  std::wstring name = pipe.name;
  name.replace(name.find(L"pipe\\Kest"), 9, L"PIPE\\kEST");
  ASSERT_EQ(OpenPipe(name, true, client), kSuccess);
  EXPECT_EQ(pipe.Open(second), kPipeBusy);
  EXPECT_FALSE(second.is_open());
  client.Close();
  EXPECT_EQ(pipe.Open(second), kPipeBusy) << "the server has not let go of the first";
  EXPECT_EQ(AwaitPipeClient(pipe.server), kPipeClosing) << "it has gone again";
  pipe.server.Close();
  EXPECT_EQ(pipe.Open(second), kFileNotFound);
}

TEST(Messages, KeepTheirBoundsInBothDirections) {
  const Ends ends;
  const std::vector<std::string> messages = {"one", "", "two and more", "3"};
  const std::pair<const Pipe&, const Pipe&> ways[] = {{ends.client, ends.server},
                                                      {ends.server, ends.client}};
  for (const auto& [writer, reader] : ways) {
    for (const std::string& message : messages) ASSERT_EQ(Write(writer, message), kSuccess);
    for (const std::string& message : messages) EXPECT_EQ(ReadMessage(reader), message);
  }
}

TEST(Messages, ComeInPiecesToAReaderWithLessRoom) {
  const Ends ends;
  std::string nothing;
  ASSERT_EQ(Write(ends.client, "x"), kSuccess);
  EXPECT_EQ(Read(ends.server, nothing, 0), kMoreData);
  EXPECT_EQ(ReadMessage(ends.server), "x");
  for (const std::size_t size :
       {kChunk - 1, kChunk, kChunk + 1, 2 * kChunk, kBuffer, kBuffer + 1, 3 * kBuffer + 5}) {
    const std::string message = Pattern(size);
    BackgroundCall write([&] { return Write(ends.client, message); });
    for (std::size_t at = 0; at < size; at += kChunk) {
      std::string piece;
      ASSERT_EQ(Read(ends.server, piece), size - at > kChunk ? kMoreData : kSuccess) << size;
      ASSERT_EQ(piece, message.substr(at, kChunk)) << size;
    }
    EXPECT_EQ(write.Result(), kSuccess);
  }
}

TEST(FlushPipe, WaitsUntilAllIsRead) {
  const Ends ends;
  EXPECT_EQ(FlushPipe(ends.server), kSuccess);
  for (const char* message : {"one", "two"}) ASSERT_EQ(Write(ends.server, message), kSuccess);
  BackgroundCall flush([&] { return FlushPipe(ends.server); });
  EXPECT_EQ(ReadMessage(ends.client), "one");
  EXPECT_TRUE(flush.Waits());
  EXPECT_EQ(ReadMessage(ends.client), "two");
  EXPECT_EQ(flush.Result(), kSuccess);
}

// What waits for the other end of a connection.
constexpr struct WaitingCall {
  const char* name;
  std::size_t written_before;  // bytes of a message that is there when the call begins
  Code (*call)(const Pipe& pipe);
} kWaitingCalls[] = {
    {"read", 0,
     [](const Pipe& pipe) {
       std::string bytes;
       return Read(pipe, bytes);
     }},
    {"write", kBuffer, [](const Pipe& pipe) { return Write(pipe, "never read"); }},
    {"flush", 1, [](const Pipe& pipe) { return FlushPipe(pipe); }},
};

struct WaitingEnds : Ends {
  explicit WaitingEnds(const WaitingCall& waiting_call)
      : before(Pattern(waiting_call.written_before)), waiting([this, call = waiting_call.call] {
          if (!before.empty() && Write(server, before) != kSuccess) return kInvalidParameter;
          return call(server);
        }) {}

  const std::string before;
  BackgroundCall waiting;
};

TEST(CancelPipe, EndsEveryWaitAndLeavesTheRestAndWhatComesLater) {
  for (const WaitingCall& call : kWaitingCalls) {
    SCOPED_TRACE(call.name);
    WaitingEnds ends(call);
    EXPECT_EQ(ends.waiting.ResultOfCancel(ends.server), kOperationAborted);
    if (call.written_before > 0) {
      EXPECT_EQ(ReadMessage(ends.client), ends.before);
    }
    ASSERT_EQ(Write(ends.server, "next"), kSuccess);
    EXPECT_EQ(ReadMessage(ends.client), "next");
    (void)CancelPipe(ends.server.handle());
    BackgroundCall later([&] { return kWaitingCalls[0].call(ends.server); });
    EXPECT_TRUE(later.Waits());
    ASSERT_EQ(Write(ends.client, "next"), kSuccess);
    EXPECT_EQ(later.Result(), kSuccess);
  }
  const Listening pipe;
  BackgroundCall await([&] { return AwaitPipeClient(pipe.server); });
  EXPECT_EQ(await.ResultOfCancel(pipe.server), kOperationAborted);
}

TEST(ClosedEnd, LeavesWhatItWroteToTheOtherEnd) {
  for (const bool client_closes : {true, false}) {
    Ends ends;
    Pipe& closed = client_closes ? ends.client : ends.server;
    const Pipe& open = client_closes ? ends.server : ends.client;
    std::string bytes;
    ASSERT_EQ(Write(closed, "last"), kSuccess);
    closed.Close();
    EXPECT_EQ(ReadMessage(open), "last");
    EXPECT_EQ(Read(open, bytes), kBrokenPipe);
    EXPECT_NE(Write(open, "x"), kSuccess);
  }
}

TEST(ClosedEnd, EndsWhatTheOtherEndWaitsFor) {
  for (const WaitingCall& call : kWaitingCalls) {
    SCOPED_TRACE(call.name);
    WaitingEnds ends(call);
    EXPECT_TRUE(ends.waiting.Waits());
    ends.client.Close();
    EXPECT_EQ(ends.waiting.Result(), kBrokenPipe);
  }
}

TEST(DisconnectPipeClient, EndsTheConnectionAndFreesTheInstanceForAnotherClient) {
  const Ends ends;
  Pipe second;
  std::string bytes;
  ASSERT_EQ(Write(ends.server, "never read"), kSuccess);
  BackgroundCall write([&] { return Write(ends.client, Pattern(2 * kBuffer)); });
  EXPECT_TRUE(write.Waits());
  ASSERT_EQ(DisconnectPipeClient(ends.server), kSuccess);
  EXPECT_EQ(write.Result(), kPipeNotConnected);
  for (const Pipe* end : {&ends.client, &ends.server}) {
    EXPECT_EQ(Read(*end, bytes), kPipeNotConnected);
    EXPECT_EQ(Write(*end, "x"), kPipeNotConnected);
  }
  EXPECT_EQ(ends.Open(second), kPipeBusy) << "nobody awaits a client";
  BackgroundCall await([&] { return AwaitPipeClient(ends.server); });
  EXPECT_TRUE(await.Waits());
  ASSERT_EQ(ends.Open(second), kSuccess);
  EXPECT_EQ(await.Result(), kSuccess);
  ASSERT_EQ(Write(second, "of the second"), kSuccess);
  EXPECT_EQ(ReadMessage(ends.server), "of the second");
}

}  // namespace
