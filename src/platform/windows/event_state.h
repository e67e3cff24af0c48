// What an Event is here, for the calls that wait for one.
#pragma once

#include "platform/wait.h"
#include "platform/windows/owned.h"

namespace kestrelon::platform {

struct EventState {
  KernelHandle handle;
};

}  // namespace kestrelon::platform
