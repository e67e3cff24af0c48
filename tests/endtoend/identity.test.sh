# Programs are held to what was recorded for them; the signatures are real ones, made just now.
signer=$machine_dir/signer
wine_tests=$(dirname "${BASH_SOURCE[0]}")/../wine
cp "$drive_c/bench/BFE.exe" "$machine_dir/unsigned.exe"
"$wine_tests/make_signer.sh" "$signer" 'Example Publisher' \
  "$machine_dir/unsigned.exe" "$drive_c/Tools/browser.exe" >/dev/null 2>&1
put_program Tools/tool.exe 'first version'

put_config <<'END'
{"presets_version": 9, "apps": [{"path": "C:\\Tools\\tool.exe"}, {"path": "C:\\Tools\\browser.exe"}]}
END
start_service
expect_verdicts <<'END'
PERMIT --program C:\Tools\tool.exe --remote 203.0.113.5 --remote-port 443
PERMIT --program C:\Tools\browser.exe --remote 203.0.113.5 --remote-port 443
END
# The unsigned program was learnt by its hash, the signed one by its signer.
config_has "$(sha256sum "$drive_c/Tools/tool.exe" | cut -d ' ' -f 1)"
config_has '"signer": "Example Publisher"'
stop_service

put_program Tools/tool.exe 'replaced behind the rule'
rm "$drive_c/Tools/browser.exe"
"$wine_tests/make_signer.sh" "$signer.other" 'Somebody Else' \
  "$machine_dir/unsigned.exe" "$drive_c/Tools/browser.exe" >/dev/null 2>&1
start_service
expect_logged 'Warning: Kept blocked: C:\Tools\tool.exe has changed since it was allowed (unsigned program)'
expect_logged 'Warning: Kept blocked: C:\Tools\browser.exe is no longer signed by "Example Publisher" (signed by "Somebody Else")'
expect_verdicts <<'END'
BLOCK --program C:\Tools\tool.exe --remote 203.0.113.5 --remote-port 443
BLOCK --program C:\Tools\tool.exe --remote 127.0.0.1 --remote-port 8080
BLOCK --program C:\Tools\browser.exe --remote 203.0.113.5 --remote-port 443
BLOCK --program C:\Tools\browser.exe --direction in --remote ::1 --local-port 8080
END
stop_service

# A new version by the same signer, and the first content again, are let through.
put_program Tools/tool.exe 'first version'
rm "$drive_c/Tools/browser.exe"
cp "$drive_c/bench/wfpctl.exe" "$machine_dir/unsigned.exe"
"$wine_tests/make_signer.sh" "$signer" 'Example Publisher' \
  "$machine_dir/unsigned.exe" "$drive_c/Tools/browser.exe" >/dev/null 2>&1
start_service
expect_verdicts <<'END'
PERMIT --program C:\Tools\tool.exe --remote 203.0.113.5 --remote-port 443
PERMIT --program C:\Tools\browser.exe --remote 203.0.113.5 --remote-port 443
END
stop_service

# A signed file with a changed byte is no longer signed.
printf 'X' | dd of="$drive_c/Tools/browser.exe" bs=1 seek=4096 conv=notrunc 2>/dev/null
start_service
expect_logged 'Warning: Kept blocked: C:\Tools\browser.exe is no longer signed by "Example Publisher" (unsigned)'
expect_verdicts <<'END'
BLOCK --program C:\Tools\browser.exe --remote 203.0.113.5 --remote-port 443
END
stop_service
