#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Checks that the library bears others that export names of its own: libnvme in the same process, in every order,
linked and loaded at run time; that a program's debug_log() stays out of its way if the program is built so; and that a
function has one address.

usage: names.py --library libsideband.so --sim libsideband-sim.so --include DIRECTORY --sim-include DIRECTORY
"""
import argparse
import pathlib
import subprocess
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent / "names"
SHARED = ("nvme_format_nvm", "nvme_get_log_page", "nvme_identify")


def run(*command, cwd=None):
    done = subprocess.run([str(word) for word in command], cwd=cwd, text=True, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, check=False)
    if done.returncode != 0:
        sys.exit(f"{' '.join(map(str, command))} ended with {done.returncode}:\n{done.stdout[-2000:]}")
    return done.stdout


def libnvme():
    """The path of the library that the linker takes."""
    return run("cc", "-print-file-name=libnvme.so").strip()


def defined_names(library):
    rows = run("nm", "-D", "--defined-only", library).splitlines()
    return {row.split()[2].partition("@")[0] for row in rows}


class Programs:
    def __init__(self, folder, arguments):
        self.folder = folder
        self.library, self.sim = arguments.library.resolve(), arguments.sim.resolve()
        self.includes = [f"-I{arguments.include.resolve()}", f"-I{arguments.sim_include.resolve()}"]
        self.rpath = f"-Wl,-rpath,{self.library.parent}:{self.sim.parent}:{folder}"

    def compile(self, source, output, *words):
        run("cc", "-std=gnu11", "-Wall", "-Wextra", "-Werror", *self.includes, HERE / source, *words, self.rpath,
            "-o", self.folder / output, cwd=self.folder)

    def together(self):
        """Both libraries behind plug-ins that are linked, whichever comes first."""
        self.compile("with_sideband.c", "libwith_sideband.so", "-shared", "-fPIC", self.library, self.sim)
        self.compile("with_libnvme.c", "libwith_libnvme.so", "-shared", "-fPIC", "-lnvme")
        for order in (("with_sideband", "with_libnvme"), ("with_libnvme", "with_sideband")):
            self.compile("both.c", "both", f"-L{self.folder}", *(f"-l{name}" for name in order))
            run(self.folder / "both")

    def loaded(self):
        self.compile("loaded.c", "loaded", "-ldl")
        run(self.folder / "loaded", self.sim, self.library, libnvme())

    def own_log(self):
        """A program's own function is called by the library, unless it is hidden or the library loaded apart."""
        linked = (self.library, self.sim)
        for words, files, called in ((("-fvisibility=default", *linked), (), "yes"),
                                     (("-fvisibility=hidden", *linked), (), "no"),
                                     (("-DLOADED", "-rdynamic", "-ldl"), (self.sim, self.library), "no")):
            self.compile("own_log.c", "own_log", *words)
            said = run(self.folder / "own_log", *files)
            if not said.endswith(f"called: {called}\n"):
                sys.exit(f"with {words[0]} the program's debug_log() should be called: {called}\n{said[-500:]}")

    def addresses(self):
        """The functions that are handed out and compared have one address in the process."""
        self.compile("addresses.c", "addresses", "-fno-pie", "-no-pie", self.library, self.sim)
        run(self.folder / "addresses")


def main():
    parser = argparse.ArgumentParser()
    for name in ("--library", "--sim", "--include", "--sim-include"):
        parser.add_argument(name, required=True, type=pathlib.Path)
    arguments = parser.parse_args()
    # What docs/abi.md tells. If it is not so any more, its list and the plug-ins have to follow.
    found = sorted(defined_names(libnvme()) & defined_names(arguments.library))
    if found != list(SHARED):
        sys.exit(f"names that libnvme has too: {found}; docs/abi.md says {list(SHARED)}")
    with tempfile.TemporaryDirectory() as name:
        programs = Programs(pathlib.Path(name), arguments)
        programs.together()
        programs.loaded()
        programs.own_log()
        programs.addresses()
    print(f"libsideband and libnvme, which share {len(found)} names, keep to their own in one process")
    return 0


if __name__ == "__main__":
    sys.exit(main())
