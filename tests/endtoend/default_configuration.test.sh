# What a fresh installation lets through and what not, on the real executable.
start_service
expect_logged 'Created default configuration (strict whitelist)'
expect_logged '(protection ON)'

dns=$(sed -n 's/^nameserver \([0-9.]*\)$/\1/p' /etc/resolv.conf | head -n 1)
if [ -n "$dns" ]; then
  expect_verdicts <<END
PERMIT --program C:\\windows\\system32\\svchost.exe --protocol udp --remote $dns --remote-port 53
BLOCK --program C:\\windows\\system32\\svchost.exe --protocol udp --remote 203.0.113.53 --remote-port 53
BLOCK --program C:\\Tools\\tool.exe --protocol udp --remote $dns --remote-port 53
END
fi

expect_verdicts <<'END'
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

stop_service
# Protection does not end with the process, nor with the engine's.
expect_same_verdicts
wine sc stop BFE >/dev/null 2>&1
sleep 1
wine sc start BFE >/dev/null 2>&1
wait_for_engine
expect_same_verdicts
