# What the user's own entries and the switch of all do, on the real executable.
put_program Tools/tool.exe 'a tool'
put_program Tools/server.exe 'a server'
put_program Tools/game.exe 'a game'
put_config <<'END'
{
  "presets_version": 9,
  "apps": [
    {"path": "C:\\Tools\\tool.exe"},
    {"path": "C:\\Tools\\server.exe", "inbound": true},
    {"path": "C:\\Tools\\game.exe", "action": "block"}
  ],
  "rules": [
    {"name": "never", "action": "block", "direction": "both", "remote": "198.51.100.0/24, 2001:db8:bad::/48"},
    {"name": "four only", "action": "allow", "remote": "0.0.0.0/0", "remote_ports": "7000-7010"},
    {"name": "game too", "action": "allow", "app": "C:\\Tools\\game.exe"}
  ]
}
END
start_service
expect_verdicts <<'END'
PERMIT --program C:\Tools\tool.exe --remote 203.0.113.5 --remote-port 443
PERMIT --program c:\tools\TOOL.EXE --remote 2001:db8::5 --remote-port 443
BLOCK --program C:\Tools\tool.exe --direction in --remote 203.0.113.5 --local-port 80
PERMIT --program C:\Tools\server.exe --direction in --remote 203.0.113.5 --local-port 80
BLOCK --program C:\Tools\tool.exe --remote 198.51.100.9 --remote-port 443
BLOCK --program C:\Tools\server.exe --direction in --remote 2001:db8:bad::1 --local-port 80
BLOCK --program C:\Tools\game.exe --remote 203.0.113.5 --remote-port 443
PERMIT --program C:\Tools\unknown.exe --remote 203.0.113.5 --remote-port 7010
BLOCK --program C:\Tools\unknown.exe --remote 203.0.113.5 --remote-port 7011
BLOCK --program C:\Tools\unknown.exe --remote 2001:db8::5 --remote-port 7010
PERMIT --program C:\Tools\unknown.exe --remote 127.0.0.1 --remote-port 8080
END
stop_service

put_config <<'END'
{"presets_version": 9, "enabled": false}
END
start_service
expect_logged 'Filters applied: 0 (protection OFF)'
expect_filters 0
stop_service
