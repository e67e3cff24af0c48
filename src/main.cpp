// KestrelonSvc: the service, its installer and its emergency tool in one executable.
#include <cstdlib>

#include "core/command_line.h"
#include "platform/console.h"
#include "platform/process_hardening.h"

int main() {
  // Before anything could load a library from beside the executable. A protection that this system
  // lacks is done without: nothing else is less safe for it, and there is no log yet.
  (void)kestrelon::platform::HardenProcess();
  const int code = kestrelon::RunCommandLine(kestrelon::platform::CommandLineArguments());
  // Without destroying what is static: a client's thread that hangs may outlive the stop, and uses
  // it until the process is gone. Nothing is left to be written.
  std::_Exit(code);
}
