#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Types commands into bash, zsh and fish and looks at what they complete.

usage: completion.py --shell bash|zsh|fish --scripts packaging/completion TOOL

Exit status 77 if the shell is not installed.
"""
import argparse
import json
import os
import pathlib
import pty
import select
import shutil
import signal
import subprocess
import sys
import tempfile
import time

PATIENCE_S = 30
# Words without blanks and colons, as a board may have them: of all these the last alone is offered.
HOSTILE = ["$(touch${IFS}BROKEN)", "`touch${IFS}BROKEN`", "q'uote", 'q"uote', ";touch${IFS}BROKEN", "&touch${IFS}BROKEN",
           "x|touch${IFS}BROKEN", ">BROKEN", "$HOME", "*", "{a,b}", "-rf", "~root", "=ls", "a\\b", "!!", "#", "\u0001",
           "safe0"]
REFUSED = ["a b; touch BROKEN", "new\nline; touch BROKEN", "tab\ttouch BROKEN"]


def board(names):
    devices = [{"name": name, "type": "pldm", "bus": 1, "address": hex(0x40 + 2 * at)} for at, name in enumerate(names)]
    return json.dumps({"name": "here", "buses": [{"bus": 1}], "devices": devices})


class Bench:
    """A folder with boards, and with a tool that notes its arguments, and only completes by the real one."""

    def __init__(self, folder, tool):
        self.folder = folder
        self.noted = folder / "noted"
        commands = folder / "commands"
        commands.mkdir()
        wrapper = commands / "sideband-sim"
        wrapper.write_text(f"#!/bin/sh\nif [ \"$1\" = __complete ]; then\n: >'{folder}/asked.'$$\n'{tool}' \"$@\"\n"
                           f"rm '{folder}/asked.'$$\nexit\nfi\nprintf '%s\\n' \"$@\" >'{self.noted}.new'\nmv '{self.noted}.new' '{self.noted}'\n")
        wrapper.chmod(0o755)
        (folder / "two.json").write_text(board(["only-here", "other.1"]))
        (folder / "hostile.json").write_text(board(HOSTILE))
        (folder / "refused.json").write_text(board(REFUSED))
        (folder / "$(touch BROKEN).json").write_text(board(["odd"]))
        (folder / "broken.json").write_text('{"name": "$(touch BROKEN)", ')
        self.environment = {"PATH": f"{commands}:{os.environ['PATH']}", "HOME": str(folder), "TERM": "dumb",
                            "LC_ALL": "C.UTF-8", "ZDOTDIR": str(folder)}

    def asked(self):
        """Whether the tool is being asked at this moment."""
        return any(path.name.startswith("asked.") for path in self.folder.iterdir())

    def executed(self):
        return [path.name for path in self.folder.iterdir() if path.name.startswith("BROKEN")]


class Terminal:
    """A shell on a terminal."""

    def __init__(self, bench, command, start):
        self.bench = bench
        self.seen = b""
        self.child, self.master = pty.fork()
        if self.child == 0:
            os.chdir(bench.folder)
            os.execvpe(command[0], command, bench.environment)
        self.type(start + "\n")
        self.type("sideband-sim ready\n")
        if self.arguments() != ["ready"]:
            raise RuntimeError(f"no prompt: {self.seen!r}")

    def type(self, keys):
        os.write(self.master, keys.encode())

    def wait(self, seconds):
        """Reads what the terminal shows meanwhile."""
        end = time.monotonic() + seconds
        while (left := end - time.monotonic()) > 0:
            if select.select([self.master], [], [], left)[0]:
                self.seen += os.read(self.master, 4096)

    def arguments(self):
        """Those with which the tool was run; none if that takes too long."""
        for _ in range(PATIENCE_S * 20):
            self.wait(0.05)
            if self.bench.noted.exists():
                words = self.bench.noted.read_text().split("\n")[:-1]
                self.bench.noted.unlink()
                return words
        return None

    def completed(self, keys):
        """The arguments that come of keys, each tabulator given its time."""
        for piece in keys.split("\t"):
            self.type(piece)
            if piece is not keys.split("\t")[-1]:
                self.type("\t")
                self.settle()
        self.type("\n")
        return self.arguments()

    def settle(self):
        """Until the terminal shows nothing new any more: the tool was asked in between."""
        quiet = 0
        for _ in range(PATIENCE_S * 20):
            before = len(self.seen)
            self.wait(0.1)
            quiet = quiet + 1 if len(self.seen) == before and not self.bench.asked() else 0
            if quiet == 6:
                return

    def close(self):
        os.kill(self.child, signal.SIGKILL)
        os.waitpid(self.child, 0)
        os.close(self.master)


# What is typed, and what the tool is run with then.
TYPED = [
    ("pldm fw-u\tnic0", ["pldm", "fw-update", "nic0"]),
    ("mctp eid nv\t", ["mctp", "eid", "nvme0"]),
    ("scan --col\tnev\t", ["scan", "--color", "never"]),
    ("nvme fw-commit nvme0 --action replace-\t", ["nvme", "fw-commit", "nvme0", "--action", "replace-activate"]),
    ("--board two.json mctp eid on\t", ["--board", "two.json", "mctp", "eid", "only-here"]),
    ("--board=two.json mctp eid on\t", ["--board=two.json", "mctp", "eid", "only-here"]),
    ("--board two.json mctp eid other.\t", ["--board", "two.json", "mctp", "eid", "other.1"]),
    ("pldm sensors i2c:2:0x64 --wat\t5", ["pldm", "sensors", "i2c:2:0x64", "--watch", "5"]),
    ("mctp eid --board tw\ton\t", ["mctp", "eid", "--board", "two.json", "only-here"]),
    ("--board=tw\tscan", ["--board=two.json", "scan"]),
    ("--fault nv\tno_ack scan", ["--fault", "nvme0=no_ack", "scan"]),
    ("--color=nev\tscan", ["--color=never", "scan"]),
    # Boards from which nothing must come, but for the one name that is harmless.
    ("--board hostile.json mctp eid \tx", ["--board", "hostile.json", "mctp", "eid", "safe0", "x"]),
    ("--board refused.json mctp eid \t\tx", ["--board", "refused.json", "mctp", "eid", "x"]),
    ("--board broken.json mctp eid \t\tx", ["--board", "broken.json", "mctp", "eid", "x"]),
    ("--board '$(touch BROKEN).json' mctp eid od\t", ["--board", "$(touch BROKEN).json", "mctp", "eid", "odd"]),
    ("--board '`touch BROKEN`' mctp eid x\t", ["--board", "`touch BROKEN`", "mctp", "eid", "x"]),
    ("mctp eid '$(touch BROKEN)\t'", ["mctp", "eid", "$(touch BROKEN)"]),
]

COMMANDS = {"bash": ["bash", "--norc", "--noprofile", "-i"], "zsh": ["zsh", "-f", "-i"],
            "fish": ["fish", "--no-config", "-i"]}


def start_of(shell, scripts):
    if shell == "bash":
        return f"PS1='> '; source '{scripts}/sideband.bash'; bind 'set bell-style none'"
    if shell == "zsh":
        return f"PS1='> '; fpath=('{scripts}' $fpath); autoload -Uz compinit; compinit -u -D; unsetopt beep"
    return f"function fish_prompt; printf '> '; end; source '{scripts}/sideband.fish'"


def typed(bench, shell, scripts):
    terminal = Terminal(bench, COMMANDS[shell], start_of(shell, scripts))
    complaints = []
    try:
        for keys, wanted in TYPED:
            got = terminal.completed("sideband-sim " + keys)
            if got != wanted:
                complaints.append(f"{shell}: {keys!r} became {got}, not {wanted}")
            if got is None:  # something is open on the line
                terminal.type("\x03")
                terminal.settle()
    finally:
        terminal.close()
    if complaints:
        print(terminal.seen.decode(errors="replace"))
    return complaints


# What is offered for a line, as the shell itself has it: all of it, and some of it.
OFFERED = [
    ("pldm ", ["fru", "fw-info", "fw-update", "info", "pdr", "sensors"]),
    ("--color ", ["always", "auto", "never"]),
    ("--board two.json mctp eid ", ["only-here", "other.1"]),
    ("--board hostile.json mctp eid ", ["safe0"]),
    ("--board refused.json mctp eid ", []),
    ("--board broken.json mctp eid ", []),
    ("nvme ds port nvme0 ", []),
]


def bash_offers(bench, scripts, line):
    words = ("sideband-sim " + line).split(" ")
    script = (f"source '{scripts}/sideband.bash'\nCOMP_WORDS=(\"$@\")\nCOMP_CWORD=$(($# - 1))\nCOMP_LINE=\"$*\"\n"
              "COMP_POINT=${#COMP_LINE}\n_sideband\nprintf '%s\\n' \"${COMPREPLY[@]}\"\n")
    return ["bash", "--norc", "-c", script, "bash", *words]


def fish_offers(bench, scripts, line):
    return ["fish", "--no-config", "-c", f"source '{scripts}/sideband.fish'; complete -C $argv[1]", "sideband-sim " + line]


def offered(bench, shell, scripts):
    """What shells tell without a terminal."""
    command = {"bash": bash_offers, "fish": fish_offers}.get(shell)
    complaints = []
    for line, wanted in OFFERED if command else []:
        done = subprocess.run(command(bench, scripts, line), cwd=bench.folder, env=bench.environment, text=True,
                              capture_output=True, check=False, timeout=PATIENCE_S)
        got = sorted(word.split("\t")[0] for word in done.stdout.split("\n") if word)
        if got != wanted or done.stderr:
            complaints.append(f"{shell}: {line!r} offers {got}, not {wanted} {done.stderr}")
    return complaints


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--shell", choices=sorted(COMMANDS), required=True)
    parser.add_argument("--scripts", type=pathlib.Path, required=True)
    parser.add_argument("tool")
    arguments = parser.parse_args()
    if shutil.which(arguments.shell) is None:
        print(f"skipped: {arguments.shell} is not installed")
        return 77
    scripts = arguments.scripts.resolve()
    with tempfile.TemporaryDirectory() as folder:
        bench = Bench(pathlib.Path(folder), pathlib.Path(arguments.tool).resolve())
        complaints = offered(bench, arguments.shell, scripts) + typed(bench, arguments.shell, scripts)
        if bench.executed():
            complaints.append(f"{arguments.shell}: something was executed")
    for complaint in complaints:
        print(complaint)
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main())
