# Updates of the product on the machine under Wine: the update server, what lies on it, and what a
# client asks for. To be sourced.
#
#   open_update_server BUILD      the server, trusted by the machine; it serves what lies in $www
#   publish_installer [NAME]      the tests' installer, signed by the publisher or by this one
#   publish_manifest [KEY [EDIT]] of the installer that is published: version 1.2.3, build 49, or what
#                                 sed makes of it; signed with a key of this id
#   check_update                  to its end, well or not; the status behind it is in $reply
#   start_install LANGUAGE, install_update
#                                 a request; the same until the helper is started, or it is refused and
#                                 the status behind it is in $reply
#   update_is STATE               whether that is the state; the status is left in $reply
#   has_run NUMBER                whether the installer was started so often
#   expect_update TEXT...         what the status says
#   expect_stored VALUE..., expect_not_stored NAME...
#                                 what the registry holds of updates, as reg.exe prints it (grep -E)
tests=$(dirname "${BASH_SOURCE[0]}")/..
. "$tests/../simulation/feed/feed.sh"

publisher='TARGON HELVERIK Ltd. Co.'
update_base=https://localhost:28444
update_dir=$data_dir/update
feed=$machine_dir/feed
www=$feed/www
published=$www/update/Kestrelon-1.2.3.exe
runs=$drive_c/next/runs

open_update_server() {
  test_installer=$1/tests/endtoend/test_installer.exe
  mkdir -p "$www/update/test" "$drive_c/next"
  cp "$1/tests/endtoend/KestrelonSvc_next.exe" "$drive_c/next/KestrelonSvc.exe"
  start_feed "$feed" 28444
  trust_feed_authority "$feed" "$1/simulation/feed/trust_authority.exe"
}

publish_installer() {
  local signer=${1:-$publisher}
  "$tests/wine/make_signer.sh" "$machine_dir/$signer" "$signer" "$test_installer" "$published" \
    >"$machine_dir/signing" 2>&1 || fail "not signed: $(cat "$machine_dir/signing")"
}

publish_manifest() {
  local manifest=$www/update/latest.json
  sed "${2:-}" >"$manifest" <<END
{"format":1, "product":"Kestrelon", "channel":"stable", "version":"1.2.3", "build":49,
 "date":"2026-11-21", "url":"$update_base/update/$(basename "$published")",
 "size":$(stat -c %s "$published"), "sha256":"$(sha256sum "$published" | cut -d ' ' -f 1)",
 "notes_sk":"Rýchlejší štart", "notes_en":"Starts faster"}
END
  "$tests/updates/sign_manifest.sh" "${1:-kestrelon-update}" "$manifest" >"$manifest.sig"
}

status() {
  ask '{"cmd":"status"}' || fail 'the status was refused'
}

update_is() {
  status
  grep -qF "\"state\": \"$1\"" "$reply"
}

check_ended() {
  is_logged 'Update check ' && ! update_is checking
}

check_update() {
  mark_log
  ask '{"cmd":"check_update"}' || fail 'check_update was refused'
  wait_for 20 check_ended
}

start_install() {
  mark_log
  ask "{\"cmd\":\"install_update\",\"session\":-1,\"lang\":\"$1\"}"
}

install_ended() {
  is_logged 'Installing update ' || { is_logged ' NOT installed: ' && update_is error; }
}

install_update() {
  start_install "$1" || fail 'install_update was refused'
  wait_for 20 install_ended
}

has_run() {
  [ "$(wc -l 2>/dev/null <"$runs" || echo 0)" -eq "$1" ]
}

expect_update() {
  local text
  status
  for text in "$@"; do expect_reply "$text"; done
}

read_stored() {
  wine reg query 'HKLM\Software\Kestrelon\Update' >"$machine_dir/registry" 2>/dev/null ||
    fail 'the registry holds nothing of updates'
  sed -i 's/\r$//' "$machine_dir/registry"
}

expect_stored() {
  local value
  read_stored
  for value in "$@"; do
    grep -qE -- "^ +$value$" "$machine_dir/registry" || fail "the registry does not hold: $value"
  done
}

expect_not_stored() {
  local name
  read_stored
  for name in "$@"; do
    ! grep -E -- "^ +$name " "$machine_dir/registry" >&2 || fail "the registry holds $name"
  done
}
