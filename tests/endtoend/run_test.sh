#!/usr/bin/env bash
# Runs one end-to-end test on a machine of its own.
#
#   run_test.sh BUILD TEST    BUILD: the build directory of the Windows preset
set -euo pipefail
. "$(dirname "$0")/machine.sh"

mkdir -p "$1/wine"
machine_dir=$(mktemp -d "$1/wine/endtoend.XXXXXX")
trap close_machine EXIT
open_machine "$1" "$machine_dir"
. "$2"
