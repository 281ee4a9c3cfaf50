#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Boots a kernel on qemu's AST2600 board with an initramfs of its own, and compares what programs print there with
what the same programs print on this machine.

usage: run.py --kernel FOLDER --native BUILD --cross BUILD --toolchain FOLDER --folder RUN_FOLDER [--seconds N]

Both builds have tools/sideband-sim, read_sensor and the libraries; the toolchain's folder has those of C and C++.
Ends with "N passed, N failed"; exit status 1 if anything failed.
"""
import argparse
import os
import pathlib
import re
import shutil
import subprocess
import sys
import time

PROGRAMS = ["tools/sideband-sim", "read_sensor"]
LIBRARIES = ["libsideband.so.0", "platform/sim/libsideband-sim.so.0"]
COMMANDS = [
    "read_sensor",
    "sideband-sim pldm sensors gpu0",
    "sideband-sim pldm fru gpu0",
    "sideband-sim scan",
    "sideband-sim --json pldm info gpu0",
    "sideband-sim ncsi link ncsi0",
    "sideband-sim nvme log smart nvme0",
    "sideband-sim demo",
]
LOADER = "ld-linux-armhf.so.3"
MODEL = "AST2600"


def needed(program):
    """The libraries that a program or library names."""
    text = subprocess.run(["readelf", "-d", program], check=True, capture_output=True, text=True).stdout
    return re.findall(r"\(NEEDED\).*\[(.*)\]", text)


def copy_with_libraries(files, given, target):
    """Copies libraries into a folder, and those that they and the programs need."""
    own = {pathlib.Path(name).name: given.cross / name for name in LIBRARIES}
    waiting, there = [name for file in files for name in needed(file)] + [LOADER], set()
    while waiting:
        name = waiting.pop()
        if name in there:
            continue
        there.add(name)
        library = own.get(name, given.toolchain / name)
        shutil.copy(library, target / name)
        waiting += needed(library)


def make_initramfs(given, run):
    """The programs, their libraries, the list of commands and the first process."""
    root = run / "root"
    for folder in ("bin", "lib", "proc", "sys", "tmp", "dev"):
        (root / folder).mkdir(parents=True)
    programs = [given.cross / name for name in PROGRAMS]
    for program in programs:
        shutil.copy(program, root / "bin" / program.name)
    shutil.copy(given.cross / "init", root / "init")
    copy_with_libraries([*programs, given.cross / "init"], given, root / "lib")
    (root / "commands").write_text("".join(f"/bin/{command}\n" for command in COMMANDS))
    names = "\n".join(str(path.relative_to(root)) for path in sorted(root.rglob("*")))
    archive = subprocess.run(["cpio", "-o", "-H", "newc", "--quiet", "-R", "0:0"], cwd=root, input=names.encode(),
                             check=True, capture_output=True).stdout
    (run / "initramfs").write_bytes(archive)


def boot(given, run):
    """Runs the machine to its end, or to the end of its time; what it printed."""
    serial = run / "serial"
    command = ["qemu-system-arm", "-M", "ast2600-evb", "-kernel", given.kernel / "vmlinuz",
               "-dtb", given.kernel / "board.dtb", "-initrd", run / "initramfs",
               "-append", "console=ttyS4,115200 quiet loglevel=1 panic=-1",
               "-display", "none", "-monitor", "none", "-serial", f"file:{serial}", "-no-reboot"]
    with (run / "qemu.log").open("wb") as log:
        machine = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        try:
            machine.wait(given.seconds)
        except subprocess.TimeoutExpired:
            print(f"run.py: the machine came to no end within {given.seconds} s")
        finally:
            machine.kill()
            machine.wait()
    return serial.read_text(errors="replace").replace("\r\n", "\n") if serial.exists() else ""


def answers(text):
    """What was printed between @begin and @status, and the status, by command."""
    found = re.findall(r"^@begin /bin/(.*)\n((?:.*\n)*?)@status (\d+)$", text, re.MULTILINE)
    return {command: (int(status), printed) for command, printed, status in found}


def expected(given, command):
    """The same from this machine."""
    name, *words = command.split(" ")
    program = next(given.native / path for path in PROGRAMS if pathlib.Path(path).name == name)
    folders = os.pathsep.join(str((given.native / library).parent) for library in LIBRARIES)
    ended = subprocess.run([program, *words], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False,
                           env=dict(os.environ, LD_LIBRARY_PATH=folders))
    return ended.returncode, ended.stdout


def first_difference(here, there):
    """Both first lines that differ."""
    for line, (one, other) in enumerate(zip(here + [None], there + [None]), 1):
        if one != other:
            return f"line {line} is {other!r} there and {one!r} here"
    return "one of them is longer"


def judge(given, text):
    """Prints a line for each case; how many passed and failed."""
    machine = re.search(r"^@machine (.*)$", text, re.MULTILINE)
    right = machine is not None and MODEL in machine[1] and "armv7l" in machine[1]
    print(f"{'passed' if right else 'FAILED'}  the machine: {machine[1] if machine else 'it says nothing'}")
    outcomes, printed = [right], answers(text)
    for command in COMMANDS:
        here, there = expected(given, command), printed.get(command)
        outcomes.append(here == there and here[0] == 0)
        if outcomes[-1]:
            print(f"passed  {command}: {len(here[1].splitlines())} lines as here")
        elif there is None:
            print(f"FAILED  {command}: it came to no end")
        else:
            print(f"FAILED  {command}: status {there[0]} there, {here[0]} here; "
                  f"{first_difference(here[1].splitlines(), there[1].splitlines())}")
    return outcomes.count(True), outcomes.count(False)


def arguments():
    """The command line."""
    parser = argparse.ArgumentParser()
    for name in ("kernel", "native", "cross", "toolchain", "folder"):
        parser.add_argument(f"--{name}", type=pathlib.Path, required=True)
    parser.add_argument("--seconds", type=int, default=600)
    return parser.parse_args()


def main():
    given = arguments()
    run = given.folder.resolve()
    shutil.rmtree(run, ignore_errors=True)
    run.mkdir(parents=True)
    make_initramfs(given, run)
    started = time.monotonic()
    text = boot(given, run)
    print(f"run.py: the machine ran for {time.monotonic() - started:.0f} s")
    passed, failed = judge(given, text)
    if failed:
        print("The last words of the machine:")
        print(text[-2000:])
    print(f"{passed} passed, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
