#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Runs the commands in the console blocks of a page and puts in what they print now.

usage: refresh_page.py TOOL PAGE

They run in a folder with the files of make_examples.py. If the page leaves lines out ("..."), as many
lines as before stay in front of them and behind. A command may fail only if the page shows an error;
otherwise the page stays as it is and the exit status is 1.
"""
import pathlib
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True  # no __pycache__ in the source tree
import make_examples  # noqa: E402

PROMPT = "$ sideband-sim "
ERROR = "sideband-sim: "
GAP = "..."


class Refused(Exception):
    """A page that cannot be renewed."""


def output_of(tool, folder, command, shown):
    """What a command prints, errors last."""
    run = subprocess.run([tool, *command.split()], capture_output=True, text=True, check=False,
                         cwd=folder)
    if run.returncode != 0 and not any(line.startswith(ERROR) for line in shown):
        raise Refused(f"{PROMPT}{command}\nfails, and the page shows no error:\n{run.stderr}")
    return (run.stdout + run.stderr).splitlines()


def cut_like(shown, printed):
    if GAP not in shown:
        return printed
    head = shown.index(GAP)
    tail = len(shown) - head - 1
    return [*printed[:head], GAP, *(printed[-tail:] if tail else [])]


def refresh(tool, folder, lines):
    out, shown, command, in_block = [], [], None, False

    def finish():
        if command is not None:
            out.extend(cut_like(shown, output_of(tool, folder, command, shown)))

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
    if len(sys.argv) != 3:
        sys.exit("usage: refresh_page.py TOOL PAGE")
    tool, page = pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(sys.argv[2])
    with tempfile.TemporaryDirectory() as folder:
        make_examples.make(pathlib.Path(folder), tool)
        try:
            lines = refresh(tool, folder, page.read_text().splitlines())
        except (Refused, OSError) as reason:
            sys.exit(f"refresh_page.py: {page} stays as it is: {reason}")
    page.write_text("\n".join(lines) + "\n")


if __name__ == "__main__":
    main()
