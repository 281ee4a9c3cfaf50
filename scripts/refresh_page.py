#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Runs the commands in the console blocks of a page and puts in what they print now.

usage: refresh_page.py TOOL PAGE

Where the page leaves lines out ("..."), as many lines as before stay in front of them and behind.
"""
import pathlib
import subprocess
import sys

PROMPT = "$ sideband-sim "
GAP = "..."


def output_of(tool, command):
    run = subprocess.run([tool, *command.split()], capture_output=True, text=True, check=False)
    return (run.stdout + run.stderr).splitlines()


def cut_like(shown, printed):
    if GAP not in shown:
        return printed
    head = shown.index(GAP)
    tail = len(shown) - head - 1
    return [*printed[:head], GAP, *(printed[-tail:] if tail else [])]


def refresh(tool, lines):
    out, shown, command, in_block = [], [], None, False

    def finish():
        if command is not None:
            out.extend(cut_like(shown, output_of(tool, command)))

    for line in lines:
        ends = in_block and line.startswith("```")
        if in_block and (ends or line.startswith(PROMPT)):
            finish()
            shown, command = [], None
        if line.startswith("```"):
            in_block = line == "```console"
        elif in_block and line.startswith(PROMPT):
            command = line[len(PROMPT):]
        elif in_block and command is not None:
            shown.append(line)
            continue
        out.append(line)
    return out


def main():
    tool, page = sys.argv[1], pathlib.Path(sys.argv[2])
    page.write_text("\n".join(refresh(tool, page.read_text().splitlines())) + "\n")


if __name__ == "__main__":
    main()
