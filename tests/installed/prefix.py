# SPDX-License-Identifier: Apache-2.0
"""The library installed into a folder of its own, and what it takes to compile and run against it."""
import argparse
import os
import shlex
import subprocess
import sys


def run(command, status=0, **options):
    """Runs a command and returns its standard output and error; one with another status ends the test."""
    done = subprocess.run(command, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          check=False, **options)
    if done.returncode != status:
        sys.exit(f"{command} ended with {done.returncode}, not {status}:\n{done.stdout}")
    return done.stdout


def parser():
    """The arguments that every script of this folder takes."""
    made = argparse.ArgumentParser()
    for name in ("--build", "--cc", "--cxx"):
        made.add_argument(name, required=True)
    made.add_argument("--sanitize", default="none")
    return made


def compiler(command, sanitize):
    """What compiles for a library that was built so."""
    # A sanitized library needs its run-time library in the program; no part of what users type.
    if sanitize == "none":
        return command
    clang = " -fsanitize-link-c++-runtime -lstdc++" if "clang" in command else ""
    return f"{command} -fsanitize={sanitize}{clang}"


class Prefix:
    def __init__(self, folder, arguments):
        self.folder, self.root = folder, folder / "root"
        self.sanitize = arguments.sanitize
        self.compilers = {"c": compiler(arguments.cc, self.sanitize), "c++": compiler(arguments.cxx, self.sanitize)}
        run(["meson", "install", "-C", arguments.build, "--no-rebuild", "--destdir", str(self.root)])
        self.packages = self._only("sideband.pc").parent
        self.libraries = self._only("libsideband.so").parent
        self.headers = self._only("mctp.h").parent.parent

    def _only(self, name):
        found = list(self.root.rglob(name))
        if len(found) != 1:
            sys.exit(f"installed as {name}: {found}")
        return found[0]

    def environment(self, **more):
        """pkg-config finds this installation and no other, as do programs that run."""
        return dict(os.environ, PKG_CONFIG_LIBDIR=str(self.packages),
                    PKG_CONFIG_SYSROOT_DIR=str(self.root), LD_LIBRARY_PATH=str(self.libraries), **more)

    def shell(self, line):
        """Runs a line as a user types it, with the compilers of this build in the place of cc and c++."""
        environment = self.environment()
        del environment["LD_LIBRARY_PATH"]  # the compiler is none of ours
        functions = "; ".join(f'{name}() {{ command {self.compilers[language]} "$@"; }}'
                              for name, language in (("cc", "c"), ("cxx", "c++")))
        return run(["sh", "-ec", f"{functions}\n{line}"], cwd=self.folder, env=environment)

    def execute(self, program, *arguments, status=0):
        """Runs a program of this folder and returns what it printed."""
        wrapper = shlex.split(os.environ.get("MESON_EXE_WRAPPER", ""))
        return run([*wrapper, str(self.folder / program), *map(str, arguments)], status, env=self.environment())
