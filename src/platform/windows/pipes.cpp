#include "platform/pipes.h"

#include "platform/windows/owned.h"

namespace kestrelon::platform {
namespace {

using PipeHandle = Owned<HANDLE, CloseKernelHandle, -1>;

HANDLE Native(const Pipe& pipe) {
  return reinterpret_cast<HANDLE>(pipe.handle());
}

void Give(PipeHandle& handle, Pipe& pipe) {
  pipe.Adopt(reinterpret_cast<std::uintptr_t>(handle.Release()));
}

}  // namespace

void ClosePipe(std::uintptr_t handle) {
  CloseHandle(reinterpret_cast<HANDLE>(handle));
}

Code MakePipe(const PipeSettings& settings, const SecurityDescriptor& descriptor, Pipe& pipe) {
  // Without a descriptor the platform would let everybody read.
  if (descriptor.empty()) return kInvalidSecurityDescriptor;
  SECURITY_ATTRIBUTES attributes{};
  attributes.nLength = sizeof attributes;
  attributes.lpSecurityDescriptor = const_cast<std::uint8_t*>(descriptor.data());
  PipeHandle handle(CreateNamedPipeW(settings.name.c_str(), settings.open_mode, settings.pipe_mode,
                                     settings.instances, settings.out_buffer_bytes,
                                     settings.in_buffer_bytes, 0, &attributes));
  if (!handle) return GetLastError();
  Give(handle, pipe);
  return kSuccess;
}

Code AwaitPipeClient(const Pipe& pipe) {
  return ConnectNamedPipe(Native(pipe), nullptr) ? kSuccess : GetLastError();
}

Code PipeClientProcess(const Pipe& pipe, std::uint32_t& process_id) {
  ULONG id = 0;
  if (!GetNamedPipeClientProcessId(Native(pipe), &id)) return GetLastError();
  process_id = id;
  return kSuccess;
}

Code DisconnectPipeClient(const Pipe& pipe) {
  return DisconnectNamedPipe(Native(pipe)) ? kSuccess : GetLastError();
}

Code OpenPipe(const std::wstring& name, bool read_messages, Pipe& pipe) {
  // Whoever holds the pipe may learn who came, but not act in his name.
  PipeHandle handle(CreateFileW(name.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                OPEN_EXISTING, SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION,
                                nullptr));
  if (!handle) return GetLastError();
  DWORD mode = PIPE_READMODE_MESSAGE;
  if (read_messages && !SetNamedPipeHandleState(handle.get(), &mode, nullptr, nullptr)) {
    return GetLastError();
  }
  Give(handle, pipe);
  return kSuccess;
}

Code ReadPipe(const Pipe& pipe, void* bytes, std::uint32_t size, std::uint32_t& read) {
  DWORD count = 0;
  const Code code =
      ReadFile(Native(pipe), bytes, size, &count, nullptr) ? kSuccess : GetLastError();
  if (code == kSuccess || code == kMoreData) read = count;
  return code;
}

Code WritePipe(const Pipe& pipe, const void* bytes, std::uint32_t size, std::uint32_t& written) {
  DWORD count = 0;
  if (!WriteFile(Native(pipe), bytes, size, &count, nullptr)) return GetLastError();
  written = count;
  return kSuccess;
}

Code FlushPipe(const Pipe& pipe) {
  return FlushFileBuffers(Native(pipe)) ? kSuccess : GetLastError();
}

Code CancelPipe(std::uintptr_t handle) {
  return CancelIoEx(reinterpret_cast<HANDLE>(handle), nullptr) ? kSuccess : GetLastError();
}

}  // namespace kestrelon::platform
