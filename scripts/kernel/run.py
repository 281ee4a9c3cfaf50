#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Boots user-mode Linux for one run of a program in it and passes on what came of it.

usage: run.py --kernel FILE --folder RUN_FOLDER --program FILE [--seconds N] [--terminal]
              [--set NAME=VALUE]... [WORD...]
       run.py --possible

The program runs as root of a machine whose root is this one's, read-only but for the run folder; NAME=VALUE
becomes part of its environment, the words are in RUN_FOLDER/words as JSON. What it prints is passed on, or
it has the terminal itself. Exit status: that of the program, 77 where this machine cannot run such a kernel (the
reason is printed), 1 where the program came to no end in time. --possible only finds out the reason.
"""
import argparse
import ctypes
import json
import os
import pathlib
import platform
import shutil
import signal
import subprocess
import sys
import time

SKIPPED = 77
MEMORY_MB = 256
PTRACE_TRACEME, PTRACE_SYSCALL, PTRACE_KILL = 0, 24, 8
PR_SET_CHILD_SUBREAPER = 36


def may_trace():
    """Whether a process may trace its child's system calls, on which user-mode Linux rests."""
    libc = ctypes.CDLL(None, use_errno=True)
    child = os.fork()
    if child == 0:
        if libc.ptrace(PTRACE_TRACEME, 0, None, None) != 0:
            os._exit(1)
        os.kill(os.getpid(), signal.SIGSTOP)
        os._exit(0)
    _, status = os.waitpid(child, 0)
    if not os.WIFSTOPPED(status):
        return False
    allowed = libc.ptrace(PTRACE_SYSCALL, child, None, None) == 0
    if not allowed:
        os.kill(child, signal.SIGKILL)
    _, status = os.waitpid(child, 0)
    if os.WIFSTOPPED(status):
        os.kill(child, signal.SIGKILL)
        os.waitpid(child, 0)
    return allowed


def reason_to_skip():
    """Why this machine cannot run the kernel, or None."""
    if platform.system() != "Linux" or platform.machine() != "x86_64":
        return f"user-mode Linux needs Linux on x86-64, this is {platform.system()} on {platform.machine()}"
    if not may_trace():
        return "ptrace is forbidden here, and user-mode Linux needs it"
    return None


def memory_folder(run):
    """Where the kernel's memory file fits and may be executed."""
    shared = pathlib.Path("/dev/shm")
    if shared.is_dir():
        state = os.statvfs(shared)
        roomy = state.f_bavail * state.f_frsize > 2 * MEMORY_MB * 2**20
        if roomy and not state.f_flag & os.ST_NOEXEC and os.access(shared, os.W_OK):
            return shared
    return run


def descendants():
    """Processes below this one, deepest last."""
    parents = {}
    for entry in os.listdir("/proc"):
        if entry.isdigit():
            try:
                stat = pathlib.Path("/proc", entry, "stat").read_text(encoding="ascii", errors="replace")
            except OSError:
                continue
            parents.setdefault(int(stat.rpartition(")")[2].split()[1]), []).append(int(entry))
    found = parents.get(os.getpid(), [])[:]
    for process in found:
        found += parents.get(process, [])
    return found


def end_descendants():
    """Kills and reaps whatever the kernel left behind: each of its processes is one of this machine."""
    for _ in range(100):
        left = descendants()
        if not left:
            return
        for process in left:
            try:
                os.kill(process, signal.SIGKILL)
            except ProcessLookupError:
                pass
        try:
            while os.waitpid(-1, os.WNOHANG)[0]:
                pass
        except ChildProcessError:
            pass
        time.sleep(0.05)


def kernel_command(given, run):
    """The kernel with its command line; what it does not know becomes the environment of its first process."""
    words = [
        given.kernel.resolve(), f"mem={MEMORY_MB}M", "root=/dev/root", "rootfstype=hostfs", "rootflags=/",
        "ro", f"init={pathlib.Path(__file__).resolve().parent / 'init.sh'}", "con0=fd:0,fd:1", "con=null",
        "ssl=null", "quiet", f"uml_dir={run / 'uml'}", f"SIDEBAND_RUN={run}",
        f"SIDEBAND_MAIN={given.program.resolve()}", *given.environment,
    ]
    if given.terminal:
        words.append(f"TERM={os.environ.get('TERM', 'dumb')}")
    else:
        words.append("SIDEBAND_OUTPUT=output")
    return words


def wait_for(kernel, run, seconds):
    """Waits for the end of the kernel and passes on what the program in it prints."""
    output = run / "output"
    output.touch()
    deadline = time.monotonic() + seconds
    with output.open("rb") as printed:
        ended = False
        while not ended:
            time.sleep(0.05)
            ended = kernel.poll() is not None or time.monotonic() > deadline
            sys.stdout.buffer.write(printed.read())
            sys.stdout.flush()


def boot(given, run):
    """Runs the kernel to its end; the program's exit status, or None where it left none."""
    environment = dict(os.environ, TMPDIR=str(memory_folder(run)))
    command = kernel_command(given, run)
    log = run / "console.log"
    if given.terminal:
        subprocess.run(command, env=environment, check=False)
    else:
        with log.open("wb") as console:
            kernel = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=console, stderr=console,
                                      env=environment, start_new_session=True)
            wait_for(kernel, run, given.seconds)
    status = run / "status"
    if status.exists():
        return int(status.read_text())
    print(f"run.py: the program in the kernel came to no end within {given.seconds} s")
    if log.exists():
        print("The last words of the kernel:")
        print(log.read_text(errors="replace")[-2000:])
    return None


def arguments():
    """The command line."""
    parser = argparse.ArgumentParser()
    parser.add_argument("--possible", action="store_true")
    parser.add_argument("--kernel", type=pathlib.Path)
    parser.add_argument("--folder", type=pathlib.Path)
    parser.add_argument("--program", type=pathlib.Path)
    parser.add_argument("--seconds", type=int, default=900)
    parser.add_argument("--terminal", action="store_true")
    parser.add_argument("--set", action="append", default=[], dest="environment", metavar="NAME=VALUE")
    parser.add_argument("words", nargs=argparse.REMAINDER)
    given = parser.parse_args()
    if not given.possible and not (given.kernel and given.folder and given.program):
        parser.error("--kernel, --folder and --program are needed")
    if any(" " in word for word in (str(given.folder), str(given.program), *given.environment)):
        parser.error("the command line of a kernel takes no paths with blanks")
    return given


def main():
    given = arguments()
    reason = reason_to_skip()
    if reason:
        print(f"skipped: {reason}")
        return SKIPPED
    if given.possible:
        return 0
    run = given.folder.resolve()
    shutil.rmtree(run, ignore_errors=True)
    run.mkdir(parents=True)
    (run / "words").write_text(json.dumps(given.words))
    # What the kernel's processes leave without a parent comes to this one, and is ended by it.
    ctypes.CDLL(None).prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0)
    try:
        status = boot(given, run)
    finally:
        end_descendants()
    return 1 if status is None else status


if __name__ == "__main__":
    sys.exit(main())
