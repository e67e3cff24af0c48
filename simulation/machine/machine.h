// A Windows machine in memory: what the seam of src/platform/ is answered by in native tests. It
// knows the platform's rules and nothing of the product.
#pragma once

#include "simulation/engine/engine.h"
#include "simulation/machine/clock.h"
#include "simulation/machine/console.h"
#include "simulation/machine/directory_watches.h"
#include "simulation/machine/environment.h"
#include "simulation/machine/faults.h"
#include "simulation/machine/file_system.h"
#include "simulation/machine/http_servers.h"
#include "simulation/machine/network.h"
#include "simulation/machine/pipe_namespace.h"
#include "simulation/machine/process_table.h"
#include "simulation/machine/process_use.h"
#include "simulation/machine/registry.h"
#include "simulation/machine/service_host.h"
#include "simulation/machine/service_table.h"
#include "simulation/machine/sessions.h"
#include "simulation/machine/token.h"
#include "simulation/machine/wait_hub.h"
#include "simulation/machine/windows_firewall.h"

namespace simulation {

// Its parts may be used by any thread, each under a guard of its own, but `environment`.
class Machine {
 public:
  Machine();

  // Power comes back, or the machine is restarted in order: what is on the disk, the registry and
  // the engine's persistent objects are there, the tick starts anew, all handles are dead and the
  // planned faults are forgotten. The process's own memory is not touched.
  void Restart();

  Faults faults;
  Clock clock;
  WaitHub waits;
  DirectoryWatches watches;
  FileSystem files;
  Registry registry;
  ServiceTable services;
  ServiceHost service_host;
  Network network;
  HttpServers http;
  ProcessToken token;
  ProcessUse process_use;
  Environment environment;
  Console console;
  PipeNamespace pipes;
  WindowsFirewall windows_firewall;
  ProcessTable processes;
  Sessions sessions;
  Engine engine;
};

// The machine of this process: a fresh one at first use, there until the process ends.
Machine& TheMachine();

}  // namespace simulation
