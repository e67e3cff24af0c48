# Allowed connections are reported while somebody asks for them, and only then: the engine's option
# is the machine's and costs everybody.
put_program Tools/tool.exe 'a tool'
put_program Tools/guest.exe 'a guest'

expect_options() {
  local options
  options=$(wfpctl options | tr -d '\r')
  [ "$options" = "$1" ] || fail "the engine's options are $options, expected $1"
}
configure() {
  set_config <<END
{"presets_version": 9, $1
 "apps": [{"path": "C:\\\\Tools\\\\tool.exe"}, {"path": "C:\\\\Tools\\\\guest.exe"}]}
END
}
connect() {
  wfpctl connect --program "$1" --remote "${2:-203.0.113.5}" --remote-port 443 \
    >"$machine_dir/verdict" || fail "blocked: $1"
}
allowed_programs() {
  ask '{"cmd":"get_allowed"}' || fail 'get_allowed was refused'
  python3 - "$reply" <<'END'
import json, sys
for c in json.load(open(sys.argv[1], encoding="utf-8"))["connections"]:
    print(c["app"], c["dir"], c["remote_addr"], c["remote_port"], c["count"], sep="|")
END
}
allowed_are() {
  [ "$(allowed_programs)" = "$1" ]
}

start_service
configure ''
expect_options 'collect=1 keywords=0x3'
connect 'C:\Tools\tool.exe'
configure '"log_allowed": true,'
expect_logged 'Allowed-connection logging on'
expect_options 'collect=1 keywords=0x13'
# What went before is not reported, nor what stays on the machine.
connect 'C:\Tools\guest.exe'
connect 'C:\Tools\guest.exe'
connect 'C:\Tools\tool.exe' 127.0.0.1
wait_for 5 allowed_are 'C:\Tools\guest.exe|out|203.0.113.5|443|2'
expect_reply '"enabled": true'

configure ''
expect_logged 'Allowed-connection logging off'
expect_options 'collect=1 keywords=0x3'
allowed_are '' || fail 'the table still holds connections'
expect_reply '"enabled": false'

configure '"log_allowed": true,'
expect_options 'collect=1 keywords=0x13'
stop_service
expect_options 'collect=1 keywords=0x3'
