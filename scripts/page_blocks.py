# SPDX-License-Identifier: Apache-2.0
"""The blocks of a page of the documentation, and the commands in them.

Every block stands between fences, and says what it is:

    sh        commands, one a line
    console   commands behind a prompt, and what each prints, errors last; a line "..." stands for lines left out
    json      one JSON value, or members of an object
    c, cpp    a program if it has a main(), else a part of one
    text      anything that is no command; so are the other words of SHOWN

A mark, a comment of its own directly above the fence, says of a block

    needs hardware: WHY     that its commands are not run, since they want what a test has not
    not run here: WHY       that they are not run for another reason
    exit status: N          that each command ends with that status
    shown by: COMMAND       that its lines are what a command prints, or some of them
"""
import re
from typing import NamedTuple

PROMPT = "$ "
# Prompts of root, and of the shell in a kernel of its own: what stands behind them is never run.
OTHER_PROMPTS = ("# ", "kernel# ")
GAP = "..."
SHOWN = ("text", "cmake", "mermaid")
LANGUAGES = ("sh", "console", "json", "c", "cpp", *SHOWN)
LEFT_OUT = ("needs hardware", "not run here")
MARKS = (*LEFT_OUT, "exit status", "shown by")

FENCE = re.compile(r"( *)```(\S*)$")
MARK = re.compile(r" *<!-- ([a-z ]+): (\S.*) -->$")


class Block(NamedTuple):
    """What stands between two fences."""
    line: int  # of the page, where the first of its lines is, from 0
    language: str
    mark: tuple  # (what, why); (None, None) if there is none
    lines: list

    @property
    def left_out(self):
        return self.mark[0] in LEFT_OUT


class Example(NamedTuple):
    """One command of a console block and the lines below it."""
    command: str
    line: int  # of the page, where the first of the shown lines is, from 0
    shown: list


class BadPage(Exception):
    """A page that is not laid out as above."""


def mark_above(lines, fence):
    """The mark that the line above a fence is."""
    above = lines[fence - 1].strip() if fence else ""
    if not above.startswith("<!--"):
        return None, None
    found = MARK.match(above)
    if not found or found[1] not in MARKS:
        raise BadPage(f"{fence}: a mark is one of {', '.join(MARKS)}, with a colon and what it says behind it")
    return found[1], found[2]


def blocks(lines):
    """The blocks of a page. What is indented like one must be in fences."""
    found, at = [], 0
    while at < len(lines):
        opening = FENCE.match(lines[at])
        if not opening:
            if lines[at].startswith("    ") and at and not lines[at - 1].strip():
                raise BadPage(f"{at + 1}: a block without fences")
            at += 1
            continue
        indent, language = opening.groups()
        end = next((i for i in range(at + 1, len(lines)) if lines[i] == f"{indent}```"), None)
        if end is None:
            raise BadPage(f"{at + 1}: the block has no end")
        if language not in LANGUAGES:
            raise BadPage(f"{at + 1}: a block is one of {', '.join(LANGUAGES)}, not \"{language}\"")
        body = [line.removeprefix(indent) for line in lines[at + 1:end]]
        found.append(Block(at + 1, language, mark_above(lines, at), body))
        at = end + 1
    return found


def examples(block, prompts=(PROMPT,)):
    """The commands of a console block, with what is shown of each."""
    found = []
    for at, line in enumerate(block.lines):
        prompt = next((prompt for prompt in prompts if line.startswith(prompt)), None)
        if prompt:
            found.append(Example(line.removeprefix(prompt), block.line + at + 1, []))
        elif not found:
            raise BadPage(f"{block.line + at + 1}: the block does not begin with a command")
        else:
            found[-1].shown.append(line)
    return found
