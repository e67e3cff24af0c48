# Blocklists on the real executable: downloaded over TLS from a server of ours that does everything
# wrong once, the copy that is installed beside the executable, and the cache.
. "$(dirname "${BASH_SOURCE[0]}")/../../simulation/feed/feed.sh"
feed=$machine_dir/feed
www=$feed/www/drop
url=https://localhost:28443/drop
installed="$drive_c/Program Files/Kestrelon/blocklists"
trap 'stop_feed; close_machine' EXIT
mkdir -p "$www" "$installed"

# A list in the feed's own form: $1 networks of 203.0.113.0/24, then what else is given.
feed_text() {
  local number network
  for number in $(seq "$1"); do printf '{"cidr":"203.0.113.%d/32","sblid":"SBL0"}\n' "$number"; done
  shift
  for network in "$@"; do printf '{"cidr":"%s","sblid":"SBL0"}\n' "$network"; done
  printf '{"type":"metadata","timestamp":1700000000,"size":1000}\n'
}

is_idle() {
  ask '{"cmd":"status"}'
  grep -qF '"blocklists_busy": false' "$reply"
}

# A forced refresh, to its end; the status behind it is in $reply.
refresh() {
  mark_log
  ask '{"cmd":"update_blocklists"}' || fail 'update_blocklists was refused'
  wait_for 30 is_idle
}

# The engine gives each filter that is applied a number of its own.
applied_filters() {
  wfpctl list | sha256sum
}

serve_good_list() {
  rm -rf "$www"
  mkdir -p "$www"
  feed_text 12 198.51.100.0/24 >"$www/drop_v4.json"
  # What would cut off the machine's own network or everything, if it were believed.
  feed_text 0 2001:db8:bad::/48 0.0.0.0/0 8.0.0.0/8 10.0.0.0/8 192.168.1.0/24 127.0.0.1 ::/0 \
    2000::/3 fe80::/10 ::1 >"$www/moved.json"
  printf '%s' "$url/moved.json" >"$www/drop_v6.json.redirect"
}

put_program Tools/server.exe 'allowed both ways'
put_config <<'END'
{"presets_version": 9, "blocklists": ["drop"], "blocklists_auto_update": true,
 "custom_blocklist": "192.0.2.64/26", "apps": [{"path": "C:\\Tools\\server.exe", "inbound": true}]}
END

# Before the first download the installed copy is in force, whatever the server says.
feed_text 0 198.51.100.0/25 >"$installed/drop_v4.json"
feed_text 0 2001:db8:bad::/48 >"$installed/drop_v6.json"
start_feed "$feed" 28443
trust_feed_authority "$feed" "$1/simulation/feed/trust_authority.exe"
printf 503 >"$www/drop_v4.json.status"
start_service
expect_logged "Blocklist 'drop': 2 entries (bundled)"
wait_for 30 is_logged "Blocklist 'drop' was not updated: $url/drop_v4.json: HTTP 503"
wait_for 5 is_idle
expect_reply "\"error\": \"$url/drop_v4.json: HTTP 503\""
expect_verdicts <<'END'
BLOCK --program C:\Tools\server.exe --remote 198.51.100.9 --remote-port 443
PERMIT --program C:\Tools\server.exe --remote 198.51.100.200 --remote-port 443
BLOCK --program C:\Tools\server.exe --direction in --remote 2001:db8:bad::9 --local-port 80
# The service may fetch its lists, and no more.
PERMIT --program "C:\Program Files\Kestrelon\KestrelonSvc.exe" --remote 203.0.113.200 --remote-port 443
BLOCK --program "C:\Program Files\Kestrelon\KestrelonSvc.exe" --remote 203.0.113.200 --remote-port 80
END

# A good list takes its place. Its second half has moved, and is poisoned.
serve_good_list
before=$(applied_filters)
refresh
expect_logged "Blocklist 'drop' downloaded: 14 entries"
expect_not_logged '(unchanged)'
expect_reply '"entries": 14'
expect_reply '"source": "download"'
! grep -qF '"error"' "$reply" || fail 'the good list left an error'
grep -qxF '/drop/moved.json 200 Kestrelon blocklist update' "$feed/requests" ||
  fail 'the redirect was not followed'
