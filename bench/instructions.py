#!/usr/bin/env python3
"""Counts the instructions of the hot paths with callgrind and prints them as a section of
docs/performance.md.

    instructions.py PROGRAM                  PROGRAM: bench/instructions of the native build
    instructions.py PROGRAM --check PAGE     fails when a path has grown by more than a quarter
                                             since the page was written

A count does not depend on what else the machine does. It does, a little, on compiler and library;
that and small changes of the code stay below the quarter.
"""
import pathlib
import re
import subprocess
import sys
import tempfile

MOST_GROWTH = 1.25
COUNTED = "kestrelon::Counted(std::function<void ()> const&)"
HEAD = """
## Instructions

One piece of work each, counted by callgrind: what a machine does beside it changes nothing. The
native tests compare them with this table; more than a quarter above it fails.

| Path | One piece of work | Instructions |
|---|---|---|"""


def count(program):
    """Name, description and instructions of each path, in the order in which they ran."""
    with tempfile.TemporaryDirectory() as directory:
        out = pathlib.Path(directory, "callgrind.out")
        run = subprocess.run(
            ["valgrind", "--tool=callgrind", f"--toggle-collect={COUNTED}", f"--dump-after={COUNTED}",
             "--combine-dumps=yes", f"--callgrind-out-file={out}", program],
            capture_output=True, text=True, check=False)
        if run.returncode != 0:
            sys.exit(f"{run.stdout}{run.stderr}callgrind or the program failed")
        names = [line.split("|") for line in run.stdout.splitlines()]
        parts = out.read_text().split("\npart: ")[1:]
    counts = [int(re.search(r"^totals: (\d+)", part, re.M)[1]) for part in parts
              if "desc: Trigger: --dump-after" in part]
    if not names or len(names) != len(counts):
        sys.exit(f"{len(names)} paths ran and {len(counts)} were counted")
    return [(name, what, instructions) for (name, what), instructions in zip(names, counts)]


def recorded(page):
    """The counts of an earlier page by name."""
    rows = re.findall(r"^\| `(\w+)` \|[^|]*\| ([\d,]+) \|$", page, re.M)
    return {name: int(number.replace(",", "")) for name, number in rows}


def check(paths, page):
    before = recorded(page)
    failures = 0
    for name, _, instructions in paths:
        if name not in before:
            print(f"{name}: not on the page; scripts/bench puts it there")
            failures += 1
            continue
        ratio = instructions / before[name]
        verdict = "GREW" if ratio > MOST_GROWTH else "ok"
        failures += verdict != "ok"
        print(f"{name}: {instructions:,} instructions, {ratio:.2f} of the page's: {verdict}")
    return failures == 0


def main(program, *options):
    paths = count(program)
    if options:
        return 0 if check(paths, pathlib.Path(options[1]).read_text()) else 1
    print(HEAD)
    for name, what, instructions in paths:
        print(f"| `{name}` | {what} | {instructions:,} |")
    return 0


sys.exit(main(*sys.argv[1:]))
