#include "platform/pipes.h"

#include "simulation/machine/machine.h"

namespace kestrelon::platform {

using simulation::TheMachine;

void ClosePipe(std::uintptr_t handle) {
  TheMachine().pipes.Close(handle);
}

Code MakePipe(const PipeSettings& settings, const SecurityDescriptor& descriptor, Pipe& pipe) {
  if (const Code fault = TheMachine().faults.Next("MakePipe")) return fault;
  std::uintptr_t handle = 0;
  const Code code = TheMachine().pipes.Make(settings, descriptor, handle);
  if (code == kSuccess) pipe.Adopt(handle);
  return code;
}

Code AwaitPipeClient(const Pipe& pipe) {
  if (const Code fault = TheMachine().faults.Next("AwaitPipeClient")) return fault;
  return TheMachine().pipes.AwaitClient(pipe.handle());
}

Code PipeClientProcess(const Pipe& pipe, std::uint32_t& process_id) {
  if (const Code fault = TheMachine().faults.Next("PipeClientProcess")) return fault;
  return TheMachine().pipes.ClientProcess(pipe.handle(), process_id);
}

Code DisconnectPipeClient(const Pipe& pipe) {
  if (const Code fault = TheMachine().faults.Next("DisconnectPipeClient")) return fault;
  return TheMachine().pipes.Disconnect(pipe.handle());
}

Code OpenPipe(const std::wstring& name, bool read_messages, Pipe& pipe) {
  if (const Code fault = TheMachine().faults.Next("OpenPipe")) return fault;
  std::uintptr_t handle = 0;
  const Code code = TheMachine().pipes.Open(name, read_messages, handle);
  if (code == kSuccess) pipe.Adopt(handle);
  return code;
}

Code ReadPipe(const Pipe& pipe, void* bytes, std::uint32_t size, std::uint32_t& read) {
  if (const Code fault = TheMachine().faults.Next("ReadPipe")) return fault;
  return TheMachine().pipes.Read(pipe.handle(), bytes, size, read);
}

Code WritePipe(const Pipe& pipe, const void* bytes, std::uint32_t size, std::uint32_t& written) {
  if (const Code fault = TheMachine().faults.Next("WritePipe")) return fault;
  return TheMachine().pipes.Write(pipe.handle(), bytes, size, written);
}

Code FlushPipe(const Pipe& pipe) {
  if (const Code fault = TheMachine().faults.Next("FlushPipe")) return fault;
  return TheMachine().pipes.Flush(pipe.handle());
}

Code CancelPipe(std::uintptr_t handle) {
  if (const Code fault = TheMachine().faults.Next("CancelPipe")) return fault;
  return TheMachine().pipes.Cancel(handle);
}

}  // namespace kestrelon::platform
