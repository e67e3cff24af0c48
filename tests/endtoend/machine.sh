# A machine under Wine with the real executable over the bench's filtering engine. To be sourced.
#
#   open_machine BUILD DIR            a fresh machine in DIR, engine running, with what the build
#                                     directory BUILD of the Windows preset holds
#   reopen_machine BUILD DIR          the machine that an earlier run left there
#   start_service, stop_service       the foreground run, until its Ctrl+C
#   kestrelon ARGUMENT...             a run of the executable to its end; gives its exit code
#   put_config, put_program PATH TEXT config.json from the input; a file on drive C:, by its path
#   sign_program NAME FROM PATH       the same, a program signed by this publisher
#   wfpctl ARGUMENT...                the bench's hand on the engine
#   ask REQUEST, ask_input            a request on the control pipe; the reply is left in $reply
#   set_config                        a configuration from the input, through the pipe
#   follow NAME                       a subscriber whose events come into the file $events/NAME
#   wake_service                      where a permitted program lies in C:\Tools
#   woken_until TEXT                  the same; whether the text is logged
#   wait_for SECONDS COMMAND...       until the command succeeds
#   mark_log                          expectations on the log look behind this place
#   expect_...                        says what was expected and found, and ends the script
. "$(dirname "${BASH_SOURCE[0]}")/../wine/prefix.sh"

service_pid=
log_mark=0

fail() {
  echo "FAILED: $*" >&2
  local file
  for file in "$machine_dir/service.out" "$reply" "$machine_dir/pipe.err"; do
    [ -s "$file" ] || continue
    echo "--- $(basename "$file")" >&2
    tail -n 40 "$file" | cut -c 1-500 | tr -d '\r' >&2
  done
  exit 1
}

close_machine() {
  local job
  # Also what a failed expectation left: one who works on, or one who was told to stand still.
  for job in $(jobs -p); do kill -KILL "$job" 2>/dev/null || true; done
  stop_machine
  rm -rf "$machine_dir"
}

# Where things are on the machine in a directory.
place_machine() {
  machine_dir=$1
  drive_c=$machine_dir/prefix/drive_c
  data_dir=$drive_c/ProgramData/Kestrelon
  reply=$machine_dir/reply
  events=$machine_dir/events
}

install_build() {
  mkdir -p "$drive_c/Program Files/Kestrelon" "$drive_c/Tools" "$events"
  cp "$1/src/executable/KestrelonSvc.exe" "$drive_c/Program Files/Kestrelon/"
  install_bench "$1/simulation/bench" KestrelonSvc.exe
  cp "$1/tools/KestrelonPipe.exe" "$drive_c/bench/"
}

open_machine() {
  place_machine "$2"
  make_template "$1/wine/template"
  clone_prefix "$1/wine/template" "$machine_dir/prefix"
  start_machine "$machine_dir/prefix"
  install_build "$1"
}

reopen_machine() {
  place_machine "$2"
  start_machine "$machine_dir/prefix"
  stop_machine  # what a run that was killed may have left
  start_machine "$machine_dir/prefix"
  install_build "$1"
}

kestrelon() {
  wine 'C:\Program Files\Kestrelon\KestrelonSvc.exe' "$@"
}

wfpctl() {
  wine 'C:\bench\wfpctl.exe' "$@" 2>"$machine_dir/wfpctl.err"
}

# Starts the foreground run and does not wait for it.
launch_service() {
  : >"$machine_dir/service.out"
  # By its own name rather than through a function: the process is to be this one.
  wine 'C:\Program Files\Kestrelon\KestrelonSvc.exe' --console \
    >"$machine_dir/service.out" 2>"$machine_dir/service.err" &
  service_pid=$!
}

start_service() {
  local try
  launch_service
  for try in $(seq 1200); do
    grep -q '^Running\. Press Ctrl+C to stop' "$machine_dir/service.out" && return 0
    kill -0 "$service_pid" 2>/dev/null || break
    sleep 0.05
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

# Ends the service's process without a word to it.
kill_service() {
  kill -KILL "$service_pid"
  wait "$service_pid" 2>/dev/null || true
  service_pid=
}

put_config() {
  mkdir -p "$data_dir"
  cat >"$data_dir/config.json"
}

put_program() {
  mkdir -p "$(dirname "$drive_c/$1")"
  printf '%s' "$2" >"$drive_c/$1"
}

sign_program() {
  mkdir -p "$(dirname "$drive_c/$3")"
  "$(dirname "${BASH_SOURCE[0]}")/../wine/make_signer.sh" "$machine_dir/$1" "$1" "$2" "$drive_c/$3" \
    >"$machine_dir/signing.out" 2>&1 || fail "not signed by $1: $3"
}

ask_input() {
  wine 'C:\bench\KestrelonPipe.exe' >"$reply" 2>"$machine_dir/pipe.err"
}

ask() {
  printf '%s' "$1" | ask_input
}

set_config() {
  { printf '{"cmd":"set_config","config":'; cat; printf '}'; } | ask_input ||
    fail "the configuration was refused"
}

follow() {
  wine 'C:\bench\KestrelonPipe.exe' --follow >"$events/$1" 2>/dev/null &
  follower_pid=$!
}

# What happens in a watched directory wakes the loop.
wake_service() {
  date >"$drive_c/Tools/note"
}

woken_until() {
  wake_service
  is_logged "$1"
}

wait_for() {
  local tries=$(($1 * 20)) try
  shift
  for try in $(seq "$tries"); do
    "$@" && return 0
    sleep 0.05
  done
  fail "in vain waited for: $*"
}

mark_log() {
  log_mark=$(stat -c %s "$data_dir/service.log")
}

is_logged() {
  tail -c "+$((log_mark + 1))" "$data_dir/service.log" 2>/dev/null | grep -qF -- "$1"
}

expect_logged() {
  is_logged "$1" || fail "service.log does not hold: $1"
}

expect_not_logged() {
  ! is_logged "$1" || fail "service.log holds: $1"
}

config_has() {
  grep -qF -- "$1" "$data_dir/config.json" || fail "config.json does not hold: $1"
}

expect_reply() {
  grep -qF -- "$1" "$reply" || fail "the reply does not hold: $1"
}

has_event() {
  grep -qF -- "$2" "$events/$1"
}

expect_filters() {
  local number
  number=$(wfpctl count)
  [ "$number" = "$1" ] || fail "the engine holds $number filters, expected $1"
}

# Whether the engine answers the connections of $machine_dir/expected as wanted there. What differs
# is left in $difference.
verdicts_hold() {
  local wanted connection got
  difference='not every connection has a verdict'
  wfpctl batch 'C:\connections' >"$machine_dir/verdicts" || true
  [ "$(wc -l <"$machine_dir/verdicts")" -eq "$(wc -l <"$machine_dir/expected")" ] || return 1
  while read -r wanted connection <&3 && IFS= read -r got <&4; do
    difference="$connection: expected $wanted, found $got"
    [ "${got%% *}" = "$wanted" ] || return 1
  done 3<"$machine_dir/expected" 4<"$machine_dir/verdicts"
}

# Lines "PERMIT|BLOCK CONNECTION" from the input, which verdicts_hold asks again.
take_connections() {
  grep -vE '^ *(#.*)?$' >"$machine_dir/expected"
  cut -d ' ' -f 2- "$machine_dir/expected" >"$drive_c/connections"
}

expect_same_verdicts() {
  verdicts_hold || fail "$difference"
}

expect_verdicts() {
  take_connections
  expect_same_verdicts
  echo "$(wc -l <"$machine_dir/expected") verdicts as expected"
}
