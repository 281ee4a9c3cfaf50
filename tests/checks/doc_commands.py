#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Runs every command of the documentation and compares what it prints with what the page shows.

usage: doc_commands.py --root DIR --build DIR [--program NAME=PATH]... [--cc COMMAND] [--cxx COMMAND]
                       [--sanitize LIST] [--every-command PAGE]

Each page has a folder of its own, in which its commands run in their order, with the project's files beside them,
this build in the place of build/release, its programs on the path and its compilers as cc and c++. A command ends
with status 0, or fails if the page shows its error. What a page marks (scripts/page_blocks.py) as not run is counted,
with why; its chores of ./dev and commands of the tool have to be there all the same. JSON has to be right, a C program
to compile, a call in a part of one to be in a public header. With --every-command that page shows each command that
the tool's help knows.
"""
import argparse
import collections
import functools
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True  # no __pycache__ in the source tree
HERE = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(HERE.parent.parent / "scripts"), str(HERE.parent / "installed")]
import make_examples  # noqa: E402
import page_blocks  # noqa: E402
import prefix  # noqa: E402

FOLDERS = ("docs", "examples", "packaging", "platform", "tests", "fuzz", "bench", ".github")
HISTORY = "CHANGELOG.md"
TOOL = "sideband-sim"
MAKES_FILES = "scripts/make_examples.py ."
LONGEST_S = 120
CHORE = re.compile(r"(?<![\w/])\./dev ([a-z][a-z-]*)")
SPAN = re.compile(r"`([^`\n]+)`")
CALL = re.compile(r"\b((?:mctp|pldm|ncsi|nvmemi|nvme|smbus|sideband|plt)_\w+)\(")
COMPILERS = {"c": ("cc", "-std=c11"), "cpp": ("c++", "-std=c++20")}
# What a sanitized build wants of a linker means nothing here.
QUIET = ("-fsyntax-only", "-Wno-unused-command-line-argument")
# What follows a command: later ones of its page find what it has exported.
KEEP = '\nstatus=$?; env -0 >"$DOC_ENVIRONMENT"; exit $status'


def said(text):
    return "".join(f"\n    {line}" for line in text.splitlines()[:40])


def bare(command):
    """A command without the remark behind it."""
    return re.sub(r"\s+#.*$", "", command)


class Help:
    """What a program says of its commands and options."""

    def __init__(self, path):
        self.path = path

    @functools.cache
    def of(self, words):
        """(commands below these words, options)"""
        done = subprocess.run([self.path, *words, "--help"], capture_output=True, text=True, check=True)
        lines = done.stdout.partition("\nSubcommands:\n")[2].partition("\n\n")[0].splitlines()
        below = [line.split()[0] for line in lines if re.match(r" {2}\S", line)]
        return below, set(re.findall(r"(?<![\w-])--?[a-z][\w-]*", done.stdout))

    def without_example(self, lines, words=()):
        """The commands that none of these lines, lists of words, begins with."""
        for word in self.of(words)[0]:
            path = [*words, word]
            behind = [line[len(path):] for line in lines if line[:len(path)] == path]
            if not behind:
                yield " ".join(path)
            elif any(rest and re.fullmatch("[a-z-]+", rest[0]) for rest in behind):
                yield from self.without_example(lines, tuple(path))

    def complaint(self, command):
        """What in a command line the program does not know; empty for nothing."""
        words, value = (), False
        for word in command.split()[1:]:
            below, options = self.of(words)
            if word.startswith("--"):
                name, equals, _ = word.partition("=")
                if name not in options | self.of(())[1]:
                    return f"there is no option {name}"
                value = not equals
            elif word in below:
                words, value = (*words, word), False
            elif below and not value:
                return f"there is no command {word}"
            else:
                value = False
        return ""


class Gate:
    """The chores of ./dev, and which of them .ci/run has."""

    def __init__(self, root):
        self.chores = set(re.findall(r"^do_([a-z]+)\(\)", (root / "dev").read_text(encoding="utf-8"), re.M))
        run = (root / ".ci" / "run").read_text(encoding="utf-8")
        lines = re.findall(r"^\s*(?:check|step) \S+ (\./dev [^|\n]*?)(?: \|\|.*)?$", run, re.M)
        self.lines = [" ".join(line.split()) for line in lines]
        self.lines += [f"./dev {name}" for name in re.findall(r"^suite (\w+)$", run, re.M)]

    def unknown(self, text):
        return [f"./dev has no chore {name}" for name in CHORE.findall(text) if name not in self.chores]


class Folder:
    """Where a page's commands run."""

    def __init__(self, options, path, with_examples):
        self.path, self.answers = path / "page", options.answers
        (self.path / "build").mkdir(parents=True)
        (self.path / "build" / "release").symlink_to(options.build)
        for entry in options.root.iterdir():
            if entry.name not in ("build", ".git", ".cache"):
                (self.path / entry.name).symlink_to(entry)
        programs = path / "bin"
        programs.mkdir()
        for name, program in options.programs.items():
            (programs / name).symlink_to(program)
        for name, command in (("cc", options.cc), ("c++", options.cxx)):
            line = prefix.compiler(command, options.sanitize)
            (programs / name).write_text(f'#!/bin/sh\nPATH="{os.environ["PATH"]}" exec {line} "$@"\n')
            (programs / name).chmod(0o755)
        self.environment = {**os.environ, "PATH": f"{programs}:{os.environ['PATH']}", "HOME": str(path),
                            "LC_ALL": "C.UTF-8", "SIDEBAND_TOOL": str(options.programs.get(TOOL, "")),
                            "PKG_CONFIG_PATH": str(options.build / "meson-uninstalled"),
                            "DOC_ENVIRONMENT": str(path / "environment")}
        if with_examples:
            make_examples.make(self.path, options.programs[TOOL])

    def run(self, command):
        """(exit status, what it printed, errors last). What needs no file answers the same on every page."""
        alone = re.fullmatch(TOOL + r"( [\w:=-]+)+", command) and "--capture" not in command
        if not alone:
            return self.run_here(command)
        if command not in self.answers:
            self.answers[command] = self.run_here(command)
        return self.answers[command]

    def run_here(self, command):
        try:
            done = subprocess.run(["sh", "-c", command + KEEP], cwd=self.path, env=self.environment, timeout=LONGEST_S,
                                  stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
        except subprocess.TimeoutExpired:
            return "none", f"it takes longer than {LONGEST_S} s"
        kept = pathlib.Path(self.environment["DOC_ENVIRONMENT"])
        if kept.exists():
            self.environment = dict(line.split("=", 1) for line in kept.read_text().split("\0") if "=" in line)
        return done.returncode, done.stdout + done.stderr


class Shown(str):
    """A line of a page, which may leave out the end of what was printed."""

    __hash__ = str.__hash__

    def __eq__(self, printed):
        gap = " " + page_blocks.GAP
        return str(self) == printed or (self.endswith(gap) and printed.startswith(self.removesuffix(gap)))


def fits(printed, shown):
    """Whether a page shows what was printed, gaps apart."""
    parts = [[]]
    for line in shown:
        if line == page_blocks.GAP:
            parts.append([])
        else:
            parts[-1].append(Shown(line))
    first, *rest = parts
    if not rest:
        return first == printed
    if first != printed[:len(first)]:
        return False
    at = len(first)
    for part in rest[:-1]:
        at = next((i + len(part) for i in range(at, len(printed) + 1) if part == printed[i:i + len(part)]), None)
        if at is None:
            return False
    last = rest[-1]
    return len(printed) - len(last) >= at and last == printed[len(printed) - len(last):]


class Page:
    """One page and what is wrong with it."""

    def __init__(self, options, name):
        self.options, self.name = options, name
        self.complaints, self.counts, self.reasons = [], collections.Counter(), collections.Counter()
        self.shown = []  # commands of the tool, run or not
        self.folder = None

    def complain(self, line, text):
        self.complaints.append(f"{self.name}:{line}: {text}")

    def check(self):
        lines = (self.options.root / self.name).read_text(encoding="utf-8").splitlines()
        try:
            blocks = page_blocks.blocks(lines)
        except page_blocks.BadPage as reason:
            self.complaints.append(f"{self.name}:{reason}")
            return
        self.check_spans(lines, blocks)
        with tempfile.TemporaryDirectory() as folder:
            made_there = any(line.startswith(MAKES_FILES) for line in lines)
            self.folder = Folder(self.options, pathlib.Path(folder), not made_there and TOOL in self.options.programs)
            for block in blocks:
                try:
                    self.check_block(block)
                except page_blocks.BadPage as reason:
                    self.complaints.append(f"{self.name}:{reason}")

    def check_spans(self, lines, blocks):
        """Commands inside the text."""
        inside = {i for block in blocks for i in range(block.line - 1, block.line + len(block.lines) + 1)}
        for at, line in enumerate(lines):
            for span in SPAN.findall(line) if at not in inside else ():
                self.check_words(at + 1, span)
                script = span.split()[0] if span.startswith(("scripts/", ".ci/")) else "scripts"
                if not (self.options.root / script).exists():
                    self.complain(at + 1, f"there is no {script}")

    def check_words(self, line, command):
        """What can be said of a command that is not run."""
        for complaint in self.options.gate.unknown(command):
            self.complain(line, complaint)
        program, _, rest = command.partition(" ")
        if rest and program in self.options.help:
            complaint = self.options.help[program].complaint(command)
            if complaint:
                self.complain(line, f"{command}: {complaint}")

    def check_block(self, block):
        what = {"sh": self.check_sh, "console": self.check_console, "json": self.check_json,
                "c": self.check_program, "cpp": self.check_program}.get(block.language, self.check_text)
        if block.mark[0] == "exit status" and block.language not in ("sh", "console"):
            self.complain(block.line, f"no {block.mark[0]} fits a block of {block.language}")
        what(block)

    def leave_out(self, block, commands):
        for line, command in commands:
            self.shown.append(command)
            self.check_words(line, command)
            if bare(command) in self.options.gate.lines:
                self.counts["chores of the gate"] += 1
            else:
                self.counts[f"commands marked as {block.mark[0]}"] += 1
                self.reasons[f"{block.mark[0]}: {block.mark[1]}"] += 1

    def check_sh(self, block):
        commands = []
        for at, line in enumerate(block.lines):
            if at and block.lines[at - 1].endswith("\\"):
                commands[-1] = (commands[-1][0], commands[-1][1].removesuffix("\\") + line.strip())
            elif line.strip() and not line.startswith("#"):
                commands.append((block.line + 1 + at, line))
        if block.left_out:
            self.leave_out(block, commands)
            return
        for line, command in commands:
            if bare(command).startswith("./dev "):
                self.check_chore(line, bare(command))
            else:
                status, printed = self.run(line, command, block, False)
                if command.startswith(TOOL) and status == 0 and not printed and ">" not in command:
                    self.complain(line, f"{command} prints nothing")

    def check_chore(self, line, command):
        self.counts["chores of the gate"] += 1
        self.check_words(line, command)
        if command not in self.options.gate.lines:
            self.complain(line, f"{command} is not in .ci/run; the block needs a mark that says why it is not run")

    def check_console(self, block):
        prompts = (page_blocks.PROMPT, *page_blocks.OTHER_PROMPTS) if block.left_out else (page_blocks.PROMPT,)
        found = page_blocks.examples(block, prompts)
        if block.left_out:
            self.leave_out(block, [(example.line, example.command) for example in found])
            return
        for example in found:
            may_fail = any(line.startswith(example.command.split()[0] + ": ") for line in example.shown)
            _, printed = self.run(example.line, example.command, block, may_fail)
            if not fits(printed.splitlines(), example.shown):
                self.complain(example.line, f"{example.command} prints something else:{said(printed)}")

    def run(self, line, command, block, may_fail):
        """Runs a command and looks at how it ends."""
        self.counts["commands run"] += 1
        self.shown.append(command)
        status, printed = self.folder.run(command)
        if block.mark[0] == "exit status":
            good = str(status) == block.mark[1]
        else:
            good = status in (1, 2, 3) if may_fail else status == 0
        if not good:
            self.complain(line, f"{command} ends with status {status}:{said(printed)}")
        capture = re.search(r"--capture (\S+)", command)
        if capture and good and not (self.folder.path / capture[1]).stat().st_size:
            self.complain(line, f"{command} captures nothing")
        return status, printed

    def check_json(self, block):
        self.counts["JSON blocks"] += 1
        text = "\n".join(block.lines)
        for whole in (text, "{" + text + "}"):
            try:
                json.loads(whole)
                return
            except ValueError as reason:
                why = reason
        self.complain(block.line, f"this is no JSON: {why}")

    def check_program(self, block):
        text = "\n".join(block.lines)
        if not re.search(r"\bmain\(", text):
            self.counts["parts of programs"] += 1
            for name in sorted(set(CALL.findall(text)) - self.options.names):
                self.complain(block.line, f"no public header has {name}()")
            return
        self.counts["programs compiled"] += 1
        source = self.folder.path / f"block.{block.language}"
        source.write_text(text + "\n", encoding="utf-8")
        includes = [f"-I{self.options.root / folder}" for folder in ("include", "platform/sim", "platform/linux")]
        done = subprocess.run([*COMPILERS[block.language], "-Wall", "-Wextra", "-Werror", *QUIET, *includes,
                               source], env=self.folder.environment, capture_output=True, text=True, check=False)
        if done.returncode != 0:
            self.complain(block.line, f"this program does not compile:{said(done.stderr)}")

    def check_text(self, block):
        command = next((line for line in block.lines if line.startswith((page_blocks.PROMPT, "./dev "))), None)
        if command:
            self.complain(block.line, f"a command in a block of {block.language}: {command}")
        if block.mark[0] != "shown by":
            return
        status, printed = self.run(block.line, block.mark[1], block, False)
        around = [page_blocks.GAP, *block.lines, page_blocks.GAP]
        if status == 0 and not fits(printed.splitlines(), around):
            self.complain(block.line, f"{block.mark[1]} does not print this")


def page_names(root):
    """Every page but the history, whose commands were those of their time."""
    found = [*root.glob("*.md"), *(path for folder in FOLDERS for path in (root / folder).rglob("*.md"))]
    return sorted(str(path.relative_to(root)) for path in found if path.name != HISTORY)


def public_names(root):
    """What the public headers call or declare."""
    headers = [path for folder in ("include", "platform/sim", "platform/linux") for path in (root / folder).glob("*/*.h")]
    return {name for header in headers for name in re.findall(r"\w+(?=\()", header.read_text(encoding="utf-8"))}


def not_shown(tool, shown):
    """The tool's commands of which a page has no example."""
    lines = [[word for word in command.split()[1:] if not word.startswith("--")] for command in shown
             if command.split()[0] == TOOL]
    return list(tool.without_example(lines))


def read_options():
    parser = argparse.ArgumentParser()
    parser.add_argument("--root", required=True, type=pathlib.Path)
    parser.add_argument("--program", action="append", default=[], help="NAME=PATH")
    parser.add_argument("--build", required=True, type=pathlib.Path)
    parser.add_argument("--cc", default="cc")
    parser.add_argument("--cxx", default="c++")
    parser.add_argument("--sanitize", default="none")
    parser.add_argument("--every-command", help="a page")
    options = parser.parse_args()
    options.root = options.root.resolve()
    options.build, options.answers = options.build.resolve(), {}
    options.programs = {name: pathlib.Path(path).resolve() for name, path in
                        (program.split("=", 1) for program in options.program)}
    options.help = {name: Help(path) for name, path in options.programs.items()}
    options.gate, options.names = Gate(options.root), public_names(options.root)
    return options


def main():
    options = read_options()
    complaints, counts, reasons = [], collections.Counter(), collections.Counter()
    for name in page_names(options.root):
        page = Page(options, name)
        page.check()
        if name == options.every_command:
            missing = not_shown(options.help[TOOL], page.shown)
            page.complaints += [f"{name}: there is no example of {TOOL} {command}" for command in missing]
        complaints += page.complaints
        counts += page.counts
        reasons += page.reasons
    for text, count in sorted(reasons.items()):
        print(f"{count:4} {text}")
    print(", ".join(f"{count} {what}" for what, count in sorted(counts.items())) or "no commands")
    print("\n".join(complaints))
    return 1 if complaints or not counts["commands run"] else 0


if __name__ == "__main__":
    sys.exit(main())
