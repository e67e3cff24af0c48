#!/usr/bin/env bash
# Runs one end-to-end test on a machine of its own.
#
#   run_test.sh TEMPLATE BENCH_DIR SERVICE_EXE TEST
set -euo pipefail
. "$(dirname "$0")/machine.sh"

directory=$(mktemp -d "$1.endtoend.XXXXXX")
machine_dir=$directory
trap close_machine EXIT
open_machine "$1" "$2" "$3" "$directory"
. "$4"
