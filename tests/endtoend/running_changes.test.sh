# What changes around a running service: permissions end on time, a program that is replaced behind
# its permission is held back, and the entry of a version that is gone goes too.
put_program Tools/tool.exe 'first version'
put_program Tools/guest.exe 'a guest'
put_config <<'END'
{"presets_version": 9, "apps": [{"path": "C:\\Tools\\tool.exe"}]}
END
start_service
follow all

ends=$((($(date +%s) + 11644473600 + 6) * 10000000))
set_config <<END
{"presets_version": 9, "apps": [{"path": "C:\\\\Tools\\\\tool.exe"},
  {"path": "C:\\\\Tools\\\\guest.exe", "expires": $ends},
  {"path": "C:\\\\Tools\\\\gone.exe", "until_reboot": true, "added": 1}]}
END
expect_verdicts <<'END'
PERMIT --program C:\Tools\tool.exe --remote 203.0.113.5 --remote-port 443
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

mkdir -p "$drive_c/Tools/App-1.2" "$drive_c/Tools/App-1.3"
for version in 1.2 1.3; do
  "$(dirname "${BASH_SOURCE[0]}")/../wine/make_signer.sh" "$machine_dir/signer" 'Example Publisher' \
    "$drive_c/bench/BFE.exe" "$drive_c/Tools/App-$version/app.exe" >/dev/null 2>&1
done
set_config <<'END'
{"presets_version": 9, "apps": [{"path": "C:\\Tools\\App-1.2\\app.exe"},
  {"path": "C:\\Tools\\App-1.3\\app.exe"}]}
END
expect_verdicts <<'END'
PERMIT --program C:\Tools\App-1.2\app.exe --remote 203.0.113.5 --remote-port 443
PERMIT --program C:\Tools\App-1.3\app.exe --remote 203.0.113.5 --remote-port 443
END
rm "$drive_c/Tools/App-1.2/app.exe"
wait_for 5 is_logged 'Removing rule of old version (file gone): C:\Tools\App-1.2\app.exe'
take_connections <<'END'
BLOCK --program C:\Tools\App-1.2\app.exe --remote 203.0.113.5 --remote-port 443
PERMIT --program C:\Tools\App-1.3\app.exe --remote 203.0.113.5 --remote-port 443
END
wait_for 5 verdicts_hold
ask '{"cmd":"get_config"}'
! grep -qF 'App-1.2' "$reply" || fail 'the entry of the version that is gone is still there'
stop_service
