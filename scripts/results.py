#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Counts what `meson test` ran in a build directory: test cases, one by one if they are known.

usage: results.py [--total FILE] BUILD_DIRECTORY

Prints the skipped and the failed cases and one line of counts. With --total, appends "PASSED FAILED"
to FILE. Exit status 1 when anything failed or nothing was run.
"""
import argparse
import json
import pathlib
import sys
import xml.etree.ElementTree as ElementTree


def log_of(build, suffix):
    """The log of the last run, or None; meson adds the name of a wrapper to that of the log."""
    logs = sorted((build / "meson-logs").glob(f"testlog*{suffix}"))
    return logs[0] if logs else None


def gtest_cases(build, entry):
    """(case, outcome, reason) of one GoogleTest program; empty if it left no report."""
    report = log_of(build, ".junit.xml")
    if not report:
        return []
    cases = []
    for suite in ElementTree.parse(report).getroot().iter("testsuite"):
        # meson names it PROJECT.ENTRY.SUITE, the entry as in its log.
        if not suite.get("name", "").partition(".")[2].startswith(f"{entry}."):
            continue
        for case in suite.iter("testcase"):
            outcome, reason = "passed", ""
            for child in case:
                if child.tag in ("failure", "error"):
                    outcome, reason = "failed", child.get("message", "")
                elif child.tag == "skipped":
                    outcome, reason = "skipped", child.get("message", "") or (child.text or "")
            if case.get("status") == "notrun" and outcome == "passed":
                outcome, reason = "skipped", "disabled"
            cases.append((f"{case.get('classname')}.{case.get('name')}", outcome, reason.strip()))
    return cases


def program_cases(build, record):
    """The cases of one entry of the test log; the entry itself if it has none."""
    name, result = record["name"].split(" / ")[-1], record["result"]
    cases = gtest_cases(build, record["name"])
    if not cases:
        text = record.get("stdout", "").strip().splitlines()
        reason = text[-1] if text else ""
        if result in ("OK", "EXPECTEDFAIL"):
            return [(name, "passed", "")]
        return [(name, "skipped" if result == "SKIP" else "failed", reason or result)]
    if result not in ("OK", "SKIP") and all(outcome != "failed" for _, outcome, _ in cases):
        cases.append((name, "failed", f"the program ended with {result}"))
    return [(f"{name}: {case}", outcome, reason) for case, outcome, reason in cases]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--total", type=pathlib.Path)
    parser.add_argument("build", type=pathlib.Path)
    arguments = parser.parse_args()

    logs = sorted((arguments.build / "meson-logs").glob("testlog*.json"))
    cases = []
    for log in logs:
        for line in log.read_text().splitlines():
            cases += program_cases(arguments.build, json.loads(line))
    for outcome in ("skipped", "failed"):
        for case, what, reason in cases:
            if what == outcome:
                print(f"{outcome}: {case}" + (f": {reason.splitlines()[0]}" if reason else ""))
    count = {what: sum(1 for case in cases if case[1] == what)
             for what in ("passed", "failed", "skipped")}
    print(f"{arguments.build.name}: {count['passed']} passed, {count['failed']} failed, "
          f"{count['skipped']} skipped")
    if arguments.total:
        with arguments.total.open("a") as total:
            total.write(f"{count['passed']} {count['failed']}\n")
    return 1 if count["failed"] or not count["passed"] else 0


if __name__ == "__main__":
    sys.exit(main())
