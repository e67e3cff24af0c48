# A machine under Wine with the real executable over the bench's filtering engine. To be sourced.
#
#   open_machine TEMPLATE BENCH_DIR SERVICE_EXE DIR   a fresh machine in DIR, engine running
#   reopen_machine BENCH_DIR SERVICE_EXE DIR          the machine that an earlier run left there
#   start_service, stop_service                       the foreground run, until its Ctrl+C
#   put_config, config_has TEXT                       config.json from the input; a look into it
#   put_program PATH TEXT                             a file on drive C:, by its path below it
#   expect_verdicts                                   lines "PERMIT|BLOCK CONNECTION" on the input
#   expect_logged TEXT, expect_filters NUMBER
#
# A failed expectation says what was expected and found and ends the script.
. "$(dirname "${BASH_SOURCE[0]}")/../wine/prefix.sh"

service_pid=

fail() {
  echo "FAILED: $*" >&2
  if [ -f "$machine_dir/service.out" ]; then
    echo "--- the service's output" >&2
    tr -d '\r' <"$machine_dir/service.out" >&2
  fi
  exit 1
}

close_machine() {
  [ -z "$service_pid" ] || kill -INT "$service_pid" 2>/dev/null || true
  stop_machine
  rm -rf "$machine_dir"
}

# Where things are on the machine in a directory.
place_machine() {
  machine_dir=$1
  drive_c=$machine_dir/prefix/drive_c
  data_dir=$drive_c/ProgramData/Kestrelon
}

open_machine() {
  local template=$1 bench=$2 executable=$3
  place_machine "$4"
  make_template "$template"
  clone_prefix "$template" "$machine_dir/prefix"
  start_machine "$machine_dir/prefix"
  mkdir -p "$drive_c/Program Files/Kestrelon" "$drive_c/Tools"
  cp "$executable" "$drive_c/Program Files/Kestrelon/KestrelonSvc.exe"
  install_bench "$bench" KestrelonSvc.exe
}

reopen_machine() {
  local bench=$1 executable=$2
  place_machine "$3"
  start_machine "$machine_dir/prefix"
  stop_machine  # what a run that was killed may have left
  start_machine "$machine_dir/prefix"
  cp "$executable" "$drive_c/Program Files/Kestrelon/KestrelonSvc.exe"
  install_bench "$bench" KestrelonSvc.exe
}

start_service() {
  local try
  : >"$machine_dir/service.out"
  wine 'C:\Program Files\Kestrelon\KestrelonSvc.exe' --console \
    >"$machine_dir/service.out" 2>"$machine_dir/service.err" &
  service_pid=$!
  for try in $(seq 600); do
    grep -q '^Running\. Press Ctrl+C to stop' "$machine_dir/service.out" && return 0
    kill -0 "$service_pid" 2>/dev/null || break
    sleep 0.1
  done
  fail "the service did not come up"
}

# Asks the service to stop as Ctrl+C does and waits for it; gives its exit code.
end_service() {
  local result=0
  kill -INT "$service_pid" 2>/dev/null || true  # a terminal may have sent it already
  wait "$service_pid" || result=$?
  service_pid=
  return "$result"
}

# The same, expecting that it ends with success and leaves its filters.
stop_service() {
  end_service || fail "the service ended with $?"
  grep -q 'Kestrelon service stopping (filters stay active)' "$machine_dir/service.out" ||
    fail "the service did not say that its filters stay"
}

put_config() {
  mkdir -p "$data_dir"
  cat >"$data_dir/config.json"
}

config_has() {
  grep -qF -- "$1" "$data_dir/config.json" || fail "config.json does not hold: $1"
}

put_program() {
  mkdir -p "$(dirname "$drive_c/$1")"
  printf '%s' "$2" >"$drive_c/$1"
}

expect_logged() {
  grep -qF -- "$1" "$data_dir/service.log" || fail "service.log does not hold: $1"
}

expect_filters() {
  local number
  number=$(wine 'C:\bench\wfpctl.exe' count 2>/dev/null)
  [ "$number" = "$1" ] || fail "the engine holds $number filters, expected $1"
}

expect_verdicts() {
  local wanted connection got number=0
  grep -vE '^ *(#.*)?$' >"$machine_dir/expected"
  cut -d ' ' -f 2- "$machine_dir/expected" >"$drive_c/connections"
  wine 'C:\bench\wfpctl.exe' batch 'C:\connections' >"$machine_dir/verdicts" 2>/dev/null || true
  [ "$(wc -l <"$machine_dir/verdicts")" -eq "$(wc -l <"$machine_dir/expected")" ] ||
    fail "not every connection has a verdict"
  while read -r wanted connection <&3 && IFS= read -r got <&4; do
    [ "${got%% *}" = "$wanted" ] || fail "$connection: expected $wanted, found $got"
    number=$((number + 1))
  done 3<"$machine_dir/expected" 4<"$machine_dir/verdicts"
  echo "$number verdicts as expected"
}
