#!/usr/bin/env bash
# Puts the programs that the trust tests look at into C:\trust: signed, unsigned, and signed with
# one byte changed behind it.
set -euo pipefail
drive_c=$1 program=$2
trust=$drive_c/trust
mkdir -p "$trust"
cp "$program" "$trust/unsigned.exe"
"$(dirname "$0")/make_signer.sh" "$trust/signer" "Kestrelon Test Signer" \
  "$trust/unsigned.exe" "$trust/signed.exe"
cp "$trust/signed.exe" "$trust/tampered.exe"
# Within the code, far from the headers and from the signature at the end.
python3 - "$trust/tampered.exe" <<'PYTHON'
import sys
with open(sys.argv[1], "r+b") as file:
    file.seek(0x1000)
    byte = file.read(1)[0]
    file.seek(0x1000)
    file.write(bytes([byte ^ 0xFF]))
PYTHON
