# SPDX-License-Identifier: Apache-2.0
# Installs the library into a temporary folder and tries the README's program as the README says.
"""Usage: installed_example.py --build DIR --example FILE --readme FILE --cc COMMAND
                            [--sanitize LIST] TOOL

TOOL is not run: Meson sets MESON_EXE_WRAPPER for tests that get a program of the target machine.
"""

import argparse
import os
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile

# What a reader of the README types.
COMPILE = "cc read_sensor.c $(pkg-config --cflags --libs sideband sideband-sim) -o read_sensor"
# The GPU of the built-in board: its EID, and its temperature soon after power-on.
RESULT = re.compile(r"^EID 29: (\d+\.\d{3}) degC$", re.MULTILINE)
LOWEST, HIGHEST = 55.0, 83.0


def run(command, **options):
    """Runs a command and returns its standard output; a failing one ends the test."""
    done = subprocess.run(command, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          **options)
    if done.returncode != 0:
        sys.exit(f"{command} ended with {done.returncode}:\n{done.stdout}")
    return done.stdout


def check_readme(readme, program):
    """The README shows the very program and the very command."""
    text = readme.read_text(encoding="utf-8")
    blocks = re.findall(r"^```c\n(.*?)^```$", text, re.MULTILINE | re.DOTALL)
    if program not in blocks:
        sys.exit(f"{readme} has no C block with exactly the text of the example")
    if COMPILE not in text:
        sys.exit(f"{readme} does not tell the command: {COMPILE}")


def install(build, root):
    """Installs into a folder and returns where the pkg-config files and the libraries lie there."""
    run(["meson", "install", "-C", build, "--no-rebuild", "--destdir", str(root)])
    packages = list(root.rglob("sideband.pc"))
    libraries = list(root.rglob("libsideband.so"))
    if len(packages) != 1 or len(libraries) != 1:
        sys.exit(f"installed: {packages} {libraries}")
    return packages[0].parent, libraries[0].parent


def compile_example(folder, packages, root, cc, sanitize):
    """Runs the README's command, with the compiler of this build in the place of cc."""
    environment = dict(os.environ, PKG_CONFIG_LIBDIR=str(packages),
                       PKG_CONFIG_SYSROOT_DIR=str(root))
    # A sanitized library needs its run-time library in the program; no part of the README.
    compiler = cc + (f" -fsanitize={sanitize}" if sanitize != "none" else "")
    if sanitize != "none" and "clang" in cc:
        compiler += " -fsanitize-link-c++-runtime -lstdc++"  # the libraries are C++, the program is not
    run(["sh", "-c", f'cc() {{ command {compiler} "$@"; }}; {COMPILE}'], cwd=folder, env=environment)


def main():
    parser = argparse.ArgumentParser()
    for name in ("--build", "--example", "--readme", "--cc"):
        parser.add_argument(name, required=True)
    parser.add_argument("--sanitize", default="none")
    parser.add_argument("tool")
    arguments = parser.parse_args()

    program = pathlib.Path(arguments.example).read_text(encoding="utf-8")
    check_readme(pathlib.Path(arguments.readme), program)
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        root = folder / "root"
        (folder / "read_sensor.c").write_text(program, encoding="utf-8")
        packages, libraries = install(arguments.build, root)
        compile_example(folder, packages, root, arguments.cc, arguments.sanitize)
        wrapper = shlex.split(os.environ.get("MESON_EXE_WRAPPER", ""))
        output = run(wrapper + [str(folder / "read_sensor")],
                     env=dict(os.environ, LD_LIBRARY_PATH=str(libraries)))
    found = RESULT.search(output)
    if not found or not LOWEST <= float(found.group(1)) <= HIGHEST:
        sys.exit(f"the program printed no temperature of the GPU:\n{output}")
    print(found.group(0))


if __name__ == "__main__":
    main()
