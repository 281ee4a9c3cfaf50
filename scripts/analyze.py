#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Runs the static analyzers of clang and gcc over every source of the library.

usage: analyze.py --clang BUILD_FOLDER --gcc BUILD_FOLDER [--jobs N] [--explained FILE]

Each folder has a compile_commands.json of its compiler. A report is known by analyzer, file, function and
warning. analyzer_explained.txt beside this file has a line for each that is no mistake of the library's:

    ANALYZER FILE FUNCTION WARNING: why

Exit status 1 if a report has no such line, if a line has no report, or if an analyzer does not even find what
is planted for it. An analyzer that crashes or does not come to its end reports "crash" or "timeout" of a file
as a whole, whose function is "-". The warning of clang is its checker and the kind of mistake.
"""
import argparse
import collections
import concurrent.futures
import json
import os
import pathlib
import plistlib
import re
import shlex
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
ROOMS = ("common", "transport", "pldm", "ncsi", "NVMeMI")
SECONDS = 300  # for one file: ten times what the slowest takes
COMPILERS = {"clang": "clang++-14", "gcc": "g++-12"}
# What each compiler is told beside the flags of the build. Where gcc gives up it says so, which is counted and is no
# report. clang's "plist" leaves out reports whose path leads through another file.
TOO_COMPLEX = "-Wanalyzer-too-complex"
FLAGS = {"clang": ["--analyze", "--analyzer-output", "plist-multi-file", "-Wno-error"],
         "gcc": ["-fanalyzer", TOO_COMPLEX, "-fdiagnostics-format=json", "-Wno-error", "-c"]}
OF_BUILD = {"-o": 2, "-MF": 2, "-MQ": 2, "-MT": 2, "-MD": 1, "-MMD": 1, "-c": 1}
PLANTED = """\
#include <cstdlib>
int planted_use(int *block);
int planted_use(int *block) { std::free(block); return *block; }
int planted_null(bool none);
int planted_null(bool none) { int number = 0; int *block = none ? nullptr : &number; return *block; }
"""
PLANTED_FUNCTIONS = {"planted_use", "planted_null"}

Report = collections.namedtuple("Report", "analyzer file function warning")
Outcome = collections.namedtuple("Outcome", "reports cut seconds")


def command_of(analyzer, entry, source, output):
    """The command by which an analyzer looks at a source in the way that an entry of a database compiles another."""
    words = shlex.split(entry["command"])
    first = next(index for index, word in enumerate(words) if word.startswith("-"))
    flags, at = [], first
    while at < len(words):
        step = OF_BUILD.get(words[at], 0)
        if step == 0 and words[at] != entry["file"] and not words[at].startswith("-fdiagnostics-color"):
            flags.append(words[at])
        at += step or 1
    return [COMPILERS[analyzer], *flags, *FLAGS[analyzer], "-o", output, source]


def name_of(directory, file):
    """A file of the tree by its path in it, another one by its whole path."""
    path = pathlib.Path(os.path.realpath(os.path.join(directory, file)))
    return str(path.relative_to(ROOT) if path.is_relative_to(ROOT) else path)


def clang_reports(directory, output):
    with open(output, "rb") as file:
        found = plistlib.load(file)
    # One checker finds leaks and uses behind a free(): its name alone would have an explanation cover both.
    return [Report("clang", name_of(directory, found["files"][each["location"]["file"]]), each.get("issue_context", "-"),
                   f"{each['check_name']}/{each['type'].replace(' ', '-')}") for each in found["diagnostics"]], 0


def bare_name(function):
    """A function as gcc spells it, without types, parameters and namespaces: the name stays when those change."""
    spelt, before = function.split(" [with ", 1)[0], None
    while spelt != before:
        spelt, before = re.sub(r"<[^<>]*>", "", spelt), spelt
    return re.split(r"::|\s", spelt.split("(", 1)[0])[-1] or "-"


def gcc_reports(directory, said):
    reports, cut = [], 0
    # Each pass of the compiler that has something to say prints a list of its own.
    for line in filter(lambda line: line.startswith("["), said.splitlines()):
        for each in json.loads(line):
            option = each.get("option", "")
            if option == TOO_COMPLEX:
                cut += 1
            elif option.startswith("-Wanalyzer"):
                function = bare_name(each["path"][-1]["function"]) if each.get("path") else "-"
                reports.append(Report("gcc", name_of(directory, each["locations"][0]["caret"]["file"]), function,
                                      option))
    return reports, cut


def look_at(analyzer, entry, source):
    """The outcome of one source."""
    started = time.monotonic()
    whole = lambda warning: [Report(analyzer, name_of(entry["directory"], source), "-", warning)]
    with tempfile.TemporaryDirectory() as scratch:
        output = os.path.join(scratch, "output")
        command = command_of(analyzer, entry, source, output)
        try:
            done = subprocess.run(command, cwd=entry["directory"], capture_output=True, text=True, timeout=SECONDS,
                                  env={**os.environ, "LC_ALL": "C"})
            if done.returncode != 0:
                print(f"{shlex.join(command)}\n{done.stderr[-2000:]}")
                reports, cut = whole("crash"), 0
            elif analyzer == "clang":
                reports, cut = clang_reports(entry["directory"], output)
            else:
                reports, cut = gcc_reports(entry["directory"], done.stderr)
        except subprocess.TimeoutExpired:
            reports, cut = whole("timeout"), 0
    return Outcome(reports, cut, time.monotonic() - started)


def entries_of(folder):
    """The entries of the library's sources in a database, by their names; ends if one is not there."""
    with open(folder / "compile_commands.json", encoding="utf-8") as database:
        entries = {name_of(each["directory"], each["file"]): each for each in json.load(database)}
    sources = sorted(str(path.relative_to(ROOT)) for room in ROOMS for path in (ROOT / room).rglob("*.cpp"))
    missing = [name for name in sources if name not in entries]
    if missing or not sources:
        sys.exit(f"not in {folder}/compile_commands.json: {', '.join(missing) or 'anything'}")
    return {name: entries[name] for name in sources}


