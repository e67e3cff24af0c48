# The filtering engine goes away and comes back. No moment lets through what is blocked.
put_program Tools/tool.exe 'a tool'
put_config <<'END'
{"presets_version": 9, "apps": [{"path": "C:\\Tools\\tool.exe"}]}
END
start_service
take_connections <<'END'
PERMIT --program C:\Tools\tool.exe --remote 203.0.113.5 --remote-port 443
BLOCK --program C:\Tools\other.exe --remote 203.0.113.5 --remote-port 443
BLOCK --program C:\Tools\other.exe --direction in --remote 2001:db8::5 --local-port 80
END
expect_same_verdicts

# Asks without a pause from here on; while the engine is away there is nobody to answer.
watch_verdicts() {
  while [ ! -f "$machine_dir/enough" ]; do
    wine 'C:\bench\wfpctl.exe' connect --program 'C:\Tools\other.exe' --remote 203.0.113.5 \
      --remote-port 443 2>/dev/null || true
  done
}
watch_verdicts >"$machine_dir/watched" &
watcher=$!
one_answer_more() {
  [ "$(wc -l <"$machine_dir/watched")" -gt "$answers" ]
}
filter_keys() {
  wfpctl list | grep -v 'Boot-time' | cut -d ' ' -f 1 | sort
}
engine_is_gone() {
  ! wfpctl count >/dev/null
}
stop_engine() {
  wine sc stop BFE >/dev/null 2>&1
  wait_for 10 engine_is_gone
}
start_engine() {
  wine sc start BFE >/dev/null 2>&1
  wait_for_engine
  expect_same_verdicts  # before the service has done anything
}
# Each application gives its filters new keys.
applied_anew() {
  verdicts_hold && [ "$(filter_keys)" != "$keys" ]
}
keys=$(filter_keys)

# Back before the loop has looked: it finds its session dead, and applies anew.
kill -STOP "$service_pid"
stop_engine
start_engine
mark_log
kill -CONT "$service_pid"
wake_service
wait_for 20 is_logged 'WFP engine connection lost - reconnecting'
wait_for 5 applied_anew
expect_not_logged 'modified externally'

# Away for longer: the service stays, answers, refuses what it cannot do, and applies anew after.
keys=$(filter_keys)
mark_log
stop_engine
wake_service
wait_for 20 is_logged 'WFP engine connection lost - reconnecting'
ask '{"cmd":"status"}' || fail 'the service does not answer without the engine'
! ask '{"cmd":"set_config","config":{"enabled":false}}' ||
  fail 'a configuration was accepted without the engine'
expect_reply 'WFP engine is not open'
start_engine
wake_service
wait_for 20 applied_anew
expect_not_logged 'modified externally'
ask '{"cmd":"status"}'
expect_reply '"enabled": true'
expect_reply '"last_error": ""'

answers=$(wc -l <"$machine_dir/watched")
wait_for 5 one_answer_more
: >"$machine_dir/enough"
wait "$watcher"
! grep -q PERMIT "$machine_dir/watched" || fail 'a blocked connection was let through in between'
echo "$(grep -c BLOCK "$machine_dir/watched") answers in between, each a block"
stop_service
