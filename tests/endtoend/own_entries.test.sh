# What the user's own entries do, how a permission for a while ends, and that without its file the
# configuration fails towards blocking.
for program in tool server game guest; do put_program "Tools/$program.exe" "a $program"; done
put_config <<'END'
{
  "presets_version": 9,
  "apps": [
    {"path": "C:\\Tools\\tool.exe"},
    {"path": "C:\\Tools\\server.exe", "inbound": true},
    {"path": "C:\\Tools\\game.exe", "action": "block"}
  ],
  "rules": [
    {"name": "never", "action": "block", "direction": "both", "remote": "198.51.100.0/24, 2001:db8:bad::/48"},
    {"name": "four only", "action": "allow", "remote": "0.0.0.0/0", "remote_ports": "7000-7010"},
    {"name": "game too", "action": "allow", "app": "C:\\Tools\\game.exe"}
  ]
}
END
start_service
expect_verdicts <<'END'
PERMIT --program C:\Tools\tool.exe --remote 203.0.113.5 --remote-port 443
PERMIT --program c:\tools\TOOL.EXE --remote 2001:db8::5 --remote-port 443
BLOCK --program C:\Tools\tool.exe --direction in --remote 203.0.113.5 --local-port 80
PERMIT --program C:\Tools\server.exe --direction in --remote 203.0.113.5 --local-port 80
BLOCK --program C:\Tools\tool.exe --remote 198.51.100.9 --remote-port 443
BLOCK --program C:\Tools\server.exe --direction in --remote 2001:db8:bad::1 --local-port 80
BLOCK --program C:\Tools\game.exe --remote 203.0.113.5 --remote-port 443
PERMIT --program C:\Tools\unknown.exe --remote 203.0.113.5 --remote-port 7010
BLOCK --program C:\Tools\unknown.exe --remote 203.0.113.5 --remote-port 7011
BLOCK --program C:\Tools\unknown.exe --remote 2001:db8::5 --remote-port 7010
PERMIT --program C:\Tools\unknown.exe --remote 127.0.0.1 --remote-port 8080
END

follow all
ends=$((($(date +%s) + 11644473600 + 6) * 10000000))
set_config <<END
{"presets_version": 9, "apps": [{"path": "C:\\\\Tools\\\\tool.exe"},
  {"path": "C:\\\\Tools\\\\guest.exe", "expires": $ends},
  {"path": "C:\\\\Tools\\\\gone.exe", "until_reboot": true, "added": 1}]}
END
expect_verdicts <<'END'
PERMIT --program C:\Tools\guest.exe --remote 203.0.113.5 --remote-port 443
END
wait_for 12 is_logged 'Temporary permission ended: C:\Tools\guest.exe'
now=$((($(date +%s%3N) + 11644473600000) * 10000))
[ "$now" -ge "$ends" ] || fail 'the permission ended early'
[ $((now - ends)) -lt 30000000 ] || fail 'the permission ended late'
# The boot that this one was good for is over.
expect_logged 'Temporary permission ended: C:\Tools\gone.exe'
take_connections <<'END'
PERMIT --program C:\Tools\tool.exe --remote 203.0.113.5 --remote-port 443
BLOCK --program C:\Tools\guest.exe --remote 203.0.113.5 --remote-port 443
END
wait_for 3 verdicts_hold
wait_for 3 has_event all '{"type":"app_expired","path":"C:\\Tools\\guest.exe"}'
! grep -qF guest.exe "$data_dir/config.json" || fail 'the ended permission is still stored'
stop_service

echo '{ damaged' | put_config
start_service
expect_logged 'Configuration is unreadable (invalid JSON in C:\ProgramData\Kestrelon\config.json: expected object key) - moving it to config.json.bad'
expect_logged 'Configuration restored from the last working copy'
grep -q damaged "$data_dir/config.json.bad" || fail 'the damaged file was not kept'
expect_same_verdicts
stop_service

rm -r "$data_dir/config.json" "$data_dir/config.json.lastgood" "$data_dir/backups"
start_service
expect_logged 'Configuration file is missing although it existed before'
expect_logged 'Strict fallback: all traffic blocked except loopback'
expect_verdicts <<'END'
BLOCK --program C:\Tools\tool.exe --remote 203.0.113.5 --remote-port 443
BLOCK --program C:\windows\system32\svchost.exe --protocol udp --remote 203.0.113.7 --remote-port 123
BLOCK --program System --remote 192.168.1.10 --remote-port 445
PERMIT --program C:\Tools\tool.exe --remote 127.0.0.1 --remote-port 8080
END
stop_service
