#!/usr/bin/env bash
# Looks at the built executable: which libraries it needs, and how it is hardened.
set -euo pipefail
objdump=x86_64-w64-mingw32-objdump
$objdump -p "$1" >"$1.headers"
result=0
fail() {
  echo "$(basename "$1"): $2"
  result=1
}

# Libraries that the system holds ready for everybody, from its own directory. Any other one would be
# looked for beside the executable, before any of its code could prevent that.
imported=' kernel32 user32 advapi32 shell32 ole32 msvcrt ws2_32 rpcrt4 oleaut32 '
for library in $(awk '/DLL Name:/ { print tolower($3) }' "$1.headers"); do
  [[ $imported == *" ${library%.dll} "* ]] || fail "$1" "imports $library"
done

# The same with those that are loaded later. What not every supported system has would be a
# dependency of its own; functions that one lacks are looked up at run time.
x86_64-w64-mingw32-objcopy -O binary -j .idata "$1" "$1.imports"
x86_64-w64-mingw32-strings "$1.imports" >"$1.names"
later=' fwpuclnt iphlpapi bcrypt crypt32 wintrust version winhttp wtsapi32 userenv '
for library in $(grep -iE '\.dll$' "$1.names" | tr '[:upper:]' '[:lower:]'); do
  [[ $imported$later == *" ${library%.dll} "* ]] || fail "$1" "loads $library"
done
grep -qx FwpmEngineOpen0 "$1.names" || fail "$1" "the names of its imports were not found"
for function in DeriveAppContainerSidFromAppContainerName CryptCATAdminAcquireContext2 \
  CryptCATAdminCalcHashFromFileHandle2 FwpmNetEventSubscribe4; do
  ! grep -qx "$function" "$1.names" || fail "$1" "imports $function"
done

for trait in HIGH_ENTROPY_VA DYNAMIC_BASE NX_COMPAT; do
  grep -q "$trait" "$1.headers" || fail "$1" "lacks $trait"
done
# Without relocations the system could not move it.
grep -qE '^Entry 5 [0-9a-f]+ 0*[1-9a-f]' "$1.headers" || fail "$1" "has no relocations"

# The end that a changed return address brings (FAST_FAIL_STACK_COOKIE_CHECK_FAILURE), and what a
# container says of an access that it doesn't allow.
LC_ALL=C grep -qaP '\xb9\x02\x00\x00\x00\xcd\x29' "$1" || fail "$1" "guards no return address"
grep -qaF '__n < this->size()' "$1" || fail "$1" "its containers check nothing"

for text in asInvoker longPathAware 8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a; do
  grep -qaF "$text" "$1" || fail "$1" "its manifest lacks $text"
done
! grep -qaF activeCodePage "$1" || fail "$1" "its manifest changes the code page"
exit $result
