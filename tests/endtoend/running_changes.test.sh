# What changes around a running service: permissions end on time, and a program that is replaced
# behind its permission is held back.
put_program Tools/tool.exe 'first version'
put_program Tools/guest.exe 'a guest'
put_config <<'END'
{"presets_version": 9, "apps": [{"path": "C:\\Tools\\tool.exe"}]}
END
start_service
follow all

ends=$((($(date +%s) + 11644473600 + 4) * 10000000))
set_config <<END
{"presets_version": 9, "apps": [{"path": "C:\\\\Tools\\\\tool.exe"},
  {"path": "C:\\\\Tools\\\\guest.exe", "expires": $ends},
  {"path": "C:\\\\Tools\\\\gone.exe", "until_reboot": true, "added": 1}]}
END
expect_verdicts <<'END'
PERMIT --program C:\Tools\tool.exe --remote 203.0.113.5 --remote-port 443
PERMIT --program C:\Tools\guest.exe --remote 203.0.113.5 --remote-port 443
END
wait_for 8 is_logged 'Temporary permission ended: C:\Tools\guest.exe'
now=$((($(date +%s%3N) + 11644473600000) * 10000))
[ "$now" -ge "$ends" ] || fail 'the permission ended early'
[ $((now - ends)) -lt 20000000 ] || fail 'the permission ended late'
# The boot that this one was good for is over.
expect_logged 'Temporary permission ended: C:\Tools\gone.exe'
take_connections <<'END'
PERMIT --program C:\Tools\tool.exe --remote 203.0.113.5 --remote-port 443
BLOCK --program C:\Tools\guest.exe --remote 203.0.113.5 --remote-port 443
END
wait_for 3 verdicts_hold
wait_for 3 has_event all '{"type":"app_expired","path":"C:\\Tools\\guest.exe"}'
! grep -qF guest.exe "$data_dir/config.json" || fail 'the ended permission is still stored'

put_program Tools/tool.exe 'replaced behind the rule'
wait_for 5 is_logged 'Warning: Kept blocked: C:\Tools\tool.exe has changed since it was allowed (unsigned program)'
expect_verdicts <<'END'
BLOCK --program C:\Tools\tool.exe --remote 203.0.113.5 --remote-port 443
BLOCK --program C:\Tools\tool.exe --remote 127.0.0.1 --remote-port 8080
END
ask '{"cmd":"status"}'
expect_reply '"changed_apps": ['
expect_reply 'C:\\Tools\\tool.exe'

put_program Tools/tool.exe 'first version'
take_connections <<'END'
PERMIT --program C:\Tools\tool.exe --remote 203.0.113.5 --remote-port 443
END
wait_for 5 verdicts_hold
stop_service
