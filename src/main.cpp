// KestrelonSvc: the service, its installer and its emergency tool in one executable.
#include "core/command_line.h"
#include "platform/console.h"

int main() {
  // Before anything else could load a library from beside the executable.
  (void)kestrelon::platform::RestrictLibrarySearch();
  return kestrelon::RunCommandLine(kestrelon::platform::CommandLineArguments());
}