take_connections <<'END'
BLOCK --program C:\Tools\server.exe --remote 198.51.100.200 --remote-port 443
BLOCK --program C:\Tools\server.exe --direction in --remote 198.51.100.9 --local-port 80
BLOCK --program C:\Tools\server.exe --remote 203.0.113.12 --remote-port 443
BLOCK --program C:\Tools\server.exe --remote 2001:db8:bad::9 --remote-port 443
BLOCK --program C:\Tools\server.exe --remote 192.0.2.70 --remote-port 443
PERMIT --program C:\Tools\server.exe --remote 203.0.113.13 --remote-port 443
# Nothing of the poison has become a filter.
PERMIT --program C:\Tools\server.exe --remote 8.8.8.8 --remote-port 443
PERMIT --program C:\Tools\server.exe --remote 10.1.2.3 --remote-port 443
PERMIT --program C:\Tools\server.exe --direction in --remote 192.168.1.7 --local-port 80
PERMIT --program C:\Tools\server.exe --remote 127.0.0.1 --remote-port 8080
PERMIT --program C:\Tools\server.exe --remote 2001:db8::5 --remote-port 443
PERMIT --program C:\Tools\server.exe --remote fe80::5 --remote-port 443
PERMIT --program C:\Tools\server.exe --direction in --remote ::1 --local-port 8080
END
wait_for 10 verdicts_hold
[ "$(applied_filters)" != "$before" ] || fail 'the engine shows no new filters'

# The same list again, now of the largest size, which the server doesn't tell: nothing is applied.
before=$(applied_filters)
size=$(stat -c %s "$www/drop_v4.json")
{ printf '#'; head -c $((8 * 1024 * 1024 - size - 1)) /dev/zero | tr '\0' .; } >>"$www/drop_v4.json"
cp "$www/drop_v4.json" "$machine_dir/largest"
touch "$www/drop_v4.json.chunked"
refresh
expect_logged "Blocklist 'drop' downloaded: 14 entries (unchanged)"
sleep 1
[ "$(applied_filters)" = "$before" ] || fail 'an unchanged list was applied again'

# A bad download leaves the good list in force and its reason in the status.
expect_kept() {
  refresh
  expect_logged "Blocklist 'drop' was not updated: $1"
  expect_reply "\"error\": \"$1"
  expect_reply '"entries": 14'
  expect_same_verdicts
  cmp -s "$data_dir/blocklists/drop.txt" "$machine_dir/cache" || fail "the cache was touched: $1"
  serve_good_list
}
cp "$data_dir/blocklists/drop.txt" "$machine_dir/cache"

{ cat "$machine_dir/largest"; printf .; } >"$www/drop_v4.json"
expect_kept "$url/drop_v4.json: the list is too large"
rm "$www/drop_v4.json"
expect_kept "$url/drop_v4.json: HTTP 404"
printf 500 >"$www/drop_v6.json.status"
expect_kept "$url/drop_v6.json: HTTP 500"
few='usable entries - kept the previous one'
echo '<html><body>Please log in at 203.0.113.77</body></html>' >"$www/drop_v4.json"
expect_kept "the downloaded list has only 2 $few"
printf 100 >"$www/drop_v4.json.cut"
expect_kept "the downloaded list has only 3 $few"
stop_feed
expect_kept "$url/drop_v4.json: 0x00002EFD"  # cannot connect
start_feed "$feed" 28443 untrusted
expect_kept "$url/drop_v4.json: 0x00002F"  # a failure of the secure channel, each has its own number
[ "$(cat "$feed/requests")" = listening ] || fail 'a server that nobody trusts was asked for a list'

# The next start has the cache, and does not ask for a fresh list again.
stop_service
stop_feed
start_feed "$feed" 28443
rm "$feed/requests"
mark_log
start_service
expect_logged "Blocklist 'drop': 14 entries (download)"
wake_service
sleep 1
expect_same_verdicts
is_idle || fail 'a refresh is running'
[ ! -e "$feed/requests" ] || fail 'a fresh list was fetched again'
stop_service
