#include "tests/control/pipe_world.h"

#include <pthread.h>

#include <chrono>
#include <thread>

#include "control/frames.h"
#include "control/pipe_state.h"

namespace kestrelon::test {
namespace {

void SetThreadStackBytes(std::size_t bytes) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  EXPECT_EQ(pthread_attr_setstacksize(&attributes, bytes), 0);
  EXPECT_EQ(pthread_setattr_default_np(&attributes), 0);
  pthread_attr_destroy(&attributes);
}

}  // namespace

bool Eventually(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

PipeClient::PipeClient(const wchar_t* name) {
  // The instance for the next client is made a moment after the one before has come.
  EXPECT_TRUE(
      Eventually([&] { return platform::OpenPipe(name, true, pipe_) == platform::kSuccess; }));
}

void PipeClient::Send(const std::string& text) {
  EXPECT_TRUE(WriteFrame(pipe_, text));
}

std::string PipeClient::Receive() {
  std::string text;
  return ReadFrame(pipe_, text) ? text : kEnded;
}

std::string PipeClient::Ask(const std::string& request) {
  return WriteFrame(pipe_, request) ? Receive() : kEnded;
}

void PipeClient::Subscribe() {
  const std::size_t before = SubscriberCount();
  Send(R"({"cmd":"subscribe"})");
  EXPECT_TRUE(Eventually([before] { return SubscriberCount() == before + 1; }));
}

platform::Code TryOpen(const wchar_t* name) {
  platform::Pipe pipe;
  return platform::OpenPipe(name, true, pipe);
}

std::string Refusal(const std::string& error) {
  return R"({"ok":false,"error":")" + error + R"("})";
}

platform::Pipe TakeName(const wchar_t* name) {
  platform::SecurityDescriptor descriptor;
  EXPECT_EQ(platform::DescriptorFromText(L"D:P(A;;GA;;;SY)(A;;GA;;;BA)", descriptor), 0U);
  platform::PipeSettings settings;
  settings.name = name;
  settings.open_mode = platform::kPipeDuplex;
  settings.pipe_mode = platform::kPipeMessageType | platform::kPipeMessageRead;
  settings.instances = platform::kUnlimitedPipeInstances;
  std::uintptr_t handle = 0;
  EXPECT_EQ(simulation::TheMachine().pipes.Make(settings, descriptor, handle), 0U);
  platform::Pipe taken;
  taken.Adopt(handle);
  return taken;
}

std::size_t SubscriberCount() {
  GuardLock lock(TheControlPipe.SubscriberGuard);
  return TheControlPipe.subscribers;
}

std::size_t ServedClients() {
  return TheControlPipe.listener.client_count();
}

// No address space has room for such a stack.
NoMoreThreads::NoMoreThreads() {
  SetThreadStackBytes(std::size_t{1} << 47);
}

NoMoreThreads::~NoMoreThreads() {
  SetThreadStackBytes(std::size_t{8} << 20);
}

void PipeWorld::TearDown() {
  StopControlPipe();
  EXPECT_EQ(ServedClients(), 0U);
  EXPECT_EQ(SubscriberCount(), 0U);
  EXPECT_EQ(machine.pipes.open_handles(), 0U) << "clients of a test end with it";
}

std::size_t PipeWorld::Logged(const std::string& text) {
  const std::string log =
      machine.files.Read(L"C:\\ProgramData\\Kestrelon\\service.log").value_or("");
  std::size_t count = 0;
  for (std::size_t at = log.find(text); at != std::string::npos; at = log.find(text, at + 1)) {
    ++count;
  }
  return count;
}

}  // namespace kestrelon::test
