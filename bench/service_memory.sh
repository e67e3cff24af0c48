#!/usr/bin/env bash
# Peak resident memory of the real service under Wine, with the default configuration and with a
# large one: 5,000 rules, 2,000 applications, 25,000 networks.
#
#   service_memory.sh BUILD    BUILD: the build directory of the Windows preset
set -euo pipefail
. "$(dirname "$0")/../tests/endtoend/machine.sh"

mkdir -p "$1/wine"
machine_dir=$(mktemp -d "$1/wine/memory.XXXXXX")
trap close_machine EXIT
open_machine "$1" "$machine_dir"

# Resident memory of the service's process: its peak, and what is there now, of which the part that
# is mapped from files is Wine's own libraries and the executable.
memory() {
  awk '/^(VmHWM|RssAnon|RssFile):/ { mb[$1] = $2 / 1024 }
       END { printf "%.1f MB at its peak; now %.1f MB of its own and %.1f MB mapped from files",
                    mb["VmHWM:"], mb["RssAnon:"], mb["RssFile:"] }' "/proc/$1/status"
}

start_service
echo "default configuration: $(memory "$service_pid")"
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
tr -d '\r' <"$machine_dir/service.out" | grep 'Filters applied'
echo "large configuration:   $(memory "$service_pid")"
stop_service
