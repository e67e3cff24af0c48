#!/usr/bin/env bash
# Puts a package together and has its KestrelonCheck look at a machine under Wine, as a person would
# on a real one: first without a filtering engine, then over the bench's.
#
#   run_package.sh BUILD [FILTER]    BUILD: the build directory of the Windows preset; with a filter
#                                    of GoogleTest's, those cases alone, and what they say
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
. "$here/prefix.sh"
build=$1 filter=${2:-}

make_template "$build/wine/template"
# Beside the template: clones are hard links.
run=$(mktemp -d "$build/wine/package.XXXXXX")
finish() {
  stop_machine
  rm -rf "$run"
}
trap finish EXIT
clone_prefix "$build/wine/template" "$run/machine"
start_machine "$run/machine"
package=$run/machine/drive_c/package
cmake --install "$build" --prefix "$package" >"$run/install.log"
(cd "$package" && find . -type f | sort) >"$run/packed"

fail() {
  echo "FAILED: $*" >&2
  exit 1
}
# check ARGUMENT...: a check, whose report is left in $run/report; gives its exit code.
check() {
  local result=0
  timeout 200 wine 'C:\package\KestrelonCheck.exe' --yes "$@" >"$run/output" 2>"$run/errors" ||
    result=$?
  tr -d '\r' <"$package/KestrelonCheck-report.txt" >"$run/report" || cat "$run/output" "$run/errors"
  return $result
}
reported() {
  grep -qE -- "$1" "$run/report" || fail "the report does not say: $1"
}

if [ -n "$filter" ]; then
  install_bench "$build/simulation/bench" KestrelonSvc.exe KestrelonCheck.exe
  result=0
  check "--gtest_filter=$filter" || result=$?
  cat "$run/report"
  exit $result
fi

# Where no engine answers, what needs one is told as not done.
check --gtest_filter='Executable.*:Service.T*:WfpChanges.*' || fail "without an engine: $?"
reported '^ +skipped +WfpChanges: '
reported ' the filtering engine does not answer: '
reported '^[1-9][0-9]* passed, 0 failed, [1-9][0-9]* skipped, '

install_bench "$build/simulation/bench" KestrelonSvc.exe KestrelonCheck.exe
result=0
check || result=$?
cat "$run/report"
[ $result -eq 0 ] || fail "the check ended with $result"
reported "^SHA-256 +$(sha256sum "$package/KestrelonSvc.exe" | cut -d ' ' -f 1)\$"
reported '^Product +KestrelonSvc.exe [0-9.]+$'
reported '^[1-9][0-9]* passed, 0 failed, 0 skipped, '
# What Wine can't prove is what the list says, case by case.
unproved=$(grep -cvE '^(#|$)' "$here/unproved_cases.txt")
reported ", $unproved not on this system\$"

# The machine is as it was.
[ "$(wine 'C:\bench\wfpctl.exe' count 2>/dev/null)" = 0 ] || fail 'filters were left'
! ls "$run/machine/drive_c/ProgramData" | grep Kestrelon || fail 'files were left'
(cd "$package" && find . -type f ! -name KestrelonCheck-report.txt | sort) | diff "$run/packed" - ||
  fail 'the package is not as it was'
