# Updates that are not what the vendor published: each is refused with its reason, and nothing is run.
. "$(dirname "${BASH_SOURCE[0]}")/updates.sh"
trap 'stop_feed; close_machine' EXIT
latest=$www/update/latest.json

expect_check_refused() {
  check_update
  expect_logged "Update check failed (${channel:-stable}): $1"
  expect_reply "\"error\": \"$1"
  publish_manifest
}
expect_install_refused() {
  install_update sk
  expect_logged "Update to ${2:-1.2.3 build 49} NOT installed: $1"
  expect_reply "\"error\": \"$1\""
  expect_reply '"latest": {'
  [ -z "$(ls "$update_dir")" ] || fail "left after a refusal: $(ls "$update_dir")"
  has_run 0 || fail "the installer was run: $1"
}
# What is published is found and accepted.
check_finds() {
  publish_manifest "$@"
  check_update
  expect_logged "Update check (stable, manual): latest "
}

put_program Tools/tool.exe 'a tool'
put_config <<'END'
{"presets_version": 9, "blocklists": [], "apps": [{"path": "C:\\Tools\\tool.exe"}]}
END
open_update_server "$1"
publish_installer
start_service

# Manifests.
check_finds kestrelon-update s/49/48/
expect_update '"state": "idle"'
! grep -qF '"latest"' "$reply" || fail 'the build that runs is offered as an update'
publish_manifest
echo >>"$latest"
expect_check_refused 'the manifest signature is not valid'
rm "$latest.sig"
expect_check_refused 'HTTP 404'
printf '%s/update/moved.json' "$update_base" >"$latest.redirect"
cp "$latest" "$www/update/moved.json"
expect_check_refused 'HTTP 302'
! grep -q moved "$feed/requests" || fail 'a redirect was followed'
rm "$latest.redirect"
printf 100 >"$latest.cut"
expect_check_refused 'the download was cut off'
rm "$latest.cut"
head -c 65537 /dev/zero >"$latest"
touch "$latest.chunked"
expect_check_refused 'the file is larger than expected'
rm "$latest.chunked"
wine reg add 'HKLM\Software\Kestrelon' /v UpdateChannel /d test /f >/dev/null 2>&1
cp "$latest" "$latest.sig" "$www/update/test/"
channel=test expect_check_refused 'the manifest is for another channel (stable)'
wine reg delete 'HKLM\Software\Kestrelon' /v UpdateChannel /f >/dev/null 2>&1
stop_feed
start_feed "$feed" 28444 untrusted
expect_check_refused 'network error'
[ "$(cat "$feed/requests")" = listening ] || fail 'a server that nobody trusts was asked for an update'
stop_feed
start_feed "$feed" 28444

# Installers. The backup key is as good as the first.
check_finds kestrelon-update-backup
cp "$published" "$machine_dir/good"
printf '%s/moved.exe' "$update_base" >"$published.redirect"
expect_install_refused 'download failed: HTTP 302'
rm "$published.redirect"
printf 100000 >"$published.cut"
expect_install_refused 'download failed: the download was cut off'
rm "$published.cut"
echo >>"$published"
expect_install_refused 'download failed: the file is larger than expected'
{ head -c -1 "$machine_dir/good"; printf x; } >"$published"
expect_install_refused 'the downloaded file does not match the signed list of versions (SHA-256)'
cp "$test_installer" "$published"
check_finds
expect_install_refused "the installer has no valid digital signature of $publisher"
publish_installer 'Somebody Else Ltd.'
check_finds
expect_install_refused "the installer is signed by Somebody Else Ltd., not by $publisher"
cp "$machine_dir/good" "$published"
check_finds kestrelon-update 's/"build":49/"build":50/'
expect_install_refused 'the installer is not version 1.2.3 (build 50)' '1.2.3 build 50'
expect_not_stored PendingBuild LastInstallResult
stop_service
