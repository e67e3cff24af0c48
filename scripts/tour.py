#!/usr/bin/env python3
"""Shows on a running machine what the service does: verdicts on eleven connections, then changes
through the pipe, tampering, a replaced program, a module and an update, each with what the service makes
of it, and what it has noted of the blocked ones.

    tour.py DRIVE_C WWW     the machine's drive C:, with wfpctl.exe and KestrelonPipe.exe in C:\\bench;
                            what the update server serves
"""

import json
import pathlib
import re
import subprocess
import sys
import time

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
    ("and so does a blocklist", BROWSER, "out", "tcp", "203.0.113.200", 443),
    ("a blocked application", GAME, "out", "udp", "203.0.113.9", 27015),
    ("a program nobody listed", UNKNOWN, "out", "tcp", "203.0.113.5", 443),
    ("the same, from outside", UNKNOWN, "in", "tcp", "203.0.113.5", 3389),
    ("the same, inside the machine", UNKNOWN, "out", "tcp", "127.0.0.1", 8080),
    ("Windows in the local network", SVCHOST, "out", "udp", "192.168.1.20", 5353),
    ("Windows anywhere else", SVCHOST, "out", "tcp", "203.0.113.5", 443),
]
# What the module asks for: the same port on both sides.
MODULE_IN = ("", r"C:\Program Files\Kestrelon\modules\lan-messages\KSMessages.exe", "in", "udp",
             "192.168.1.20", 53535)
BROWSER_OUT = CONNECTIONS[0]
UNKNOWN_OUT = CONNECTIONS[6]


def words(program, direction, protocol, remote, port):
    side = "--remote-port" if direction == "out" else f"--remote-port {port} --local-port"
    return (f'--program "{program}" --direction {direction} --protocol {protocol} '
            f"--remote {remote} {side} {port}")


class Machine:
    def __init__(self, drive_c, www):
        self.drive_c = drive_c
        self.www = www
        self.log = drive_c / "ProgramData/Kestrelon/service.log"

    def run(self, program, *arguments, text=""):
        """The output of a program of the bench."""
        done = subprocess.run(["wine", rf"C:\bench\{program}.exe", *arguments], input=text.encode(),
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=False)
        return done.stdout.decode("utf-8").replace("\r\n", "\n")

    def verdicts(self, connections):
        """The engine's answers, one (verdict, filter) for each connection."""
        lines = [words(*connection[1:]) for connection in connections]
        (self.drive_c / "tour").write_text("\n".join(lines) + "\n", encoding="utf-8")
        found = []
        for line in self.run("wfpctl", "batch", r"C:\tour").splitlines():
            match = re.match(r"(PERMIT|BLOCK)\b.*?\bfilter=(.*)", line)
            if not match:
                sys.exit(f"The engine gave no verdict: {line}")
            found.append((match.group(1), match.group(2).strip().strip('"')))
        if len(found) != len(connections):
            sys.exit("The engine did not answer for every connection.")
        return found

    def request(self, **request):
        reply = json.loads(self.run("KestrelonPipe", text=json.dumps(request)))
        if not reply["ok"]:
            sys.exit(f"The service refused: {reply['error']}")
        return reply

    def follow(self, path):
        """Starts to take the events from here on into a file."""
        with open(path, "wb") as output:
            return subprocess.Popen(["wine", r"C:\bench\KestrelonPipe.exe", "--follow"],
                                    stdout=output, stderr=subprocess.DEVNULL)

    def wait_for_log(self, text, mark):
        for _ in range(200):
            if text in self.log.read_text(encoding="utf-8")[mark:]:
                time.sleep(0.3)  # for the viewer that prints it
                return
            time.sleep(0.1)
        sys.exit(f"The service did not log: {text}")

    def wait_for_verdict(self, wanted, connection):
        for _ in range(100):
            if self.verdicts([connection])[0][0] == wanted:
                return
            time.sleep(0.1)
        sys.exit(f"The verdict did not become {wanted}.")

    def mark(self):
        return len(self.log.read_text(encoding="utf-8"))


def address_text(protocol, remote, port):
    return f"{protocol} [{remote}]:{port}" if ":" in remote else f"{protocol} {remote}:{port}"


def filter_text(name):
    return name.removeprefix("Kestrelon - ")


def show_table(machine, connections):
    rows = [("", "Program", "Direction", "Address", "Verdict", "Deciding filter")]
    for connection, (verdict, decided_by) in zip(connections, machine.verdicts(connections)):
        point, program, direction, protocol, remote, port = connection
        rows.append((point, program.rsplit("\\", 1)[-1], direction,
                     address_text(protocol, remote, port), verdict, filter_text(decided_by)))
    widths = [max(len(row[i]) for row in rows) for i in range(len(rows[0]))]
    for row in rows:
        print("  ".join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip(), flush=True)


