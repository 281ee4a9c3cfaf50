#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""What ./dev kernel --shell runs in its kernel: the built-in board attached, and a shell or a command beside it.

Environment: SIDEBAND_SIM (the program), SIDEBAND_RUN (folder of the run); SIDEBAND_RUN/words holds the words of the
command as JSON, none for a shell.
"""
import json
import os
import pathlib
import subprocess
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tests" / "kernel"))
from machine import OWN_EID, Machine  # noqa: E402  pylint: disable=wrong-import-position


def main():
    program, folder = os.environ["SIDEBAND_SIM"], pathlib.Path(os.environ["SIDEBAND_RUN"])
    words = json.loads((folder / "words").read_text())
    with Machine(program, folder) as machine:
        if words:
            return subprocess.run(words, stdin=subprocess.DEVNULL, check=False).returncode
        print(f"The board is behind {machine.line.interface}, this machine is EID {OWN_EID} of network 1:")
        for endpoint in machine.served.document["endpoints"]:
            print(f"  mctp:1,{endpoint['eid']:<4} {endpoint['name']}")
        print("Everything but this folder is read-only. exit ends the kernel.", flush=True)
        # The console becomes the terminal of the shell, so that Ctrl-C reaches what runs in it.
        with open("/dev/console", "r+b", buffering=0) as console:
            return subprocess.run(["setsid", "--ctty", "--wait", "bash", "--norc", "-i"], stdin=console,
                                  stdout=console, stderr=console, check=False,
                                  env=dict(os.environ, PS1="kernel# ")).returncode


if __name__ == "__main__":
    sys.exit(main())
