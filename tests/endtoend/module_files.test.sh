# A module whose file is another one, or asks for something else, is off and says why.
. "$(dirname "${BASH_SOURCE[0]}")/module.sh"
module=$1/tests/endtoend/module/KSMessages.exe
put_module "$1"
put_program Tools/tool.exe 'a tool'
put_config <<'END'
{"presets_version": 9, "apps": [{"path": "C:\\Tools\\tool.exe"}]}
END
start_service
approve_module
expect_module_open

# Replaced behind a running service it is stopped and shut; put back it needs no new approval.
not_shipped='the module file is not the one shipped with this Kestrelon version'
rm "$module_file"
sed 's/messages of neighbours/Messages of neighbours/' "$module" >"$module_file"
wait_for 20 woken_until 'Module lan-messages stopped in session 1 (turned off)'
wait_for 5 is_logged "Warning: Module lan-messages is off: $not_shipped"
expect_module_shut
expect_module '"installed": true' '"enabled": true' '"needs_approval": false' '"active": false'
mark_log
put_module "$1"
wait_for 20 woken_until 'Module lan-messages started in session 1'
expect_module_open
set_module false '"remove":false' || fail 'the module could not be turned off'

# expect_refused PROBLEM TEXT...: the present file is shown with it, and can't be turned on.
expect_refused() {
  expect_module "\"problem\": \"$1\"" '"verified": false' "${@:2}"
  ! set_module true '"grant":"perm:status.read|net:in/17/53535/lan"' || fail "approved: $1"
  expect_reply "The module cannot be turned on: $1"
}
# change_module SED: the pinned file with a change of the same length.
change_module() {
  rm -f "$module_file"
  sed "$1" "$module" >"$module_file"
}
change_module 's/messages of neighbours/Messages of neighbours/'
expect_refused "$not_shipped" '"signer": ""' '"grant": "perm:status.read|net:in/17/53535/lan"'
change_module 's/"id": "lan-messages"/"id": "foreign-mod1"/'
expect_refused 'the manifest belongs to another module (foreign-mod1)'
sign_program 'Somebody Else' "$1/tests/endtoend/test_module.exe" "${module_file#"$drive_c/"}"
expect_refused "$not_shipped" '"signer": "Somebody Else"'
rm "$module_file"
expect_refused 'the module file is missing' '"installed": false'
stop_service

# The right file, with an approval of something else.
put_module "$1"
sed -i 's/"enabled": false,/"enabled": true,/; s/"grant": .*,/"grant": "net:in\/17\/53535\/lan",/' \
  "$data_dir/config.json"
mark_log
start_service
expect_logged 'Warning: Module LAN Messages asks for other permissions than you approved - it stays off until you approve them'
expect_module '"problem": ""' '"verified": true' '"needs_approval": true' '"active": false' \
  '"running": 0'
expect_module_shut
approve_module
expect_logged 'Module lan-messages started in session 1'
expect_module_open
stop_service
