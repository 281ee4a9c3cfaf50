#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Counts the instructions of one exchange of each benchmark case with callgrind.

usage: instructions.py BUILD_DIRECTORY [CASE...]

A case runs twice with different repeat counts; the difference leaves start-up and set-up out. The
count is split by the object that the instructions lie in: "library" is libsideband.so, "libc" the
functions that it calls there, "platform" the platform in memory and the repeating loop, which lie
in the benchmark program itself. "exchange" is library plus libc. A case that has a bound and misses
it is marked, and the exit status is then 1.

libc's memset() takes a round more or less by where the stack happens to lie; each case is counted at
two places, and the larger count stands.
"""
import os
import pathlib
import re
import subprocess
import sys
import tempfile

FEW, MANY = 100, 300
# Sizes of the environment that put the stack at odd and even multiples of 16 bytes.
PADDINGS = (1, 17)

# What an exchange may cost at most, on x86-64 at -O2.
BOUNDS = {"sensor/software-pec": 1200, "message-4096/software-pec": 25000}


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


def run(program, case, count, padding):
    with tempfile.TemporaryDirectory() as scratch:
        out = pathlib.Path(scratch) / "profile"
        done = subprocess.run(["valgrind", "--tool=callgrind", f"--callgrind-out-file={out}",
                               program, "--repeat", case, str(count)],
                              capture_output=True, text=True,
                              env={**os.environ, "PADDING": "x" * padding})
        if done.returncode != 0:
            sys.exit(f"instructions.py: {case} failed:\n{done.stderr}")
        profile = out.read_text()
    costs = costs_by_object(profile)
    total = re.search(r"^(?:summary|totals): (\d+)", profile, flags=re.M)
    if not total or sum(costs.values()) != int(total[1]):
        sys.exit(f"instructions.py: the profile of {case} does not add up")
    return costs


def per_exchange(program, case, padding):
    few, many = run(program, case, FEW, padding), run(program, case, MANY, padding)
    parts = {"library": 0.0, "libc": 0.0, "platform": 0.0}
    for name, cost in many.items():
        if name.startswith("libsideband"):
            part = "library"
        elif name == pathlib.Path(program).name:
            part = "platform"
        else:
            part = "libc"
        parts[part] += (cost - few.get(name, 0)) / (MANY - FEW)
    return parts


def worst(program, case):
    return max((per_exchange(program, case, padding) for padding in PADDINGS),
               key=lambda parts: parts["library"] + parts["libc"])


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    program = str(pathlib.Path(sys.argv[1]) / "bench" / "bench-repeat")
    cases = sys.argv[2:] or subprocess.run([program, "--cases"], check=True, capture_output=True,
                                           text=True).stdout.split()
    missed = False
    print(f"{'instructions an exchange':<34}{'exchange':>9}{'library':>9}{'libc':>7}"
          f"{'platform':>9}{'bound':>8}")
    for case in cases:
        parts = worst(program, case)
        exchange = parts["library"] + parts["libc"]
        bound = BOUNDS.get(case)
        over = bound is not None and exchange > bound
        missed = missed or over
        print(f"{case:<34}{exchange:>9.0f}{parts['library']:>9.0f}{parts['libc']:>7.0f}"
              f"{parts['platform']:>9.0f}{bound or '':>8}{'  MISSED' if over else ''}", flush=True)
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
