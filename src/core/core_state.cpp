#include "core/core_state.h"

namespace kestrelon {

RecursiveGuard ConfigGuard("ConfigGuard", GuardRank::kConfig);
CoreState Core;

}  // namespace kestrelon
