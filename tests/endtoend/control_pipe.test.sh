# What a client of the control pipe gets, and what no client can do to the others.
put_program Tools/tool.exe 'a tool'
put_config <<'END'
{"presets_version": 9, "apps": [{"path": "C:\\Tools\\tool.exe"}]}
END
start_service
follow idle
follow changes
take_connections <<'END'
PERMIT --program C:\Tools\tool.exe --remote 203.0.113.5 --remote-port 443
BLOCK --program C:\Tools\other.exe --remote 203.0.113.5 --remote-port 443
END
expect_same_verdicts

ask '{"cmd":"status"}'
expect_reply '"version": "1.2.2"'
expect_reply '"enabled": true'
expect_reply '"last_error": ""'
ask '{"cmd":"get_config"}'
expect_reply 'C:\\Tools\\tool.exe'
expect_reply "$(sha256sum "$drive_c/Tools/tool.exe" | cut -d ' ' -f 1)"
ask '{"cmd":"file_info","path":"C:\\Tools\\tool.exe"}'
expect_reply '"exists": true'
expect_reply '"signed": false'

# refused REQUEST ERROR: an answer that is an error, on a connection that goes on.
refused() {
  ! ask "$1" || fail "accepted: $1"
  expect_reply "$2"
}
refused '{"cmd":"Status"}' 'unknown command: Status'
refused 'status' 'invalid request: '
refused '["status"]' 'invalid request: '
refused '{"cmd":"set_config","config":7}' 'Invalid configuration: '
refused '{"cmd":"file_info"}' 'missing path'

set_config <<'END'
{"presets_version": 9, "apps": [{"path": "C:\\Tools\\tool.exe", "action": "block"}]}
END
expect_verdicts <<'END'
BLOCK --program C:\Tools\tool.exe --remote 203.0.113.5 --remote-port 443
BLOCK --program C:\Tools\other.exe --remote 203.0.113.5 --remote-port 443
END
expect_logged 'Configuration updated: 1 apps, 0 rules, '
wait_for 3 has_event changes '{"type":"config_changed"}'

# A request of a chunk exactly, and of one byte over, arrives as a whole.
for size in 16384 16385; do
  name=$(head -c "$((size - 10))" /dev/zero | tr '\0' x)
  refused "{\"cmd\":\"$name\"}" "unknown command: $name\""
done
# One that is too long ends its connection, and nothing else.
! { printf '{"cmd":"status","pad":"'; head -c $((33 << 20)) /dev/zero | tr '\0' x; printf '"}'; } |
  ask_input || fail 'a request of 33 MiB was answered'
! grep -q '"ok"' "$reply" || fail 'a request of 33 MiB was answered'
ask '{"cmd":"status"}' || fail 'the service does not answer after a request of 33 MiB'

# A subscriber that stops reading: more is published than its end of the pipe takes.
follow stalled
stalled=$follower_pid
wait_for 20 has_event idle '{"type":"ping"}'
kill -STOP "$stalled"
python3 - >"$machine_dir/ending" <<'END'
import json, time
ends = int((time.time() + 2 + 11644473600) * 1e7)
apps = [{"path": f"C:\\Tools\\{i:02}{'x' * 9000}.exe", "expires": ends} for i in range(20)]
print(json.dumps({"presets_version": 9, "apps": apps}))
END
set_config <"$machine_dir/ending"
all_ended() {
  [ "$(grep -c app_expired "$events/changes")" -eq 20 ]
}
wait_for 10 all_ended
ask '{"cmd":"status"}' || fail 'the service does not answer beside a stalled subscriber'

# A hundred clients at once: all are connected before the first one asks.
wine 'C:\bench\KestrelonPipe.exe' --clients 100 status >"$machine_dir/hundred" 2>/dev/null ||
  fail 'not every one of a hundred clients was answered'
[ "$(grep -c '"ok": true' "$machine_dir/hundred")" -eq 100 ] || fail 'not a hundred good answers'

started=$SECONDS
stop_service
[ $((SECONDS - started)) -lt 8 ] || fail 'the stop waited for a subscriber that does not read'
kill -CONT "$stalled"
