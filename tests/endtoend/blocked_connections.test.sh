# A connection that the engine drops is told of three times: to subscribers, in activity.log, and to
# those who ask for the list. One that it lets through is told of while somebody asks for it.
put_program Tools/tool.exe 'a tool'
put_program Tools/guest.exe 'a guest'
cp "$1/tests/endtoend/port_service.exe" "$drive_c/Tools/"
# A service of the shared host. Its account's SID is the SHA-1 of its name in capitals.
wine sc create Shared DisplayName= 'Shared service' \
  binPath= 'C:\windows\system32\svchost.exe -k shared' >/dev/null 2>&1
wine reg add 'HKLM\SYSTEM\CurrentControlSet\Services\Shared' /v ServiceSidType /t REG_DWORD /d 1 /f \
  >/dev/null 2>&1
shared_sid=S-1-5-80-3497849992-3056260028-3990308523-2187179661-3333787180
put_config <<'END'
{"presets_version": 9, "apps": [
  {"path": "C:\\Tools\\tool.exe"}, {"path": "C:\\Tools\\refused.exe", "action": "block"}],
 "rules": [{"name": "No telnet", "action": "block", "protocol": 6, "remote_ports": "23"}]}
END

# drop CONNECTION...: a connection that is blocked.
drop() {
  ! wfpctl connect "$@" >"$machine_dir/verdict" || fail "not blocked: $*"
}

# list COMMAND NAME MEMBER...: a line with these members for each record of the list of this name.
list() {
  ask "{\"cmd\":\"$1\"}" || fail "$1 was refused"
  python3 - "$reply" "${@:2}" <<'END'
import json, sys
path, name, *members = sys.argv[1:]
for record in json.load(open(path, encoding="utf-8"))[name]:
    print(*(record.get(member, "-") for member in members), sep="|")
END
}
records_hold() {
  list get_log events app dir protocol local_port remote_addr remote_port reason rule service count \
    >"$machine_dir/records"
  cmp -s "$machine_dir/records" "$machine_dir/expected_records"
}
expect_records() {
  cat >"$machine_dir/expected_records"
  wait_for 5 records_hold
}

# What the file holds, without the times: they are the local ones.
activity() {
  tr -d '\r' <"$data_dir/activity.log" |
    sed -E 's/^[0-9]{4}(-[0-9]{2}){2} [0-9]{2}(:[0-9]{2}){2}\t//'
}
expect_activity() {
  diff - <(activity) >&2 || fail 'activity.log holds other lines than expected'
}
has_blocked_events() {
  [ "$(grep -c '"type":"blocked"' "$events/all")" -eq "$1" ]
}

start_service
expect_logged 'Subscribed to WFP net events (FwpmNetEventSubscribe4)'
follow all
# The same configuration again is told of too, once the subscriber is there.
is_following() {
  set_config <"$data_dir/config.json"
  has_event all '{"type":"config_changed"}'
}
wait_for 10 is_following
drop --program 'C:\Tools\other.exe' --remote 203.0.113.5 --remote-port 443
drop --program 'C:\Tools\tool.exe' --remote 203.0.113.5 --remote-port 23
drop --program 'C:\Tools\refused.exe' --remote 2001:db8::5 --direction in --local-port 80
expect_records <<'END'
C:\tools\other.exe|out|6|49152|203.0.113.5|443|default|-|-|1
C:\Tools\tool.exe|out|6|49152|203.0.113.5|23|rule|No telnet|-|1
C:\tools\refused.exe|in|6|80|2001:db8::5|0|app|-|-|1
END
wait_for 5 has_blocked_events 3
has_event all '"app":"C:\\tools\\other.exe","dir":"out"' || fail 'the event names another program'
ask '{"cmd":"status"}'
expect_reply '"net_drops": 3'

# A repeat is told of again and counted, and moves to the end; the file has it once.
drop --program 'C:\Tools\other.exe' --remote 203.0.113.5 --remote-port 443 --local-port 50000
expect_records <<'END'
C:\Tools\tool.exe|out|6|49152|203.0.113.5|23|rule|No telnet|-|1
C:\tools\refused.exe|in|6|80|2001:db8::5|0|app|-|-|1
C:\tools\other.exe|out|6|49152|203.0.113.5|443|default|-|-|2
END
wait_for 5 has_blocked_events 4
expect_activity <<'END'
out	6	C:\tools\other.exe	203.0.113.5:443	default
out	6	C:\Tools\tool.exe	203.0.113.5:23	rule: No telnet
in	6	C:\tools\refused.exe	[2001:db8::5]:80	app
END

