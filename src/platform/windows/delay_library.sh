#!/usr/bin/env bash
# Makes a library of the same functions as an import library, which loads theirs at the first call
# of one instead of at the start of the program.
#
#   delay_library.sh NM DLLTOOL IMPORT_LIBRARY NAME OUT    NAME: of the system's library, without ".dll"
set -euo pipefail
nm=$1 dlltool=$2 import_library=$3 name=$4 out=$5
{
  echo "LIBRARY $name.dll"
  echo EXPORTS
  "$nm" "$import_library" 2>/dev/null | awk '$2 == "T" { print $3 }' | LC_ALL=C sort -u
} >"$out.def"
# By default the names of its parts would tell the process that made it.
"$dlltool" --temp-prefix "$name" --input-def "$out.def" --output-delaylib "$out"
