#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Holds the figures of docs/performance.md that bench/budgets.json has as well: instructions, stack, size.

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
SIZE = re.compile(r"(stripped: \*\*)[\d,]+( bytes\*\*, of which )[\d,]+( are code and\nconstants, )[\d,]+"
                  r"( initialised and )[\d,]+( zeroed data)")
PARTS = ("stripped file", "text", "data", "bss")
MACHINES = ("instructions on x86-64, -O2", "instructions on armhf, -Os")
SUFFIX = {"controller PEC": "/hardware-pec", "software PEC": "/software-pec", "socket": "/socket", "-": ""}


def corrected(page, budgets):
    """The page with the recorded figures, and what it has no row for or has one too many."""
    cases, calls, complaints = [], [], []

    def recorded(row, name, columns):
        if any(name not in budgets[column] for column in columns):
            complaints.append(f"bench/budgets.json has no {name}")
            return row[0]
        return row[1] + " | ".join(thousands(budgets[column][name]) for column in columns) + row[row.lastindex]

    def instructions(row):
        cases.append(row[2] + SUFFIX[row[3]])
        return recorded(row, cases[-1], MACHINES)

    def stack(row):
        calls.append(row[2])
        return recorded(row, row[2], [f"stack over {binding} on armhf, bytes" for binding in BINDINGS])

    def size(text):
        told = [thousands(budgets["size on armhf, bytes"][part]) for part in PARTS]
        return "".join(before + figure for before, figure in zip(text.groups(), told)) + text[5]

    page = STACK.sub(stack, INSTRUCTIONS.sub(instructions, page))
    page, sizes = SIZE.subn(size, page)
    complaints += [f"docs/performance.md has no row for {case}" for case in budgets[MACHINES[0]] if case not in cases]
    complaints += [] if calls else ["docs/performance.md has no row of stack"]
    complaints += [] if sizes == 1 else [f"docs/performance.md tells the size {sizes} times"]
    return page, complaints, f"{len(cases)} cases, {len(calls)} calls and the size are as they are recorded"


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--write", action="store_true")
    parser.add_argument("root", type=pathlib.Path)
    arguments = parser.parse_args()
    file = arguments.root / "docs" / "performance.md"
    page, budgets = file.read_text(), json.loads((arguments.root / "bench" / "budgets.json").read_text())
    wanted, complaints, summary = corrected(page, budgets)
    if arguments.write:
        file.write_text(wanted)
    else:
        complaints += [f"docs/performance.md: {is_}\nwanted:              {should_be}"
                       for is_, should_be in zip(page.splitlines(), wanted.splitlines()) if is_ != should_be]
    print("\n".join(complaints) or summary)
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main())