# A process of the shared host is named by the service whose filter dropped the connection, or else
# by the one that owns its port.
port=$((20000 + $$ % 20000))
wine sc create PortHolder binPath= "C:\\Tools\\port_service.exe $port" >/dev/null 2>&1
wine sc start PortHolder >/dev/null 2>&1
port_is_held() {
  wine sc query PortHolder 2>/dev/null | grep -q RUNNING
}
wait_for 10 port_is_held
ask '{"cmd":"clear_log"}' || fail 'clear_log was refused'
drop_of_host() {
  drop --program 'C:\windows\system32\svchost.exe' --protocol udp --remote 203.0.113.5 \
    --remote-port "$1" --local-port "$2" "${@:3}"
}
drop_of_host 1 "$port" --user "$shared_sid"
drop_of_host 2 "$port"
drop_of_host 3 9
# Clearing has emptied the list.
expect_records <<END
C:\\windows\\system32\\svchost.exe|out|17|$port|203.0.113.5|1|default|-|Shared|1
C:\\windows\\system32\\svchost.exe|out|17|$port|203.0.113.5|2|default|-|PortHolder|1
C:\\windows\\system32\\svchost.exe|out|17|9|203.0.113.5|3|default|-|-|1
END

# The engine's option for allowed connections is the machine's and costs everybody.
expect_options() {
  local options
  options=$(wfpctl options | tr -d '\r')
  [ "$options" = "$1" ] || fail "the engine's options are $options, expected $1"
}
log_allowed() {
  set_config <<END
{"presets_version": 9, "log_allowed": $1,
 "apps": [{"path": "C:\\\\Tools\\\\tool.exe"}, {"path": "C:\\\\Tools\\\\guest.exe"}]}
END
}
connect() {
  wfpctl connect --program "$1" --remote "${2:-203.0.113.5}" --remote-port 443 \
    >"$machine_dir/verdict" || fail "blocked: $1"
}
allowed_are() {
  [ "$(list get_allowed connections app dir remote_addr remote_port count)" = "$1" ]
}
log_allowed false
expect_options 'collect=1 keywords=0x3'
connect 'C:\Tools\tool.exe'
log_allowed true
expect_logged 'Allowed-connection logging on'
expect_options 'collect=1 keywords=0x13'
# What went before is not reported, nor what stays on the machine.
connect 'C:\Tools\guest.exe'
connect 'C:\Tools\guest.exe'
connect 'C:\Tools\tool.exe' 127.0.0.1
wait_for 5 allowed_are 'C:\Tools\guest.exe|out|203.0.113.5|443|2'
expect_reply '"enabled": true'
log_allowed false
expect_logged 'Allowed-connection logging off'
expect_options 'collect=1 keywords=0x3'
allowed_are '' || fail 'the table still holds connections'
expect_reply '"enabled": false'
log_allowed true
expect_options 'collect=1 keywords=0x13'
stop_service
expect_options 'collect=1 keywords=0x3'

# A system without the newest form of the reports: a library that lacks it, as it lacks any other.
sed 's/FwpmNetEventSubscribe4/FwpmNetEventSubscribe9/' "$1/simulation/bench/fwpuclnt.dll" \
  >"$machine_dir/older.dll"
cp --remove-destination "$machine_dir/older.dll" "$drive_c/windows/system32/fwpuclnt.dll"
mark_log
start_service
expect_logged 'FwpmNetEventSubscribe4 failed ('
expect_logged ') - falling back to FwpmNetEventSubscribe0'
expect_logged 'Subscribed to WFP net events (FwpmNetEventSubscribe0)'
drop --program 'C:\Tools\other.exe' --remote 203.0.113.5 --remote-port 443
expect_records <<'END'
C:\tools\other.exe|out|6|49152|203.0.113.5|443|default|-|-|1
END
stop_service
