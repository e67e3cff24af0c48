# What a module can ask on its pipe, and that nobody else is answered.
. "$(dirname "${BASH_SOURCE[0]}")/module.sh"
put_module "$1"
start_service
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
expect_stranger 'no pipe' connect
approve_module
expect_starts 1
tell connect connected

hello='{"ok":true,"module":"lan-messages","permissions":["status.read"],"kestrelon":"1.2.2"}'
tell '{"cmd":"hello"}' "$hello"
tell '{"cmd":"status"}' '{"ok":true,"protection":true,"kestrelon":"1.2.2"}'
for command in get_config set_config Status ''; do
  tell "{\"cmd\":\"$command\"}" '{"ok":false,"error":"not permitted"}'
  expect_logged "Module lan-messages asked for \"$command\" without permission - refused"
done
for request in '[]' '{' status; do tell "$request" '{"ok":false,"error":"invalid request"}'; done
tell '{"cmd":"hello"}' "$hello"
# Nothing of that ends a connection; too many requests within a second do, and one that is too long.
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
stop_service
