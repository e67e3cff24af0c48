#!/usr/bin/env bash
# Runs a Windows test program under Wine on a machine of its own.
#
#   run_tests.sh [options] PROGRAM
#     --template DIR     the template machine, made if it isn't there
#     --bench BIN_DIR    installs the filtering engine's bench from this build directory
#     --filter FILTER    which cases, as GoogleTest takes them
#
# Cases that Wine can't prove stand in unproved_cases.txt with the reason. They are left out by
# name and told at the end.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
. "$here/prefix.sh"

template= bench= filter='*' program=
while [ $# -gt 0 ]; do
  case $1 in
    --template) template=$2; shift 2 ;;
    --bench) bench=$2; shift 2 ;;
    --filter) filter=$2; shift 2 ;;
    *) program=$(realpath "$1"); shift ;;
  esac
done
[ -n "$template" ] && [ -n "$program" ] || { echo "see the head of $0" >&2; exit 2; }

make_template "$template"
# Beside the template: clones are hard links.
run=$(mktemp -d "$template.run.XXXXXX")
finish() {
  stop_machine
  rm -rf "$run"
}
trap finish EXIT
clone_prefix "$template" "$run/machine"
start_machine "$run/machine"
[ -z "$bench" ] || install_bench "$bench" "$(basename "$program")"

# The names of the program's cases, one a line: suites stand at the margin, cases below them.
wine "$program" --gtest_list_tests --gtest_filter="$filter" >"$run/list" 2>/dev/null
tr -d '\r' <"$run/list" | awk '/^[^ ].*\.$/ { suite = $1 } /^  / { print suite $1 }' >"$run/cases"

left_out=()
while read -r name reason; do
  [[ -z $name || $name == '#'* ]] && continue
  grep -qxF -- "$name" "$run/cases" && left_out+=("$name")
done <"$here/unproved_cases.txt"
# GoogleTest reads one "-", with all that is left out behind it.
negative=$(IFS=:; echo "${left_out[*]:-}")
[[ $filter == *-* ]] && joint=: || joint=-

result=0
timeout 300 wine "$program" --gtest_filter="$filter${negative:+$joint$negative}" \
  >"$run/output" 2>"$run/errors" || result=$?
tr -d '\r' <"$run/output"
cat "$run/errors" >&2
for name in "${left_out[@]:-}"; do
  [ -z "$name" ] || echo "left to real Windows: $name"
done
[ $result -eq 0 ] || exit $result
# A filter that matches nothing, or an output cut short, is no success.
grep -qE '\[  PASSED  \] [1-9]' "$run/output"
