# A module from its approval to its end: started for the user, answered on its pipe, taken over,
# closed, given up, off.
. "$(dirname "${BASH_SOURCE[0]}")/module.sh"
put_module "$1"
put_program Tools/tool.exe 'a tool'
put_config <<'END'
{"presets_version": 9, "apps": [{"path": "C:\\Tools\\tool.exe"}]}
END
WINEDEBUG=trace+sync start_service
# The same program, under the same name, that the service has not started.
cp "$module_file" "$drive_c/Tools/KSMessages.exe"
# expect_stranger ANSWERS ORDER...: what it meets.
expect_stranger() {
  local expected=$1 found
  shift
  wine 'C:\Tools\KSMessages.exe' "$@" >"$machine_dir/stranger" 2>/dev/null
  found=$(tr -d '\r' <"$machine_dir/stranger" | paste -sd ' ')
  [ "$found" = "$expected" ] || fail "a stranger met: $found"
}

# Shown with all that it asks for, and turned on by exactly that.
expect_module '"installed": true' '"verified": true' '"problem": ""' \
  '"signer": "TARGON HELVERIK Ltd. Co."' '"name": "LAN Messages"' '"version": "1.0"' \
  '"grant": "perm:status.read|net:in/17/53535/lan"' '"why": "messages of neighbours"' \
  '"enabled": false' '"active": false' '"running": 0'
! set_module true '"grant":"perm:status.read"' || fail 'approved what the module does not ask for'
expect_reply "The module's permissions differ from what was shown - please look at them again."
! ask '{"cmd":"set_module","id":"other","enabled":true}' || fail 'an unknown module was approved'
expect_reply 'unknown module: other'
expect_module_shut
expect_stranger 'no pipe' connect
expect_starts 0
approve_module
expect_logged 'Module lan-messages turned ON'
expect_logged 'Windows Defender Firewall exception for module lan-messages added'
expect_logged 'Module pipe opened'
expect_logged 'Module lan-messages started in session 1 (process '
process=$(sed -n 's/.*Module lan-messages started in session 1 (process \([0-9]*\)).*/\1/p' \
  "$data_dir/service.log")
expect_module '"enabled": true' '"approved_version": "1.0"' '"needs_approval": false' \
  '"active": true' '"running": 1'
ask '{"cmd":"status"}'
expect_reply '"modules_running": 1'
expect_module_open
expect_starts 1
tell connect connected

# Both pipes as they were made: nobody may have been there before, nobody comes from another machine,
# and only the service makes an instance of the modules'.
expect_pipe() {
  tell "list $1" "$2"
  grep -qF "CreateNamedPipeW (L\"\\\\\\\\.\\\\pipe\\\\$1\", 0x080003, 0x00000e," "$machine_dir/service.err" ||
    fail "the pipe $1 was not made as the first and for this machine alone"
}
expect_pipe Kestrelon 'D:P(A;;GA;;;SY)(A;;GA;;;BA)'
expect_pipe Kestrelon.Modules 'D:P(A;;GA;;;SY)(A;;0x12019b;;;AU)'

# What it may ask on its pipe is answered, what it may not is refused, and both leave the connection;
# too many requests within a second end it, and one that is too long.
hello='{"ok":true,"module":"lan-messages","permissions":["status.read"],"kestrelon":"1.2.2"}'
status='{"ok":true,"protection":true,"kestrelon":"1.2.2"}'
tell '{"cmd":"status"}' "$status"
for command in get_config Status ''; do
  tell "{\"cmd\":\"$command\"}" '{"ok":false,"error":"not permitted"}'
  expect_logged "Module lan-messages asked for \"$command\" without permission - refused"
done
tell '[]' '{"ok":false,"error":"invalid request"}'
tell '{"cmd":"hello"}' "$hello"
tell connect connected
tell 'burst 30 {"cmd":"hello"}' '20 replies'
expect_logged 'Module lan-messages: too many requests - disconnected'
tell connect connected
tell "{\"cmd\":\"$(head -c 16374 /dev/zero | tr '\0' x)\"}" '{"ok":false,"error":"not permitted"}'
tell "{\"cmd\":\"$(head -c 16375 /dev/zero | tr '\0' x)\"}" disconnected
tell connect connected
expect_stranger 'connected disconnected' connect '{"cmd":"hello"}'
expect_logged ' is not a module started by Kestrelon - disconnected'
tell '{"cmd":"hello"}' "$hello"

# A service that comes back takes the same process over, however it went.
expect_taken_over() {
  expect_logged "Module lan-messages already runs in session 1 (process $process) - taken over"
  expect_not_logged 'Module lan-messages started'
  tell '{"cmd":"hello"}' disconnected
  tell connect connected
  tell '{"cmd":"status"}' "$status"
  expect_starts 1
}
mark_log
stop_service
expect_logged 'Module pipe closed'
expect_module_open
start_service
expect_taken_over
mark_log
kill_service
start_service
expect_taken_over
expect_module_open

# What its user closed stays closed, by the loop's passes and by those that a client asks for.
echo 'exit 0x4B530000' >>"$orders"
wait_for 20 woken_until 'Module lan-messages closed by the user in session 1'
approve_module
expect_module '"active": true' '"running": 0'
expect_starts 1
stop_service

# One that crashes is tried three times.
mark_log
echo 'exit 7' >"$orders"
start_service
wait_for 40 woken_until 'Module lan-messages ended 3 times within 10 minutes - not started again in session 1 until the next sign-in'
expect_logged 'Module lan-messages ended unexpectedly in session 1 (exit code 0x00000007)'
approve_module
expect_module '"active": true' '"running": 0'
expect_starts 4
stop_service

# Turned off it ends, and its port and its pipe are shut.
: >"$orders"
mark_log
start_service
expect_starts 5
tell connect connected
expect_module_open
set_module false '"remove":true' || fail 'the module could not be turned off'
expect_logged 'Module lan-messages turned OFF'
expect_logged 'Windows Defender Firewall exception for module lan-messages removed'
expect_logged 'Module lan-messages stopped in session 1 (turned off)'
expect_logged 'Module pipe closed'
expect_not_logged FAILED
expect_module_shut
expect_module '"enabled": false' '"approved_version": ""' '"active": false' '"running": 0'
! grep -q lan-messages "$data_dir/config.json" || fail 'the approval is still stored'
told=$(wc -l <"$answers")
echo connect >>"$orders"
sleep 1
has_answers "$told" || fail 'the module still runs'
stop_service
