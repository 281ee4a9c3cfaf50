#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Prints coverage by file from gcovr's summary, and fails below the given percentages, or if the lines that no test
reaches are not those that a list gives reasons for.

usage: coverage_bounds.py SUMMARY.json DETAILS.json LIST --lines PERCENT --branches PERCENT

Sources are looked up from the working directory. LIST has a line for each line of theirs, "FILE, FUNCTION: TEXT", and
indented behind it, or behind several of them, the reason; comments begin with #.
"""
import argparse
import collections
import json
import pathlib
import re
import sys


def percent(covered, total):
    return 100.0 if total == 0 else 100.0 * covered / total


def short_name(function):
    """A function as people call it: without namespaces, result and parameters."""
    name = function.replace("(anonymous namespace)::", "").split("(")[0].split(" ")[-1]
    return re.sub(r"^(?:[a-z_]\w*::)+(?=\w)", "", name)


def uncovered(details):
    """How often each "FILE, FUNCTION: TEXT" has no count."""
    found = collections.Counter()
    for file in details["files"]:
        text = pathlib.Path(file["file"]).read_text().splitlines()
        starts = sorted((function["lineno"], function["name"]) for function in file["functions"])
        for line in file["lines"]:
            if line["count"] == 0 and not line["gcovr/noncode"] and not line["gcovr/excluded"]:
                number = line["line_number"]
                names = [name for start, name in starts if start <= number] or ["no function"]
                found[f"{file['file']}, {short_name(names[-1])}: {text[number - 1].strip()}"] += 1
    return found


def explained(path):
    """The lines of a list, each of which must have its reason."""
    listed, waiting = collections.Counter(), []
    for line in path.read_text().splitlines():
        if line.startswith(" "):
            listed.update(waiting)
            waiting = []
        elif line and not line.startswith("#"):
            waiting.append(line)
    if waiting:
        sys.exit(f"{path.name} has no reason: {waiting[0]}")
    return listed


def compare(found, listed, path):
    """Complaints about lines without a reason, and reasons without a line."""
    for line in sorted((found - listed).elements()):
        yield f"no test reaches it, and {path} has no reason: {line}"
    for line in sorted((listed - found).elements()):
        yield f"{path} explains what is gone or reached: {line}"


def print_table(summary):
    print(f"{'file':<36} {'lines':>16} {'branches':>16}")
    for entry in sorted(summary["files"], key=lambda entry: entry["filename"]):
        print(f"{entry['filename']:<36}"
              f" {entry['line_covered']:>5}/{entry['line_total']:<5}{entry['line_percent'] or 0:4.0f}%"
              f" {entry['branch_covered']:>5}/{entry['branch_total']:<5}"
              f"{percent(entry['branch_covered'], entry['branch_total']):4.0f}%")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("summary", type=pathlib.Path)
    parser.add_argument("details", type=pathlib.Path)
    parser.add_argument("list", type=pathlib.Path)
    parser.add_argument("--lines", type=float, required=True)
    parser.add_argument("--branches", type=float, required=True)
    arguments = parser.parse_args()
    summary = json.loads(arguments.summary.read_text())
    found = uncovered(json.loads(arguments.details.read_text()))

    print_table(summary)
    lines = percent(summary["line_covered"], summary["line_total"])
    branches = percent(summary["branch_covered"], summary["branch_total"])
    missing = summary["line_total"] - summary["line_covered"]
    print(f"all: {lines:.1f} % of {summary['line_total']} lines (at least {arguments.lines:g} %), "
          f"{branches:.1f} % of {summary['branch_total']} branches (at least {arguments.branches:g} %)")
    print(f"not reached: {missing} lines, {summary['branch_total'] - summary['branch_covered']} branches")
    if summary["line_total"] == 0:
        print("no line was measured")
        return 1
    complaints = list(compare(found, explained(arguments.list), arguments.list.name))
    if sum(found.values()) != missing:
        complaints.append(f"{arguments.details.name} has {sum(found.values())} lines without a count: it is of another run")
    print("\n".join(complaints), end="\n" if complaints else "")
    return 0 if lines >= arguments.lines and branches >= arguments.branches and not complaints else 1


if __name__ == "__main__":
    sys.exit(main())
