#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Prints coverage by file from gcovr's summary and fails below the given percentages.

usage: coverage_bounds.py SUMMARY.json --lines PERCENT --branches PERCENT
"""
import argparse
import json
import sys


def percent(covered, total):
    return 100.0 if total == 0 else 100.0 * covered / total


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("summary")
    parser.add_argument("--lines", type=float, required=True)
    parser.add_argument("--branches", type=float, required=True)
    arguments = parser.parse_args()
    with open(arguments.summary) as file:
        summary = json.load(file)

    print(f"{'file':<36} {'lines':>16} {'branches':>16}")
    for entry in sorted(summary["files"], key=lambda entry: entry["filename"]):
        print(f"{entry['filename']:<36}"
              f" {entry['line_covered']:>5}/{entry['line_total']:<5}{entry['line_percent'] or 0:4.0f}%"
              f" {entry['branch_covered']:>5}/{entry['branch_total']:<5}"
              f"{percent(entry['branch_covered'], entry['branch_total']):4.0f}%")
    lines = percent(summary["line_covered"], summary["line_total"])
    branches = percent(summary["branch_covered"], summary["branch_total"])
    print(f"all: {lines:.1f} % of {summary['line_total']} lines (at least {arguments.lines:g} %), "
          f"{branches:.1f} % of {summary['branch_total']} branches (at least {arguments.branches:g} %)")
    if summary["line_total"] == 0:
        print("no line was measured")
        return 1
    return 0 if lines >= arguments.lines and branches >= arguments.branches else 1


if __name__ == "__main__":
    sys.exit(main())
