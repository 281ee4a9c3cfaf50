#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Counts the instructions of one exchange of each benchmark case, natively by callgrind or for ARM by a plugin of
the emulator.

usage: instructions.py BUILD_DIRECTORY [--plugin FILE] [CASE...]

FILE is count_plugin.so of a native build; ARM needs it.

A case runs twice with different repeat counts; the difference leaves start-up and set-up out. The
count is split by the object that the instructions lie in: "library" is libsideband.so, "libc" the
functions that it calls there, "platform" the platform in memory and the repeating loop, which lie
in the benchmark program itself. "exchange" is library plus libc.

libc's memset() takes a round more or less by where the stack happens to lie; each case is counted at
two places, and the larger count stands.
"""
import argparse
import os
import pathlib
import re
import subprocess
import sys
import tempfile

FEW, MANY = 100, 300
# Sizes of the environment that put the stack at odd and even multiples of 16 bytes.
PADDINGS = (1, 17)
# "rep stosb" and its like would count once a byte.
PLAIN_LOOPS = "glibc.cpu.x86_rep_stosb_threshold=0x7fffffff:glibc.cpu.x86_rep_movsb_threshold=0x7fffffff"
EM_ARM = 40


def costs_by_object(profile):
    """Exclusive instruction counts by object file name, from a callgrind profile."""
    names, costs, current, skip = {}, {}, "?", False
    for line in profile.splitlines():
        if match := re.match(r"ob=(\(\d+\))(?: (.+))?$", line):
            if match[2]:
                names[match[1]] = pathlib.Path(match[2]).name
            current = names[match[1]]
        elif match := re.match(r"cob=(\(\d+\)) (.+)$", line):
            names[match[1]] = pathlib.Path(match[2]).name
        elif line.startswith("calls="):
            skip = True  # the next line is the inclusive cost of the call
        elif match := re.match(r"[+\-*\d]\S* (\d+)$", line):
            if not skip:
                costs[current] = costs.get(current, 0) + int(match[1])
            skip = False
    return costs


def execute(command, case, environment):
    done = subprocess.run(command, capture_output=True, text=True, env={**os.environ, **environment})
    if done.returncode != 0:
        sys.exit(f"instructions.py: {case} failed:\n{done.stderr}")
    return done.stderr


class Callgrind:
    """This machine."""

    def __init__(self, build):
        self.program = build / "bench" / "bench-repeat"

    def list(self):
        return [self.program, "--cases"]

    def run(self, case, count, padding):
        with tempfile.TemporaryDirectory() as scratch:
            out = pathlib.Path(scratch) / "profile"
            execute(["valgrind", "--tool=callgrind", f"--callgrind-out-file={out}", self.program,
                     "--repeat", case, str(count)], case,
                    {"PADDING": "x" * padding, "GLIBC_TUNABLES": PLAIN_LOOPS})
            profile = out.read_text()
        costs = costs_by_object(profile)
        total = re.search(r"^(?:summary|totals): (\d+)", profile, flags=re.M)
        if not total or sum(costs.values()) != int(total[1]):
            sys.exit(f"instructions.py: the profile of {case} does not add up")
        return costs


class Emulator:
    """ARM: counts by page, and the loader's own words on where each object lies."""

    def __init__(self, build, plugin):
        self.program = build / "bench" / "bench-repeat"
        self.emulator = ["qemu-arm", "-L", "/usr/arm-linux-gnueabihf"]
        self.plugin = plugin

    def list(self):
        return [*self.emulator, self.program, "--cases"]

    def run(self, case, count, padding):
        with tempfile.TemporaryDirectory() as scratch:
            out = pathlib.Path(scratch) / "pages"
            said = execute([*self.emulator, "-plugin", f"{self.plugin},out={out}", "-E", "LD_DEBUG=files",
                            "-E", "PADDING=" + "x" * padding, self.program, "--repeat", case, str(count)],
                           case, {})
            pages = [line.split() for line in out.read_text().splitlines()]
        objects = [(name, int(base, 16), int(size, 16)) for name, base, size in re.findall(
            r"file=(\S+) \[0\];  generating link map\n.*base: (0x[0-9a-f]+)\s+size: (0x[0-9a-f]+)", said)]
        if not any(name.startswith("libsideband") for name, _, _ in objects):
            sys.exit(f"instructions.py: the loader does not say where the library of {case} lies")
        costs = {}
        for page, executed in pages:
            owner = next((name for name, base, size in objects if base <= int(page, 16) < base + size),
                         None)
            # What no library owns is the program's, but for the loader, which has nothing to do any more.
            owner = owner or self.program.name
            costs[owner] = costs.get(owner, 0) + int(executed)
        return costs


def per_exchange(machine, case, padding):
    few, many = machine.run(case, FEW, padding), machine.run(case, MANY, padding)
    parts = {"library": 0.0, "libc": 0.0, "platform": 0.0}
    for name, cost in many.items():
        if name.startswith("libsideband"):
            part = "library"
        elif name == machine.program.name:
            part = "platform"
        else:
            part = "libc"
        parts[part] += (cost - few.get(name, 0)) / (MANY - FEW)
    return parts


def worst(machine, case):
    return max((per_exchange(machine, case, padding) for padding in PADDINGS),
               key=lambda parts: parts["library"] + parts["libc"])


def machine_of(build, plugin):
    """How to count what was built there: by the machine in the program's ELF header."""
    header = (build / "bench" / "bench-repeat").read_bytes()[:20]
    return Emulator(build, plugin) if int.from_bytes(header[18:20], "little") == EM_ARM else Callgrind(build)


def measure(build, plugin=None, cases=()):
    """(case, its parts) one by one."""
    machine = machine_of(pathlib.Path(build), plugin)
    cases = cases or subprocess.run(machine.list(), check=True, capture_output=True,
                                    text=True).stdout.split()
    for case in cases:
        yield case, worst(machine, case)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build")
    parser.add_argument("--plugin")
    parser.add_argument("cases", nargs="*")
    arguments = parser.parse_intermixed_args()
    print(f"{'instructions an exchange':<34}{'exchange':>9}{'library':>9}{'libc':>7}{'platform':>9}")
    for case, parts in measure(arguments.build, arguments.plugin, arguments.cases):
        print(f"{case:<34}{parts['library'] + parts['libc']:>9.0f}{parts['library']:>9.0f}"
              f"{parts['libc']:>7.0f}{parts['platform']:>9.0f}", flush=True)


if __name__ == "__main__":
    main()
