#include "simulation/bench/bfe_server.h"

#include <thread>
#include <utility>

namespace simulation {
namespace {

using kestrelon::platform::kSuccess;

constexpr wchar_t kOnlyOne[] = L"Global\\WfpBench";
constexpr DWORD kPipeBufferBytes = 256u << 10;

}  // namespace

Code BfeServer::NewInstance() {
  next_ = CreateNamedPipeW(
      kBenchPipe, PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT,
      PIPE_UNLIMITED_INSTANCES, kPipeBufferBytes, kPipeBufferBytes, 0, nullptr);
  return next_ == INVALID_HANDLE_VALUE ? GetLastError() : kSuccess;
}

Code BfeServer::Listen() {
  // Wine lets a second process have instances of the pipe, flag or no flag; programs would then
  // meet one of two engines. The handle stays open as long as the process.
  if (CreateMutexW(nullptr, FALSE, kOnlyOne) == nullptr) return GetLastError();
  if (GetLastError() == ERROR_ALREADY_EXISTS) return ERROR_ALREADY_EXISTS;
  return NewInstance();
}

Code BfeServer::Serve() {
  for (;;) {
    const bool connected =
        ConnectNamedPipe(next_, nullptr) != 0 || GetLastError() == ERROR_PIPE_CONNECTED;
    PipeChannel channel(next_);
    if (const Code code = NewInstance()) return code;
    // A program that was gone before it was served leaves nothing to do.
    if (!connected) continue;
    std::thread([bfe = bfe_, pipe = std::move(channel)]() mutable {
      BfeConnection(bfe, std::move(pipe)).Run();
    }).detach();
  }
}

}  // namespace simulation
