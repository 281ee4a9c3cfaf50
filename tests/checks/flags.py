#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Checks that a distribution's own flags reach every compiler and linker line, and that nothing takes them back.

usage: flags.py SOURCE_DIRECTORY    configures a build as Debian's packages are built, and looks at its lines
       flags.py --build DIRECTORY   looks at those of a build that was made so

The flags are those of dpkg-buildflags, hardening=+all. What was built by other people's compilers must not fail on
warnings either.
"""
import argparse
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile

MAINTAINER = {"DEB_BUILD_MAINT_OPTIONS": "hardening=+all"}
# What would take one of them back, wherever it stands.
WEAKER = re.compile(r"-fno-(stack-protector|stack-clash-protection|pie|PIE)|-U_FORTIFY_SOURCE|-fcf-protection=none"
                    r"|-Wno-error|-Wno-format(-security)?|-Werror|-w"
                    r"|-Wl,-z,(norelro|lazy|execstack)")


def buildflags():
    lines = subprocess.run(["dpkg-buildflags", "--export=cmdline"], check=True, capture_output=True, text=True,
                           env=dict(os.environ, **MAINTAINER)).stdout
    return dict(word.split("=", 1) for word in shlex.split(lines))


def comparable(words):
    """Without what names the folder of the build."""
    return [word for word in words if not word.startswith(("-ffile-prefix-map=", "-fdebug-prefix-map="))]


def line_complaints(place, words, wanted):
    complaints = [f"{place}: lacks {flag}" for flag in wanted if flag not in words]
    complaints += [f"{place}: has {word}" for word in words if WEAKER.fullmatch(word) and word not in wanted]
    for kind in (r"-O\w*", r"-g\d?", r"-D_FORTIFY_SOURCE=\d", r"-fstack-protector\w*(-\w+)?"):
        given = [word for word in wanted if re.fullmatch(kind, word)]
        found = [word for word in words if re.fullmatch(kind, word)]
        if given and found and found[-1] != given[-1]:
            complaints.append(f"{place}: {found[-1]} has the last word, not {given[-1]}")
    return complaints


def build_complaints(build, flags):
    """(complaints, lines) of every compile line and link line."""
    compiled = json.loads((build / "compile_commands.json").read_text(encoding="utf-8"))
    wanted = comparable(shlex.split(flags["CXXFLAGS"]) + shlex.split(flags["CPPFLAGS"]))
    complaints = []
    for each in compiled:
        complaints += line_complaints(each["file"], shlex.split(each["command"]), wanted)
    wanted = comparable(shlex.split(flags["LDFLAGS"]))
    links = re.findall(r"^build ([^:\n]+): cpp_LINKER .*\n(?: .*\n)*? LINK_ARGS = (.*)$",
                       (build / "build.ninja").read_text(encoding="utf-8"), re.MULTILINE)
    for name, line in links:
        # ninja's own escapes are of no matter to the flags.
        complaints += line_complaints(name, shlex.split(line.replace("$", "")), wanted)
    return complaints, len(compiled), len(links)


def configure(source, build, flags):
    environment = {**os.environ, **flags, "CXX": "g++", "CC": "gcc"}
    done = subprocess.run(
        ["meson", "setup", "--buildtype=plain", "--prefix=/usr", "--auto-features=enabled", "-Ddefault_library=both",
         str(build), str(source)], env=environment, capture_output=True, text=True, check=False)
    if done.returncode != 0:
        sys.exit(f"meson setup fails:\n{done.stdout}{done.stderr}")
    options = json.loads(subprocess.run(["meson", "introspect", "--buildoptions", str(build)], check=True,
                                        capture_output=True, text=True).stdout)
    if next(each["value"] for each in options if each["name"] == "werror"):
        sys.exit("takes the warnings of another compiler for errors")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", type=pathlib.Path)
    parser.add_argument("source", nargs="?")
    arguments = parser.parse_args()
    flags = buildflags()
    if arguments.build:
        complaints, compiled, linked = build_complaints(arguments.build, flags)
    else:
        with tempfile.TemporaryDirectory() as name:
            build = pathlib.Path(name) / "build"
            configure(pathlib.Path(arguments.source).resolve(), build, flags)
            complaints, compiled, linked = build_complaints(build, flags)
    print("\n".join(complaints[:40]) or f"{compiled} compile lines and {linked} link lines have the flags of dpkg-buildflags")
    return 1 if complaints or not compiled or not linked else 0


if __name__ == "__main__":
    sys.exit(main())