def show(machine, connection):
    """One connection's verdict on a line."""
    _, program, direction, protocol, remote, port = connection
    [(verdict, decided_by)] = machine.verdicts([connection])
    print(f"{program} {direction} {address_text(protocol, remote, port)}: {verdict} "
          f"by {filter_text(decided_by)}", flush=True)


def title(text):
    print(f"\n== {text}", flush=True)


def change_configuration(machine):
    title("A client blocks the browser through the pipe, and allows it again")
    config = machine.request(cmd="get_config")["config"]
    browser = next(app for app in config["apps"] if app["path"] == BROWSER)
    for action in ("block", "allow"):
        browser["action"] = action
        status = machine.request(cmd="set_config", config=config)
        time.sleep(0.3)
        print(f'set_config: {status["filters"]} filters, last error "{status["last_error"]}"')
        show(machine, BROWSER_OUT)


def tamper(machine):
    title("Somebody with the system's rights deletes the filter that blocks everything else")
    mark = machine.mark()
    key = next(line.split()[0] for line in machine.run("wfpctl", "list").splitlines()
               if line.endswith("Kestrelon - Block all outbound") and " connect-v4 " in line)
    machine.run("wfpctl", "delete-filter", key)
    machine.wait_for_log("Kestrelon filters were modified externally", mark)
    machine.wait_for_verdict("BLOCK", UNKNOWN_OUT)
    show(machine, UNKNOWN_OUT)


def replace_program(machine):
    title("The browser's file is replaced behind its permission, and put back")
    program = machine.drive_c / "Tools/browser.exe"
    genuine = program.read_bytes()
    mark = machine.mark()
    program.write_bytes(b"something else")
    machine.wait_for_log("Warning: Kept blocked: ", mark)
    machine.wait_for_verdict("BLOCK", BROWSER_OUT)
    show(machine, BROWSER_OUT)
    program.write_bytes(genuine)
    machine.wait_for_verdict("PERMIT", BROWSER_OUT)
    show(machine, BROWSER_OUT)


def approve_module(machine):
    title("An add-on program is approved with all that it asks for, and turned off again")
    module = machine.request(cmd="get_modules")["modules"][0]
    print(f'{module["name"]} by {module["publisher"]}, {module["path"]}: {module["grant"]}')
    show(machine, MODULE_IN)
    for enabled, verdict in ((True, "PERMIT"), (False, "BLOCK")):
        machine.request(cmd="set_module", id=module["id"], enabled=enabled, grant=module["grant"])
        machine.wait_for_verdict(verdict, MODULE_IN)
        show(machine, MODULE_IN)


def look_for_update(machine):
    title("An update is looked for, and once more when somebody has changed what its vendor signed")
    manifest = machine.www / "update/latest.json"
    signed = manifest.read_bytes()
    for text in (signed, signed.replace(b"49", b"50")):
        manifest.write_bytes(text)
        mark = machine.mark()
        machine.request(cmd="check_update")
        machine.wait_for_log("Update check ", mark)
        update = machine.request(cmd="status")["update"]
        print(f'{update["state"]}: {update.get("error", update["latest"]["version"])}')
    manifest.write_bytes(signed)


def show_blocked(machine):
    title("What was blocked, as a client sees it")
    for event in machine.request(cmd="get_log")["events"]:
        port = event["local_port"] if event["dir"] == "in" else event["remote_port"]
        reason = event["reason"] + (f": {event['rule']}" if "rule" in event else "")
        print(f'{event["count"]}x {event["app"] or "System"} {event["dir"]} '
              f'{event["remote_addr"]} port {port} ({reason})', flush=True)


def main():
    machine = Machine(*map(pathlib.Path, sys.argv[1:]))
    machine.wait_for_log("Blocklist 'drop' downloaded: ", 0)
    machine.wait_for_verdict("BLOCK", CONNECTIONS[4])
    title("Eleven connections")
    show_table(machine, CONNECTIONS)
    events = machine.drive_c / "events"
    follower = machine.follow(events)
    change_configuration(machine)
    tamper(machine)
    replace_program(machine)
    approve_module(machine)
    look_for_update(machine)
    show_blocked(machine)
    title("What a subscriber read meanwhile")
    print(events.read_text(encoding="utf-8").strip(), flush=True)
    follower.terminate()


if __name__ == "__main__":
    main()
