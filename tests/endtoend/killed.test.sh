# The service's process ends at any moment, fifty times, while its configuration changes: filters
# stay in force, the next start is clean, and no configuration that was acknowledged is lost.
# KESTRELON_SEED=N repeats a run's moments.
seed=${KESTRELON_SEED:-$RANDOM}
RANDOM=$seed
rounds=50
echo "seed $seed"

put_program Tools/tool.exe 'a tool'
put_program Tools/game.exe 'a game'
# configuration NUMBER: every second one permits the game.
configuration() {
  local action=block
  [ $(($1 % 2)) -eq 1 ] || action=allow
  cat <<END
{"presets_version": 9, "apps": [{"path": "C:\\\\Tools\\\\tool.exe"},
   {"path": "C:\\\\Tools\\\\game.exe", "action": "$action"}],
 "rules": [{"name": "change $1", "action": "block", "remote": "198.51.100.0/24"}]}
END
}

# Changes the configuration without a pause: a number goes into "sent" before its request and into
# "accepted" after a good answer.
change_configuration() {
  local number=0
  reply=$machine_dir/change.reply
  while [ ! -f "$machine_dir/enough" ]; do
    number=$((number + 1))
    echo "$number" >>"$machine_dir/sent"
    if { printf '{"cmd":"set_config","config":'; configuration "$number"; printf '}'; } | ask_input; then
      echo "$number" >>"$machine_dir/accepted"
    else
      sleep 0.1
    fi
  done
}
configuration 0 | put_config
echo 0 >"$machine_dir/sent"
echo 0 >"$machine_dir/accepted"

take_connections <<'END'
PERMIT --program C:\Tools\tool.exe --remote 203.0.113.5 --remote-port 443
BLOCK --program C:\Tools\tool.exe --remote 198.51.100.7 --remote-port 443
BLOCK --program C:\Tools\tool.exe --direction in --remote 203.0.113.5 --local-port 80
BLOCK --program C:\Tools\other.exe --remote 203.0.113.5 --remote-port 443
BLOCK --program C:\Tools\other.exe --direction in --remote 2001:db8::5 --local-port 80
END
start_service
stop_service
change_configuration &
changer=$!

changes=0
for round in $(seq $rounds); do
  before=$(tail -n 1 "$machine_dir/accepted")
  # Two rounds of three end a running service, the others one that may still start.
  if [ $((RANDOM % 3)) -eq 0 ]; then launch_service; else start_service; fi
  sleep "0.$(printf '%03d' $((RANDOM % 500)))"
  kill_service
  accepted=$(tail -n 1 "$machine_dir/accepted")
  sent=$(tail -n 1 "$machine_dir/sent")
  stored=$(sed -n 's/.*"name": "change \([0-9]*\)".*/\1/p' "$data_dir/config.json")
  [ -n "$stored" ] || fail "round $round: config.json holds no configuration"
  [ "$stored" -ge "$accepted" ] && [ "$stored" -le "$sent" ] ||
    fail "round $round: configuration $stored is stored, $accepted was accepted and $sent sent"
  verdicts_hold || fail "round $round: $difference"
  changes=$((changes + accepted - before))
done

: >"$machine_dir/enough"
wait "$changer"
start_service
ask '{"cmd":"get_config"}'
expect_reply "\"change $stored\""
ask '{"cmd":"status"}'
! grep -q '"fallback"' "$reply" || fail 'a start had to fall back'
expect_not_logged 'Configuration is unreadable'
expect_not_logged 'Configuration file is missing'
expect_not_logged 'failed'
stop_service
[ "$changes" -ge $rounds ] || fail "only $changes configurations were accepted in $rounds rounds"
echo "$rounds ends under $changes accepted configurations"
