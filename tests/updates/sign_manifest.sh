#!/usr/bin/env bash
# Signs an update manifest as the vendor does, with a development key:
#
#   sign_manifest.sh KEY_ID MANIFEST >MANIFEST.sig
set -euo pipefail
key=$(dirname "$0")/keys/update.pem
[ "$1" != kestrelon-update-backup ] || key=$(dirname "$0")/keys/backup.pem
# OpenSSL writes r and s as two numbers of any length; latest.json.sig holds them in 32 bytes each.
numbers=$(openssl dgst -sha256 -sign "$key" "$2" | openssl asn1parse -inform DER |
  sed -n 's/.*INTEGER *://p')
signature=$(printf '%64s' $numbers | tr ' ' 0 | basenc --base16 -d | openssl base64 -A)
[ ${#signature} -eq 88 ]
echo "ES256 $1 $signature"
