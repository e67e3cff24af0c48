# Programs are held to what was recorded for them, at a start and while the service runs; the
# signatures are real ones, made just now.
unsigned=$drive_c/bench/BFE.exe
put_program Tools/tool.exe 'first version'
sign_program 'Example Publisher' "$unsigned" Tools/browser.exe
put_config <<'END'
{"presets_version": 9, "apps": [{"path": "C:\\Tools\\tool.exe"}, {"path": "C:\\Tools\\browser.exe"}]}
END
expect_permitted() {
  take_connections <<'END'
PERMIT --program C:\Tools\tool.exe --remote 203.0.113.5 --remote-port 443
PERMIT --program C:\Tools\browser.exe --remote 203.0.113.5 --remote-port 443
END
  wait_for 5 verdicts_hold
}
changed='Warning: Kept blocked: C:\Tools\tool.exe has changed since it was allowed (unsigned program)'
not_signed='Warning: Kept blocked: C:\Tools\browser.exe is no longer signed by "Example Publisher"'

# The unsigned program is learnt by its hash, the signed one by its signer.
start_service
expect_permitted
config_has "$(sha256sum "$drive_c/Tools/tool.exe" | cut -d ' ' -f 1)"
config_has '"signer": "Example Publisher"'
stop_service

put_program Tools/tool.exe 'replaced behind the rule'
sign_program 'Somebody Else' "$unsigned" Tools/browser.exe
start_service
follow all
expect_logged "$changed"
expect_logged "$not_signed (signed by \"Somebody Else\")"
expect_verdicts <<'END'
BLOCK --program C:\Tools\tool.exe --remote 203.0.113.5 --remote-port 443
BLOCK --program C:\Tools\tool.exe --remote 127.0.0.1 --remote-port 8080
BLOCK --program C:\Tools\browser.exe --remote 203.0.113.5 --remote-port 443
BLOCK --program C:\Tools\browser.exe --direction in --remote ::1 --local-port 8080
END

# The first content again, and a new version by the same signer, are let through.
put_program Tools/tool.exe 'first version'
sign_program 'Example Publisher' "$drive_c/bench/wfpctl.exe" Tools/browser.exe
expect_permitted

# Changed again, now behind a running service: a signed file with a changed byte is no longer signed.
mark_log
put_program Tools/tool.exe 'replaced behind the rule'
printf X | dd of="$drive_c/Tools/browser.exe" bs=1 seek=4096 conv=notrunc 2>/dev/null
wait_for 5 is_logged "$changed"
wait_for 5 is_logged "$not_signed (unsigned)"
expect_verdicts <<'END'
BLOCK --program C:\Tools\tool.exe --remote 203.0.113.5 --remote-port 443
BLOCK --program C:\Tools\browser.exe --remote 203.0.113.5 --remote-port 443
END
ask '{"cmd":"status"}'
expect_reply '"changed_apps": ['
expect_reply 'C:\\Tools\\tool.exe'

# A new version of a listed program by the same publisher is let through once it was blocked; the
# entry of the version that is gone goes too.
for version in 1.2 1.3; do
  sign_program 'Example Publisher' "$unsigned" "Tools/App-$version/app.exe"
done
set_config <<'END'
{"presets_version": 9, "apps": [{"path": "C:\\Tools\\App-1.2\\app.exe"}]}
END
! wfpctl connect --program 'C:\Tools\App-1.3\app.exe' --remote 203.0.113.5 --remote-port 443 \
  >/dev/null || fail 'a program that nobody has allowed was let through'
take_connections <<'END'
PERMIT --program C:\Tools\App-1.2\app.exe --remote 203.0.113.5 --remote-port 443
PERMIT --program C:\Tools\App-1.3\app.exe --remote 203.0.113.5 --remote-port 443
END
wait_for 20 verdicts_hold
wait_for 5 is_logged 'Update detected: C:\Tools\App-1.2\app.exe -> C:\Tools\App-1.3\app.exe (publisher "Example Publisher")'
wait_for 5 has_event all '"type":"app_updated"'
rm "$drive_c/Tools/App-1.2/app.exe"
wait_for 5 is_logged 'Removing rule of old version (file gone): C:\Tools\App-1.2\app.exe'
take_connections <<'END'
BLOCK --program C:\Tools\App-1.2\app.exe --remote 203.0.113.5 --remote-port 443
PERMIT --program C:\Tools\App-1.3\app.exe --remote 203.0.113.5 --remote-port 443
END
wait_for 5 verdicts_hold
! grep -qF 'App-1.2' "$data_dir/config.json" || fail 'the entry of the version that is gone is stored'
stop_service
