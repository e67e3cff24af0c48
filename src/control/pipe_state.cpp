#include "control/pipe_state.h"

namespace kestrelon {

ControlPipeState& TheControlPipe = *new ControlPipeState;

}  // namespace kestrelon