def finds_what_is_planted(analyzer, entry):
    with tempfile.TemporaryDirectory() as scratch:
        source = os.path.join(scratch, "planted.cpp")
        pathlib.Path(source).write_text(PLANTED, encoding="utf-8")
        found = {report.function for report in look_at(analyzer, entry, source).reports}
    for name in sorted(PLANTED_FUNCTIONS - found):
        print(f"{analyzer}: says nothing of the mistake in {name}()")
    return PLANTED_FUNCTIONS <= found


def explanations(path):
    """{report: why}; ends if a line is not one."""
    explained = {}
    for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
        if not line or line.startswith("#"):
            continue
        match = re.fullmatch(r"(\S+) (\S+) (\S+) (\S+): (\S.*)", line)
        if match is None or Report(*match.groups()[:4]) in explained:
            sys.exit(f"{path}:{number}: no explanation, or a second one")
        explained[Report(*match.groups()[:4])] = match.group(5)
    return explained


def analyze(analyzer, folder, jobs):
    """(reports, each with the sources in which it came up; whether the analyzer can be believed)"""
    entries, found, cut, started = entries_of(folder), collections.defaultdict(list), 0, time.monotonic()
    works = finds_what_is_planted(analyzer, next(iter(entries.values())))
    slowest = (0, "-")
    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        outcomes = pool.map(lambda entry: look_at(analyzer, entry, entry["file"]), entries.values())
        for name, outcome in zip(entries, outcomes):
            for report in outcome.reports:
                found[report].append(name)
            cut += outcome.cut
            slowest = max(slowest, (outcome.seconds, name))
    print(f"{analyzer}: {len(entries)} files, {sum(map(len, found.values()))} reports, {len(found)} different ones, "
          + (f"cut short at {cut} places, " if analyzer == "gcc" else "")
          + f"{time.monotonic() - started:.0f} s, of which {slowest[1]} {slowest[0]:.0f} s")
    return found, works


def main():
    parser = argparse.ArgumentParser()
    for analyzer in COMPILERS:
        parser.add_argument(f"--{analyzer}", type=pathlib.Path, required=True)
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--explained", type=pathlib.Path, default=ROOT / "scripts" / "analyzer_explained.txt")
    arguments = parser.parse_args()
    explained = explanations(arguments.explained)
    found, broken = {}, 0
    for analyzer in COMPILERS:
        of_analyzer, works = analyze(analyzer, getattr(arguments, analyzer), arguments.jobs)
        found.update(of_analyzer)
        broken += not works
    new = sorted(set(found) - set(explained))
    gone = sorted(set(explained) - set(found))
    for report in new:
        print(f"not explained: {' '.join(report)} (in {', '.join(sorted(set(found[report])))})")
    for report in gone:
        print(f"explained, but not reported: {' '.join(report)}")
    print(f"{len(found)} reports: {len(found) - len(new)} explained, {len(new)} not; {len(gone)} explanations without a "
          f"report; {broken} analyzers blind")
    return 1 if new or gone or broken else 0


if __name__ == "__main__":
    sys.exit(main())
