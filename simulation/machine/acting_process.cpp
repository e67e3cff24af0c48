#include "simulation/machine/acting_process.h"

#include <utility>

#include "simulation/machine/process_table.h"

namespace simulation {
namespace {

thread_local std::uint32_t acting_process = ProcessTable::kOwnProcess;

}  // namespace

AsProcess::AsProcess(std::uint32_t process_id)
    : before_(std::exchange(acting_process, process_id)) {}

AsProcess::~AsProcess() {
  acting_process = before_;
}

std::uint32_t ActingProcess() {
  return acting_process;
}

}  // namespace simulation
