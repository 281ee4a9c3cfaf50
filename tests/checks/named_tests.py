#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Checks that the tests that SECURITY.md names are there.

usage: named_tests.py SOURCE_ROOT

Each row of the table under "Entrances" names at the end what shows the defence: a file of tests/ and behind it
cases of that file as Suite.Case, or that there is no test. A case counts if TEST, TEST_F or TEST_P begins it there.
"""
import pathlib
import re
import sys

HEADING = "## Entrances"
NO_TEST = "no test"
CASE = re.compile(r"[A-Za-z]\w*\.[A-Za-z]\w*")
BEGINNING = re.compile(r"^TEST(?:_F|_P)?\(\s*(\w+),\s*(\w+)\s*\)", re.M)


def rows_of(text):
    """(line number, cells) of each row of the table, without its head."""
    lines = text.splitlines()
    if HEADING not in lines:
        return []
    rows = []
    for number, line in enumerate(lines[lines.index(HEADING) + 1:], lines.index(HEADING) + 2):
        if line.startswith("## "):
            break
        if line.startswith("|"):
            rows.append((number, [cell.strip() for cell in line.strip("|").split("|")]))
    return rows[2:]


def cases_of(path):
    return {".".join(match) for match in BEGINNING.findall(path.read_text(encoding="utf-8"))}


def row_complaints(root, cell):
    """(complaints, number of cases) of what one row names."""
    complaints, count, known, file = [], 0, set(), None
    for name in re.findall(r"`([^`]+)`", cell):
        if name.startswith("tests/"):
            file = name
            is_there = (root / name).is_file()
            known = cases_of(root / name) if is_there else set()
            complaints += [] if is_there else [f"{name} is not there"]
        elif CASE.fullmatch(name) is None:
            complaints.append(f"{name} is neither a file of tests/ nor a case")
        else:
            count += 1
            complaints += [] if name in known else [f"{name} is not in {file or 'any file that the row names'}"]
    if count == 0 and NO_TEST not in cell:
        complaints.append(f'names no case, and does not say "{NO_TEST}"')
    return complaints, count


def main():
    root = pathlib.Path(sys.argv[1]).resolve()
    complaints, count = [], 0
    rows = rows_of((root / "SECURITY.md").read_text(encoding="utf-8"))
    for number, cells in rows:
        of_row, cases = row_complaints(root, cells[-1])
        complaints += [f"SECURITY.md:{number}: {complaint}" for complaint in of_row]
        count += cases
    for complaint in complaints:
        print(complaint)
    print(f"{len(rows)} entrances, {count} cases: {len(complaints)} complaints")
    return 1 if complaints or not count else 0


if __name__ == "__main__":
    sys.exit(main())
