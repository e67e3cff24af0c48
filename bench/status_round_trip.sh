#!/usr/bin/env bash
# How long a client of the real service under Wine waits for "status", as a multiple of an echo on
# a bare pipe in the same run. Prints a section of docs/performance.md.
#
#   status_round_trip.sh BUILD    BUILD: the build directory of the Windows preset
set -euo pipefail
. "$(dirname "$0")/../tests/endtoend/machine.sh"

mkdir -p "$1/wine"
machine_dir=$(mktemp -d "$1/wine/round_trip.XXXXXX")
trap close_machine EXIT
open_machine "$1" "$machine_dir"
cp "$1/bench/status_round_trip.exe" "$drive_c/bench/"

start_service
wine 'C:\bench\status_round_trip.exe' --echo >/dev/null 2>&1 &
measure() {
  wine 'C:\bench\status_round_trip.exe' >"$machine_dir/measured" 2>"$machine_dir/measure.err"
}
wait_for 10 measure  # the echo's start takes a moment
cat <<'END'

## Round trip on the control pipe

The real service under Wine, seen from a client; the best of 300 rounds of ten, by the clock.

| What | Figure | Peer or bound | Ratio | Promised |
|---|---|---|---|---|
END
tr -d '\r' <"$machine_dir/measured"
stop_service
