# The service comes onto a machine and lets through what its default configuration says, is brought
# up to date, gets out of the way in an emergency, and leaves nothing behind.

# run CODE ARGUMENT...: the executable's run, which is to end with this exit code.
run() {
  local wanted=$1 code=0
  shift
  kestrelon "$@" >"$machine_dir/out" 2>"$machine_dir/err" || code=$?
  tr -d '\r' <"$machine_dir/out" >"$machine_dir/service.out"
  tr -d '\r' <"$machine_dir/err" >>"$machine_dir/service.out"
  [ "$code" = "$wanted" ] || fail "KestrelonSvc $* ended with $code, expected $wanted"
}
printed() {
  grep -qF -- "$1" "$machine_dir/service.out" || fail "not printed: $1"
}
registered() {
  wine reg query 'HKLM\System\CurrentControlSet\Services\KestrelonSvc' /v "$1" \
    2>/dev/null >"$machine_dir/registry" || true
  grep -qF -- "$2" "$machine_dir/registry" || fail "the service's $1 is not: $2"
}
service_is() {
  wine sc query KestrelonSvc 2>/dev/null | grep -qF "$1"
}
stop_installed() {
  wine sc stop KestrelonSvc >/dev/null 2>&1
  wait_for 10 service_is STOPPED
}

# Whoever can write there may have been first: no library is loaded from beside the executable,
# though Wine is told to prefer those to its own, and the data directory doesn't stay open. (Not
# "version", which Wine's own user32 asks for.)
for library in bcrypt crypt32 fwpuclnt iphlpapi userenv winhttp wintrust wtsapi32; do
  cp "$1/tests/endtoend/libplanted_library.dll" "$drive_c/Program Files/Kestrelon/$library.dll"
  wine reg add 'HKCU\Software\Wine\AppDefaults\KestrelonSvc.exe\DllOverrides' /v $library \
    /d native,builtin /f >/dev/null 2>&1
done
mkdir -p "$data_dir"
chmod 777 "$data_dir"

run 0 --help
printed 'Kestrelon service 1.2.2'
printed '  --install          register and start the service'
run 1 --Install
printed '  --remove-filters   EMERGENCY: turn protection off and remove all filters'

connections() {
  cat <<'END'
# An unknown program, both ways, both families.
BLOCK --program C:\Tools\tool.exe --remote 203.0.113.5 --remote-port 443
BLOCK --program C:\Tools\tool.exe --remote 2001:db8::5 --remote-port 443
BLOCK --program C:\Tools\tool.exe --direction in --remote 2001:db8::5 --local-port 80
# DHCP, between its ports alone.
PERMIT --program C:\windows\system32\svchost.exe --protocol udp --remote 203.0.113.1 --remote-port 67 --local-port 68
PERMIT --program C:\windows\system32\svchost.exe --protocol udp --direction in --remote 203.0.113.1 --remote-port 67 --local-port 68
BLOCK --program C:\windows\system32\svchost.exe --protocol udp --remote 203.0.113.1 --remote-port 67 --local-port 69
# Time.
PERMIT --program C:\windows\system32\svchost.exe --protocol udp --remote 203.0.113.7 --remote-port 123
# Neighbour discovery by message type, for everybody.
PERMIT --program System --protocol icmpv6 --remote fe80::1 --local-port 135
PERMIT --program C:\Tools\tool.exe --protocol icmpv6 --direction in --remote 2001:db8::1 --local-port 136
BLOCK --program C:\Tools\tool.exe --protocol icmpv6 --remote 2001:db8::1 --local-port 128
# The local network for Windows itself.
PERMIT --program System --remote 192.168.1.10 --remote-port 445
PERMIT --program C:\windows\system32\svchost.exe --direction in --protocol udp --remote fe80::9 --local-port 5353
BLOCK --program System --remote 203.0.113.10 --remote-port 445
# Revocation checks.
PERMIT --program C:\windows\system32\lsass.exe --remote 203.0.113.80 --remote-port 80
BLOCK --program C:\windows\system32\lsass.exe --remote 203.0.113.80 --remote-port 443
# Loopback.
PERMIT --program C:\Tools\tool.exe --direction in --remote ::1 --local-port 8080
END
  [ -z "$dns" ] || cat <<END
# Names, from the servers of this machine.
PERMIT --program C:\\windows\\system32\\svchost.exe --protocol udp --remote $dns --remote-port 53
BLOCK --program C:\\windows\\system32\\svchost.exe --protocol udp --remote 203.0.113.53 --remote-port 53
BLOCK --program C:\\Tools\\tool.exe --protocol udp --remote $dns --remote-port 53
END
}
dns=$(sed -n 's/^nameserver \([0-9.]*\)$/\1/p' /etc/resolv.conf | head -n 1)
connections | take_connections
! verdicts_hold || fail 'the machine was protected before anything was installed'

run 0 --install
printed 'Kestrelon service installed and running.'
expect_logged 'Created default configuration (strict whitelist)'
expect_logged '(protection ON)'
expect_same_verdicts
registered DisplayName 'Kestrelon Firewall'
registered ImagePath '"C:\Program Files\Kestrelon\KestrelonSvc.exe"'
registered DependOnService BFE
registered Start 0x2
registered Description 'Kestrelon strict whitelist firewall. Blocks all inbound and outbound network traffic except explicitly allowed applications and rules.'
[ "$(stat -c %a "$data_dir")" = 775 ] || fail 'the data directory has no list'
ask '{"cmd":"status"}' || fail 'the installed service does not answer'
expect_reply '"boot_filter": true'

# Protection does not end with the process.
stop_installed
expect_same_verdicts

# A second time brings the record up to date, whatever became of it, and the service back.
wine reg add 'HKLM\System\CurrentControlSet\Services\KestrelonSvc' /v DisplayName /d 'Old name' /f \
  >/dev/null 2>&1
registered DisplayName 'Old name'
run 0 --install
printed 'Kestrelon service installed and running.'
registered DisplayName 'Kestrelon Firewall'

# The emergency way out works with a configuration that nobody can read; the service comes back
# with what it falls back to.
echo '{ damaged' | put_config
run 0 --remove-filters
printed 'Warning: could not update config.json: '
printed 'Protection is OFF: all Kestrelon filters were removed. Turn it back on in the Kestrelon app.'

# And with the service down. (Its manager would notice a death; Wine's doesn't, and is then waited
# for in vain.)
run 0 --install
stop_installed
run 0 --remove-filters
printed 'Protection is OFF'
expect_filters 0
config_has '"enabled": false'
! verdicts_hold || fail 'filters are in force after their removal'

run 0 --uninstall
printed 'Kestrelon service and all of its filters were removed (0 Windows Defender Firewall exception(s)).'
! wine sc query KestrelonSvc >/dev/null 2>&1 || fail 'the service is still registered'
expect_filters 0
# Nothing of the product's is left to name.
wfpctl delete-sublayer '{9D4E6A12-3B7F-4C21-8E95-A1C3F0B2D746}' && fail 'the sublayer was left'
grep -qF 'no such sublayer' "$machine_dir/wfpctl.err" || fail 'the sublayer may have been left'
wfpctl add-filter --provider '{6B2A1F30-7C4E-4D8A-9F13-2E5B8C71A0D4}' >/dev/null &&
  fail 'the provider was left'
grep -qF 'no such provider' "$machine_dir/wfpctl.err" || fail 'the provider may have been left'

run 0 --uninstall
[ ! -e "$drive_c/planted" ] || fail 'a library was loaded from beside the executable'
