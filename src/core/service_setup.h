// The commands that put the service onto a machine and take it off again. Each prints its outcome
// and gives the process's exit code: 0 success, 1 failure, 2 installed but not running.
#pragma once

namespace kestrelon {

// Registers the service, or brings an existing one up to date, and starts it.
[[nodiscard]] int InstallService();

// Stops and deletes the service and removes everything it has in the filtering engine and in the
// system's own firewall.
[[nodiscard]] int UninstallService();

// The way out when the filters lock a machine out: turns protection off in the configuration and
// removes all filters, whatever else fails.
[[nodiscard]] int RemoveFiltersCommand();

}  // namespace kestrelon
