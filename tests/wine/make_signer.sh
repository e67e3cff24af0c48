#!/usr/bin/env bash
# Signs programs with a certificate made for tests.
#
#   make_signer.sh DIR NAME [IN OUT]...
#
# Makes in DIR, unless they are there, a root authority (ca.pem) and a code-signing certificate
# whose display name is NAME (signer.pem, signer.key), and signs each program IN into OUT. Nothing
# outside DIR comes to trust the authority.
set -euo pipefail
dir=$1 name=$2
shift 2
mkdir -p "$dir"

if [ ! -f "$dir/signer.pem" ]; then
  openssl req -x509 -newkey rsa:2048 -nodes -sha256 -days 3650 -subj "/CN=$name test authority" \
    -keyout "$dir/ca.key" -out "$dir/ca.pem"
  openssl req -newkey rsa:2048 -nodes -sha256 -subj "/O=$name/CN=$name" \
    -keyout "$dir/signer.key" -out "$dir/signer.csr"
  printf '%s\n' 'basicConstraints=CA:FALSE' 'keyUsage=digitalSignature' \
    'extendedKeyUsage=codeSigning' >"$dir/signer.ext"
  openssl x509 -req -sha256 -days 3650 -in "$dir/signer.csr" -CA "$dir/ca.pem" \
    -CAkey "$dir/ca.key" -CAcreateserial -extfile "$dir/signer.ext" -out "$dir/signer.pem"
fi

while [ $# -ge 2 ]; do
  rm -f "$2"
  osslsigncode sign -h sha256 -certs "$dir/signer.pem" -key "$dir/signer.key" -ac "$dir/ca.pem" \
    -in "$1" -out "$2"
  shift 2
done
