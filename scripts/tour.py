#!/usr/bin/env python3
"""Puts ten connections to the engine of a running machine and prints the verdicts as a table.

    tour.py DRIVE_C     the machine's drive C:, with wfpctl.exe in its bench folder
"""

import pathlib
import re
import subprocess
import sys

SVCHOST = r"C:\windows\system32\svchost.exe"
BROWSER = r"C:\Tools\browser.exe"
GAME = r"C:\Tools\game.exe"
UNKNOWN = r"C:\Tools\unknown.exe"

# What the row shows: the point, program, direction, protocol, remote address, port.
CONNECTIONS = [
    ("an allowed application goes out", BROWSER, "out", "tcp", "203.0.113.5", 443),
    ("and on IPv6", BROWSER, "out", "tcp", "2001:db8::5", 443),
    ("but nothing comes in for it", BROWSER, "in", "tcp", "203.0.113.5", 8080),
    ("a block rule beats the permission", BROWSER, "out", "tcp", "198.51.100.7", 443),
    ("a blocked application", GAME, "out", "udp", "203.0.113.9", 27015),
    ("a program nobody listed", UNKNOWN, "out", "tcp", "203.0.113.5", 443),
    ("the same, from outside", UNKNOWN, "in", "tcp", "203.0.113.5", 3389),
    ("the same, inside the machine", UNKNOWN, "out", "tcp", "127.0.0.1", 8080),
    ("Windows in the local network", SVCHOST, "out", "udp", "192.168.1.20", 5353),
    ("Windows anywhere else", SVCHOST, "out", "tcp", "203.0.113.5", 443),
]


def words(program, direction, protocol, remote, port):
    side = "--remote-port" if direction == "out" else "--local-port"
    return (f"--program {program} --direction {direction} --protocol {protocol} "
            f"--remote {remote} {side} {port}")


def ask(drive_c):
    """The engine's answers, one (verdict, filter) for each connection."""
    lines = [words(*connection[1:]) for connection in CONNECTIONS]
    (drive_c / "tour").write_text("\n".join(lines) + "\n", encoding="utf-8")
    answer = subprocess.run(["wine", r"C:\bench\wfpctl.exe", "batch", r"C:\tour"],
                            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=False)
    found = []
    for line in answer.stdout.decode("utf-8").splitlines():
        match = re.match(r"(PERMIT|BLOCK)\b.*?\bfilter=(.*)", line)
        if not match:
            sys.exit(f"The engine gave no verdict: {line}")
        found.append((match.group(1), match.group(2).strip().strip('"')))
    if len(found) != len(CONNECTIONS):
        sys.exit("The engine did not answer for every connection.")
    return found


def main():
    rows = [("", "Program", "Direction", "Address", "Verdict", "Deciding filter")]
    for connection, (verdict, decided_by) in zip(CONNECTIONS, ask(pathlib.Path(sys.argv[1]))):
        point, program, direction, protocol, remote, port = connection
        address = f"[{remote}]:{port}" if ":" in remote else f"{remote}:{port}"
        rows.append((point, program.rsplit("\\", 1)[-1], direction, f"{protocol} {address}",
                     verdict, decided_by.removeprefix("Kestrelon - ")))
    widths = [max(len(row[i]) for row in rows) for i in range(len(rows[0]))]
    for row in rows:
        print("  ".join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip())


if __name__ == "__main__":
    main()
