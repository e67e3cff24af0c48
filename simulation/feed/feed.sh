# HTTPS servers on this machine for what the service downloads. To be sourced.
#
#   start_feed DIR PORT [untrusted]    serves DIR/www, as feed_server.py tells; requests are noted in
#                                      DIR/requests. Its certificate is good for localhost and
#                                      127.0.0.1, by an authority made in DIR, unless it is to be
#                                      untrusted: then by another one
#   trust_feed_authority DIR PROGRAM   has the machine under Wine trust the authority in DIR, by
#                                      trust_authority.exe
#   stop_feed                          ends the servers that were started; on every path

feed_pids=()

# A root authority (ca.pem) in a directory, and what a server needs of it (server.pem).
make_feed_certificate() {
  local dir=$1 name=$2
  [ ! -f "$dir/server.pem" ] || return 0
  openssl req -x509 -newkey rsa:2048 -nodes -sha256 -days 3650 -subj "/CN=$name" \
    -keyout "$dir/ca.key" -out "$dir/ca.pem"
  openssl req -newkey rsa:2048 -nodes -sha256 -subj '/CN=localhost' \
    -keyout "$dir/server.key" -out "$dir/server.csr"
  printf '%s\n' 'basicConstraints=CA:FALSE' 'keyUsage=digitalSignature' \
    'extendedKeyUsage=serverAuth' 'subjectAltName=DNS:localhost,IP:127.0.0.1' >"$dir/server.ext"
  openssl x509 -req -sha256 -days 365 -in "$dir/server.csr" -CA "$dir/ca.pem" \
    -CAkey "$dir/ca.key" -CAcreateserial -extfile "$dir/server.ext" -out "$dir/server.crt"
  cat "$dir/server.crt" "$dir/server.key" >"$dir/server.pem"
}

start_feed() {
  local dir=$1 port=$2 authority=$1/${3:-trusted} try
  mkdir -p "$dir/www" "$authority"
  make_feed_certificate "$authority" "Kestrelon ${3:-trusted} test authority" \
    >"$authority/openssl.out" 2>&1
  rm -f "$dir/requests"
  python3 "$(dirname "${BASH_SOURCE[0]}")/feed_server.py" "$dir/www" "$port" \
    "$authority/server.pem" "$dir/requests" >"$dir/server.out" 2>&1 &
  feed_pids+=($!)
  for try in $(seq 200); do
    [ ! -s "$dir/requests" ] || return 0
    kill -0 $! 2>/dev/null || break
    sleep 0.05
  done
  echo "no server came up on port $port" >&2
  cat "$dir/server.out" >&2
  return 1
}

trust_feed_authority() {
  openssl x509 -in "$1/trusted/ca.pem" -outform DER -out "$1/trusted/ca.der"
  wine "$2" "Z:$(realpath "$1/trusted/ca.der")" >"$1/trust.out" 2>&1 || {
    cat "$1/trust.out" >&2
    return 1
  }
}

stop_feed() {
  local pid
  for pid in "${feed_pids[@]}"; do
    kill "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
  done
  feed_pids=()
}
