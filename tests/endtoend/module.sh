# The tests' module on the machine under Wine, and what a client asks about it. To be sourced.
#
#   put_module BUILD             where the product looks for it; the build is to be pinned to it
#   set_module true|false TEXT   turns it on or off, by a request with these members besides
#   approve_module               turns it on as it is shown
#   expect_module TEXT...        what it is shown with
#   expect_starts NUMBER         how often it was started so far; to be called before it is told things
#   tell ORDER TEXT              an order to the running one (test_module.cpp), and its whole answer
#   expect_module_open, expect_module_shut
#                                what the engine says of the port that it asks for

module_path='C:\Program Files\Kestrelon\modules\lan-messages\KSMessages.exe'
module_file="$drive_c/Program Files/Kestrelon/modules/lan-messages/KSMessages.exe"
orders=$drive_c/module/orders
answers=$drive_c/module/answers

put_module() {
  local module=$1/tests/endtoend/module/KSMessages.exe
  grep -qF "$(sha256sum "$module" | cut -d ' ' -f 1)" "$1/generated/deployment.h" ||
    fail "the build does not know the tests' module: tests/endtoend/pin_module.sh $1"
  mkdir -p "$(dirname "$module_file")" "$drive_c/module"
  cp --remove-destination "$module" "$module_file"
  : >>"$orders"
  : >>"$answers"
}

set_module() {
  ask "{\"cmd\":\"set_module\",\"id\":\"lan-messages\",\"enabled\":$1,$2}"
}

show_module() {
  ask '{"cmd":"get_modules"}' || fail 'get_modules was refused'
}

approve_module() {
  show_module
  set_module true "$(sed -n 's/^ *\("grant": ".*"\),.*/\1/p' "$reply")" || fail 'the approval was refused'
}

expect_module() {
  local text
  show_module
  for text in "$@"; do expect_reply "$text"; done
}

has_answers() {
  [ "$(wc -l <"$answers")" -eq "$1" ]
}

tell() {
  local before answer
  before=$(wc -l <"$answers")
  printf '%s\n' "$1" >>"$orders"
  wait_for 10 has_answers $((before + 1))
  answer=$(tail -n 1 "$answers")
  [ "$answer" = "$2" ] || fail "the module's answer to $1: expected $2, found $answer"
}

has_started() {
  [ "$(grep -cx 'started --from-service' "$answers" || true)" = "$1" ]
}

# A new process takes a moment until it says so.
expect_starts() {
  wait_for 10 has_started "$1"
}

expect_module_open() {
  expect_verdicts <<END
PERMIT --program "$module_path" --direction in --protocol udp --remote 192.168.1.9 --remote-port 53535 --local-port 53535
PERMIT --program "$module_path" --direction in --protocol udp --remote fe80::9 --remote-port 53535 --local-port 53535
BLOCK --program "$module_path" --direction in --protocol udp --remote 203.0.113.5 --remote-port 53535 --local-port 53535
BLOCK --program "$module_path" --direction in --protocol udp --remote 192.168.1.9 --remote-port 53535 --local-port 53536
BLOCK --program "$module_path" --direction in --protocol tcp --remote 192.168.1.9 --remote-port 53535 --local-port 53535
BLOCK --program "$module_path" --protocol udp --remote 192.168.1.9 --remote-port 53535 --local-port 53535
BLOCK --program C:\Tools\KSMessages.exe --direction in --protocol udp --remote 192.168.1.9 --remote-port 53535 --local-port 53535
END
}

expect_module_shut() {
  expect_verdicts <<END
BLOCK --program "$module_path" --direction in --protocol udp --remote 192.168.1.9 --remote-port 53535 --local-port 53535
BLOCK --program "$module_path" --direction in --protocol udp --remote fe80::9 --remote-port 53535 --local-port 53535
END
}
