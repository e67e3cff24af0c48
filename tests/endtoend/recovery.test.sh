# A damaged or deleted configuration fails towards blocking, on the real executable.
put_program Tools/tool.exe 'a tool'
put_config <<'END'
{"presets_version": 9, "apps": [{"path": "C:\\Tools\\tool.exe"}]}
END
start_service
stop_service

echo '{ damaged' | put_config
start_service
expect_logged 'Configuration is unreadable (invalid JSON in C:\ProgramData\Kestrelon\config.json: expected object key) - moving it to config.json.bad'
expect_logged 'Configuration restored from the last working copy'
grep -q damaged "$data_dir/config.json.bad" || fail 'the damaged file was not kept'
expect_verdicts <<'END'
PERMIT --program C:\Tools\tool.exe --remote 203.0.113.5 --remote-port 443
BLOCK --program C:\Tools\other.exe --remote 203.0.113.5 --remote-port 443
END
stop_service

rm "$data_dir/config.json" "$data_dir/config.json.lastgood"
start_service
expect_logged 'Configuration file is missing although it existed before'
expect_logged 'Strict fallback: all traffic blocked except loopback'
expect_verdicts <<'END'
BLOCK --program C:\Tools\tool.exe --remote 203.0.113.5 --remote-port 443
BLOCK --program C:\windows\system32\svchost.exe --protocol udp --remote 203.0.113.7 --remote-port 123
BLOCK --program System --remote 192.168.1.10 --remote-port 445
PERMIT --program C:\Tools\tool.exe --remote 127.0.0.1 --remote-port 8080
END
stop_service

# Settled: the next start reads the strict configuration as any other.
start_service
stop_service
