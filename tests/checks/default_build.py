#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Checks that the README's install line builds and installs the library, the tool and nothing else.

usage: default_build.py SOURCE_DIRECTORY
"""
import json
import pathlib
import re
import subprocess
import sys
import tempfile

LINE = re.compile(r"`(meson setup build) && ninja -C build && sudo meson install -C build`")
# What is built: the libraries, the tools, and what they have in common. By name and kind.
BUILT = {("sideband", "shared library"), ("sideband-sim", "shared library"),
         ("sideband-sim", "executable"),
         ("sideband-linux", "shared library"), ("sideband", "executable"),
         ("sideband-porttest", "executable"), ("sideband-porttest", "static library"),
         ("machine_core", "static library"), ("board_file_core", "static library"),
         ("pcapng_core", "static library"), ("tool-core", "static library"), ("tool-rules", "static library"),
         ("manual-pages", "custom")}
INSTALLED = re.compile(r"libsideband(-sim|-linux)?\.so[.0-9]*$|/bin/sideband(-sim|-porttest)?$|/libsideband-porttest\.a$"
                       r"|/sideband(-sim|-linux)?\.pc$|/sideband(-sim|-linux)?/\w+\.h$"
                       r"|/cmake/sideband/sideband-config(-version)?\.cmake$|/doc/sideband/([\w-]+\.md|board\.schema\.json|pictures/\w+\.svg)$"
                       r"|/share/sideband/port\.c$|/man/man3/sideband_\w+\.3$|/man/man1/sideband(-sim|-porttest)?\.1$|/man/man7/sideband\.7$"
                       r"|/bash-completion/completions/sideband(-sim)?$|/zsh/site-functions/_sideband(-sim)?$"
                       r"|/fish/vendor_completions\.d/sideband(-sim)?\.fish$")


def meson(*arguments):
    done = subprocess.run(["meson", *arguments], capture_output=True, text=True, check=False)
    if done.returncode != 0:
        sys.exit(f"meson {' '.join(arguments)} fails:\n{done.stdout}{done.stderr}")
    return done.stdout


def main():
    source = pathlib.Path(sys.argv[1])
    found = LINE.search((source / "README.md").read_text(encoding="utf-8"))
    if not found:
        sys.exit("the README has no install line")
    with tempfile.TemporaryDirectory() as folder:
        build = str(pathlib.Path(folder) / "build")
        meson("setup", *found[1].split()[2:-1], build, str(source))
        targets = json.loads(meson("introspect", "--targets", build))
        installed = json.loads(meson("introspect", "--installed", build)).values()
        options = {each["name"]: each["value"]
                   for each in json.loads(meson("introspect", "--buildoptions", build))}
    built = {(each["name"], each["type"]) for each in targets if each["build_by_default"]}
    complaints = [f"builds {name}, a {kind}" for name, kind in sorted(built - BUILT)]
    complaints += [f"does not build {name}, a {kind}" for name, kind in sorted(BUILT - built)]
    complaints += [f"installs {path}" for path in installed if not INSTALLED.search(path)]
    if options["werror"]:
        complaints.append("takes the warnings of another compiler for errors")
    print("\n".join(complaints) or f"builds {len(built)} targets, installs {len(installed)} files")
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main())
