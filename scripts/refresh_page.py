#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Runs the commands in the console blocks of a page and puts in what they print now.

usage: refresh_page.py TOOL PAGE

They run in a folder with the files of make_examples.py. If the page leaves lines out ("..."), as many
lines as before stay in front of them and behind. Blocks that are marked as not run stay (page_blocks.py). A command
may fail only if the page shows an error or an exit status; otherwise the page stays as it is and the exit
status is 1.
"""
import pathlib
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True  # no __pycache__ in the source tree
import make_examples  # noqa: E402
import page_blocks  # noqa: E402

COMMAND = "sideband-sim "
ERROR = "sideband-sim: "


class Refused(Exception):
    """A page that cannot be renewed."""


def output_of(tool, folder, example, may_fail):
    """What a command prints, errors last."""
    run = subprocess.run([tool, *example.command.split()[1:]], capture_output=True, text=True, check=False,
                         cwd=folder)
    if run.returncode != 0 and not may_fail and not any(line.startswith(ERROR) for line in example.shown):
        raise Refused(f"{page_blocks.PROMPT}{example.command}\nfails, and the page shows no error:\n{run.stderr}")
    return (run.stdout + run.stderr).splitlines()


def cut_like(shown, printed):
    if page_blocks.GAP not in shown:
        return printed
    head = shown.index(page_blocks.GAP)
    tail = len(shown) - head - 1
    return [*printed[:head], page_blocks.GAP, *(printed[-tail:] if tail else [])]


def refresh(tool, folder, lines):
    """The lines of the page with what its commands print now."""
    renewed = []
    for block in page_blocks.blocks(lines):
        if block.language != "console" or block.left_out:
            continue
        may_fail = block.mark[0] == "exit status"
        for example in page_blocks.examples(block):
            if example.command.startswith(COMMAND):
                printed = output_of(tool, folder, example, may_fail)
                renewed.append((example.line, len(example.shown), cut_like(example.shown, printed)))
    out = list(lines)
    for line, count, shown in reversed(renewed):
        out[line:line + count] = shown
    return out


def main():
    if len(sys.argv) != 3:
        sys.exit("usage: refresh_page.py TOOL PAGE")
    tool, page = pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(sys.argv[2])
    with tempfile.TemporaryDirectory() as folder:
        make_examples.make(pathlib.Path(folder), tool)
        try:
            lines = refresh(tool, folder, page.read_text().splitlines())
        except (Refused, page_blocks.BadPage, OSError) as reason:
            sys.exit(f"refresh_page.py: {page} stays as it is: {reason}")
    page.write_text("\n".join(lines) + "\n")


if __name__ == "__main__":
    main()
