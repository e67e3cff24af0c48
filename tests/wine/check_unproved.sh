#!/usr/bin/env bash
# Fails when unproved_cases.txt names a case that no test has: a stale line could hide a new case
# of that name.
set -euo pipefail
cd "$(dirname "$0")"
result=0
while read -r name reason; do
  [[ -z $name || $name == '#'* ]] && continue
  suite=${name%%.*} case=${name#*.}
  grep -qE "TEST(_F)?\($suite, $case\)" ../contract/*.cpp ../windows/*.cpp || {
    echo "unproved_cases.txt: no case is named $name"
    result=1
  }
  [ -n "$reason" ] || { echo "unproved_cases.txt: $name has no reason"; result=1; }
done <unproved_cases.txt
exit $result
