#include "filtering/lock_descriptors.h"

#include <cstdint>
#include <mutex>

#include "base/format.h"

namespace kestrelon {
namespace {

// All standard rights and all rights of the engine.
constexpr std::uint32_t kEverything = 0xf07ff;

// READ_CONTROL, WRITE_DAC, and of the engine's rights: begin a read transaction, classify,
// enumerate, open, read, read statistics, subscribe.
constexpr std::uint32_t kLookAndReopen = 0x603f4;

std::once_flag built;
platform::SecurityDescriptor lock_descriptor;
platform::SecurityDescriptor unlock_descriptor;

platform::SecurityDescriptor DescriptorGranting(std::uint32_t system,
                                                std::uint32_t administrators) {
  platform::SecurityDescriptor descriptor;
  const std::wstring text = Format(L"D:P(A;;0x%x;;;SY)(A;;0x%x;;;BA)", system, administrators);
  (void)platform::DescriptorFromText(text, descriptor);
  return descriptor;
}

void Build() {
  lock_descriptor = DescriptorGranting(kEverything, kLookAndReopen);
  unlock_descriptor = DescriptorGranting(kEverything, kEverything);
}

}  // namespace

const platform::SecurityDescriptor& LockDescriptor() {
  std::call_once(built, Build);
  return lock_descriptor;
}

const platform::SecurityDescriptor& UnlockDescriptor() {
  std::call_once(built, Build);
  return unlock_descriptor;
}

}  // namespace kestrelon
