# An update of the installed service, from the check to the start of the next build: first with an
# installer that fails, then with one that replaces the service's executable.
. "$(dirname "${BASH_SOURCE[0]}")/updates.sh"
trap 'stop_feed; close_machine' EXIT

service_is() {
  wine sc query KestrelonSvc 2>/dev/null | grep -qF "$1"
}
# The service is down for a moment, and then another one.
next_build_answers() {
  ask '{"cmd":"status"}' && grep -qF '"build": "49"' "$reply"
}
expect_run() {
  local line
  line='"C:\ProgramData\Kestrelon\update\Kestrelon-1.2.3.exe" /VERYSILENT /SUPPRESSMSGBOXES'
  line="$line /NORESTART /NOCANCEL /LANG=$2 /LOG=\"C:\\ProgramData\\Kestrelon\\update\\install.log\""
  wait_for 20 has_run "$1"
  [ "$(tail -n 1 "$runs")" = "$line" ] || fail "the installer's command line: $(tail -n 1 "$runs")"
}
expect_way_out() {
  expect_verdicts <<END
$1 --program "C:\\Program Files\\Kestrelon\\KestrelonSvc.exe" --remote 203.0.113.200 --remote-port 443
BLOCK --program "C:\\Program Files\\Kestrelon\\KestrelonSvc.exe" --remote 203.0.113.200 --remote-port 80
BLOCK --program C:\\Tools\\tool.exe --direction in --remote 203.0.113.200 --local-port 443
PERMIT --program C:\\Tools\\tool.exe --remote 203.0.113.200 --remote-port 443
END
}

put_program Tools/tool.exe 'a tool'
put_config <<'END'
{"presets_version": 9, "blocklists": [], "updates_auto_check": false, "apps": [{"path": "C:\\Tools\\tool.exe"}]}
END
open_update_server "$1"
publish_installer
publish_manifest
hash=$(sha256sum "$published" | cut -d ' ' -f 1)
ln -s "$data_dir/service.log" "$machine_dir/service.out"
kestrelon --install >"$machine_dir/out" 2>&1 || fail "not installed: $(cat "$machine_dir/out")"
expect_update '"state": "idle"' '"auto": false' '"channel": "stable"' '"last_check": 0'
expect_way_out BLOCK
! start_install sk || fail 'an update was installed that nobody has found'
expect_reply 'no update is available'

check_update
expect_logged 'Update check (stable, manual): latest 1.2.3 build 49 - available'
expect_update '"state": "available"' '"version": "1.2.3"' '"build": 49' '"date": "2026-11-21"' \
  '"notes_sk": "Rýchlejší štart"' '"notes_en": "Starts faster"'
last_check=$(grep -o '"last_check": [1-9][0-9]*' "$reply") || fail 'the check has no time'
expect_stored 'LastCheck +REG_QWORD .*'
grep -qxF '/update/latest.json.sig 200 Kestrelon-Update no-cache' "$feed/requests" || fail 'not so requested'

# Half of the installer has come: the service has its way out, for this while only.
echo 3 >"$drive_c/next/exit"
touch "$published.held"
start_install 'SK;calc' || fail 'install_update was refused'
half_has_come() {
  update_is downloading && grep -qE '"progress": (4[0-9]|50)' "$reply"
}
wait_for 20 half_has_come
expect_way_out PERMIT
! start_install sk || fail 'two installations at once'
expect_reply 'an update check or download is already running'
has_run 0 || fail 'half an installer was run'
rm "$published.held"

# The installer fails and leaves the service as it was, which learns of it.
wait_for 20 is_logged "Installing update 1.2.3 build 49 (verified: SHA-256 $hash, signed by $publisher)"
expect_run 1 skcalc
cmp -s "$update_dir/KestrelonSvc-update.exe" "$drive_c/Program Files/Kestrelon/KestrelonSvc.exe" ||
  fail 'the helper is not a copy of the service'
grep -qF 'ends with 3' "$update_dir/install.log" || fail 'the installer has no log'
wait_for 20 woken_until 'Update to 1.2.3 FAILED: the installer ended with code 3'
expect_update '"state": "error"' '"result": "failed"' '"detail": "the installer ended with code 3"' \
  '"error": "the update to 1.2.3 was not installed: the installer ended with code 3"'
expect_stored 'LastInstallResult +REG_SZ +failed'
expect_not_stored PendingBuild PendingVersion PendingTime PendingSession HelperExit
expect_way_out BLOCK

# The same update again, now to its end.
rm "$drive_c/next/exit"
install_update sk
expect_run 2 sk
wait_for 30 next_build_answers
expect_logged 'Kestrelon service stopping (filters stay active)'
expect_logged 'Kestrelon service 1.2.3 (49) starting'
expect_logged 'Update to 1.2.3 installed'
grep -qF 'update installed: Kestrelon 1.2.3' "$data_dir/activity.log" || fail 'not in the activity log'
grep -qF 'ends with 0' "$update_dir/install.log" || fail "the last installer's log is gone"
[ ! -e "$update_dir/Kestrelon-1.2.3.exe" ] || fail 'the installer was left'
service_is RUNNING || fail 'the service manager does not know that the service runs'
expect_update '"state": "idle"' "$last_check" '"version": "1.2.3"' '"result": "ok"' '"detail": ""'
expect_stored 'LastInstallVersion +REG_SZ +1.2.3' 'LastInstallResult +REG_SZ +ok'
expect_not_stored PendingBuild PendingVersion PendingTime PendingSession HelperExit
expect_way_out BLOCK
check_update
expect_logged 'Update check (stable, manual): latest 1.2.3 build 49 - this version is up to date'

# The helper runs nothing for others: not the vendor's own installer from another place. It leaves a
# service that runs.
cp "$published" "$drive_c/Tools/setup.exe"
wine sc stop KestrelonSvc >/dev/null 2>&1
wait_for 10 service_is STOPPED
code=0
kestrelon --apply-update 'C:\Tools\setup.exe' sk || code=$?
[ "$code" -eq $((9001 & 255)) ] || fail "the helper ended with $code"
expect_stored 'HelperExit +REG_DWORD +0x2329'
wait_for 10 next_build_answers
has_run 2 || fail 'the helper ran an installer from another place'
