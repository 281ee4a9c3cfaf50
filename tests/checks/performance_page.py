#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Holds the figures of docs/performance.md that bench/budgets.json has as well: instructions of each case, and stack.

usage: performance_page.py [--write] SOURCE_ROOT

--write puts them into the page instead.
"""
import argparse
import json
import pathlib
import re
import sys

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
from porting_page import BINDINGS, thousands  # noqa: E402

INSTRUCTIONS = re.compile(r"^(\| ([\w-]+) \| (controller PEC|software PEC|socket|-) \| )[\d,]+ \| [\d,]+( \| \d+ \|)$",
                          re.M)
STACK = re.compile(r"^(\| `(\w+)`[^|\n]* \| )[\d,]+ \| [\d,]+ \| [\d,]+( \|)$", re.M)
MACHINES = ("instructions on x86-64, -O2", "instructions on armhf, -Os")
SUFFIX = {"controller PEC": "/hardware-pec", "software PEC": "/software-pec", "socket": "/socket", "-": ""}


def corrected(page, budgets):
    """The page with the recorded figures, and the names of what it has rows for."""
    cases, calls = [], []

    def instructions(row):
        cases.append(row[2] + SUFFIX[row[3]])
        return row[1] + " | ".join(thousands(budgets[machine][cases[-1]]) for machine in MACHINES) + row[4]

    def stack(row):
        calls.append(row[2])
        return row[1] + " | ".join(thousands(budgets[f"stack over {binding} on armhf, bytes"][row[2]])
                                   for binding in BINDINGS) + row[3]

    return STACK.sub(stack, INSTRUCTIONS.sub(instructions, page)), cases, calls


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--write", action="store_true")
    parser.add_argument("root", type=pathlib.Path)
    arguments = parser.parse_args()
    file = arguments.root / "docs" / "performance.md"
    page, budgets = file.read_text(), json.loads((arguments.root / "bench" / "budgets.json").read_text())
    wanted, cases, calls = corrected(page, budgets)
    missing = sorted(set(budgets[MACHINES[0]]) - set(cases))
    complaints = [f"docs/performance.md has no row for {case}" for case in missing]
    if not calls:
        complaints.append("docs/performance.md has no row of stack")
    if arguments.write:
        file.write_text(wanted)
    else:
        complaints += [f"docs/performance.md: {is_}\nwanted:              {should_be}"
                       for is_, should_be in zip(page.splitlines(), wanted.splitlines()) if is_ != should_be]
    print("\n".join(complaints) or f"{len(cases)} cases and {len(calls)} calls are as they are recorded")
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main())
