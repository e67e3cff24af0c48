#!/usr/bin/env bash
# Peak resident memory of the real service under Wine, with the default configuration and with a
# large one: 5,000 rules, 2,000 applications, 25,000 networks. Prints a section of
# docs/performance.md.
#
#   service_memory.sh BUILD    BUILD: the build directory of the Windows preset
set -euo pipefail
. "$(dirname "$0")/../tests/endtoend/machine.sh"

most_mb=60  # with the large configuration

mkdir -p "$1/wine"
machine_dir=$(mktemp -d "$1/wine/memory.XXXXXX")
trap close_machine EXIT
open_machine "$1" "$machine_dir"

# print_memory WHAT [MOST]: rows of the resident memory of the service's process: its peak, and what
# is there now, of which the part that is mapped from files is Wine's own libraries and the executable.
print_memory() {
  awk -v what="$1" -v most="${2:-}" '
    /^(VmHWM|RssAnon|RssFile):/ { mb[$1] = $2 / 1024 }
    END {
      promised = most == "" ? "" : "at most " most " MB" (mb["VmHWM:"] > most ? " **missed**" : "")
      printf "| %s, at its peak | %.1f MB | | | %s |\n", what, mb["VmHWM:"], promised
      printf "| %s, afterwards of its own | %.1f MB | mapped from files: %.1f MB | %.2f | |\n",
             what, mb["RssAnon:"], mb["RssFile:"], mb["RssAnon:"] / mb["RssFile:"]
    }' "/proc/$service_pid/status"
}

cat <<'END'

## Memory of the service

Under Wine, as Linux counts it. What is mapped from files is Wine itself and the executable. The large
configuration has 5,000 rules, 2,000 applications and 25,000 networks.

| What | Figure | Peer or bound | Ratio | Promised |
|---|---|---|---|---|
END
start_service
print_memory "default configuration"
stop_service

python3 - "$drive_c" <<'END' | put_config
import json, pathlib, sys

tools = pathlib.Path(sys.argv[1]) / "Tools"
apps = []
for i in range(2000):
    (tools / f"program{i}.exe").write_text(f"program {i}")
    apps.append({"path": f"C:\\Tools\\program{i}.exe"})
rules = [{"name": f"rule {i}", "action": "block" if i % 3 == 0 else "allow",
          "direction": ["out", "in", "both"][i % 3], "protocol": 6,
          "remote": f"10.{i % 250}.{i // 250}.0/24, 192.0.2.{i % 250}", "remote_ports": "443, 8000-8100",
          "app": f"C:\\Tools\\program{i % 2000}.exe"} for i in range(4999)]
networks = ", ".join(f"{20 + i // 62500}.{i // 250 % 250}.{i % 250}.0/24" for i in range(25000))
rules.append({"name": "networks", "action": "block", "direction": "both", "remote": networks})
print(json.dumps({"presets_version": 9, "apps": apps, "rules": rules}))
END
start_service
filters=$(tr -d '\r' <"$machine_dir/service.out" | sed -nE 's/.*Filters applied[^0-9]*([0-9]+).*/\1/p' | tail -n 1)
print_memory "large configuration, ${filters:?the service applied no filters} filters" "$most_mb"
stop_service
