# Filters that somebody changed behind the service's back are found at the engine's word and put
# back, and so are all of them once the engine went away.
sublayer='{9D4E6A12-3B7F-4C21-8E95-A1C3F0B2D746}'
provider='{6B2A1F30-7C4E-4D8A-9F13-2E5B8C71A0D4}'
first_boot_filter='{E1B7C3A0-5D2F-4A6E-B8AD-0F1E2D3C4B50}'

put_program Tools/tool.exe 'a tool'
put_config <<'END'
{"presets_version": 9, "apps": [{"path": "C:\\Tools\\tool.exe"}],
 "rules": [{"name": "never", "action": "block", "remote": "198.51.100.0/24"}]}
END
start_service
filters=$(wfpctl count)
take_connections <<'END'
PERMIT --program C:\Tools\tool.exe --remote 203.0.113.5 --remote-port 443
BLOCK --program C:\Tools\tool.exe --remote 198.51.100.7 --remote-port 443
BLOCK --program C:\Tools\other.exe --remote 203.0.113.5 --remote-port 443
BLOCK --program C:\Tools\other.exe --direction in --remote 2001:db8::5 --local-port 80
END
expect_same_verdicts

# The key of the first filter of a name. Keys are new with each application.
key_of() {
  wfpctl list | grep -F -- "$1" | head -n 1 | cut -d ' ' -f 1
}
as_before() {
  verdicts_hold && [ "$(wfpctl count)" = "$filters" ]
}
# restored REASON: the last change was found, for this reason, and all is as it was. The seconds
# are fewer than the loop sleeps without being woken.
restored() {
  wait_for 5 is_logged "Kestrelon filters were modified externally ($1) - restoring"
  wait_for 5 as_before
  mark_log
}
# The loop's turn to look comes after all of a tampering that takes more than one step.
in_one_go() {
  kill -STOP "$service_pid"
  "$@" || fail "the engine refused: $*"
  kill -CONT "$service_pid"
}
mark_log

# An administrator may look and reopen, no more. Which code the engine gives is its own matter.
refused() {
  ! wfpctl "$@" --as administrator >/dev/null || fail "an administrator could $*"
  grep -qF 'access denied' "$machine_dir/wfpctl.err" || fail "not for want of access: $*"
}
block=$(key_of 'weight=0 block')
refused delete-filter "$block"
refused set-weight "$block" 1
refused add-filter --sublayer "$sublayer"
refused delete-sublayer "$sublayer"
refused delete-all-of-provider "$provider"
as_before || fail "an administrator changed something: $difference"

wfpctl delete-filter "$block"
recorded=$(($(wfpctl list | grep -vc 'Boot-time') + 1))
restored "$((recorded - 1)) filters present, $recorded expected"

wfpctl add-filter --sublayer "$sublayer" --program 'C:\Tools\other.exe' --weight 15 >/dev/null
restored "$((recorded + 1)) filters present, $recorded expected"

allow=$(key_of 'weight=10 permit')
wfpctl set-weight "$allow" 11
restored "filter $allow was modified"

# One gone and another there: the number is right, the filter is not.
exchange() {
  wfpctl delete-filter "$block" && wfpctl add-filter --sublayer "$sublayer" >/dev/null
}
block=$(key_of 'weight=0 block')
in_one_go exchange
restored "filter $block is missing"

wfpctl delete-filter "$first_boot_filter"
restored '7 boot-time filters present, 8 expected'
in_one_go wfpctl delete-boot-filters >/dev/null
restored '0 boot-time filters present, 8 expected'

in_one_go wfpctl delete-sublayer "$sublayer" --with-filters
restored "0 filters present, $recorded expected"

# The engine goes away and comes back. No moment lets through what is blocked: asked without a pause
# from here on; while the engine is away there is nobody to answer.
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

# Without protection there are no filters, and still the sublayer is to be there: where a new
# filter would go.
set_config <<'END'
{"presets_version": 9, "enabled": false}
END
expect_filters 0
filters=0
: >"$machine_dir/expected"
: >"$drive_c/connections"
touch_engine() {
  wfpctl delete-sublayer "$sublayer" && wfpctl delete-filter "$(wfpctl add-filter)"
}
in_one_go touch_engine
restored 'the Kestrelon sublayer is missing'
stop_service
