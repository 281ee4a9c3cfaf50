#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Checks what the built library needs and offers.

usage: symbols.py --library libsideband.so --include DIRECTORY [--readelf COMMAND]

The library may need libc, libm and the functions and records of sideband/platform.h, and nothing
else; it exports what the public headers mark SIDEBAND_EXPORT, and nothing else; it runs no code of
its own when it is loaded. Works on a library of any architecture.
"""
import argparse
import pathlib
import re
import struct
import subprocess
import sys

sys.dont_write_bytecode = True  # no __pycache__ in the source tree
from headers_text import declared_names  # noqa: E402

SONAME = "libsideband.so.0"
NEEDED = {"libc.so.6", "libm.so.6"}
# A stack protector reads its guard from the dynamic loader on ARM.
NEEDED_TOLERATED = re.compile(r"ld-linux(-armhf)?\.so\.\d+$")
# Weak references in the compiler's own start-up objects (crtbegin, crti); they may stay unresolved.
STARTUP_WEAK = {"__gmon_start__", "_ITM_deregisterTMCloneTable", "_ITM_registerTMCloneTable"}


class Library:
    def __init__(self, path, readelf):
        self.path, self.readelf = path, readelf

    def _run(self, *options):
        return subprocess.run([self.readelf, "-W", *options, self.path], check=True,
                              capture_output=True, text=True).stdout

    def dynamic(self, tag):
        return re.findall(rf"\({tag}\).*\[(.*)\]", self._run("--dynamic"))

    def symbols(self, which):
        """(name, version, bind, section) of every named symbol; version empty where it has none."""
        rows = []
        for line in self._run(which).splitlines():
            fields = line.split()
            if len(fields) < 8 or not re.fullmatch(r"\d+:", fields[0]):
                continue
            name, _, version = fields[7].partition("@")
            rows.append((name, version.lstrip("@"), fields[4], fields[6]))
        return rows

    def is_64_bit(self):
        return re.search(r"Class:\s+ELF64", self._run("--file-header")) is not None

    def section_size(self, name):
        match = re.search(rf"\]\s+{re.escape(name)}\s+\S+\s+\S+\s+\S+\s+(\S+)",
                          self._run("--section-headers"))
        return int(match.group(1), 16) if match else 0


def check_needed(library):
    """Complaints about soname and needed libraries."""
    complaints = []
    soname = library.dynamic("SONAME")
    if soname != [SONAME]:
        complaints.append(f"soname is {soname}, not {SONAME}")
    for needed in library.dynamic("NEEDED"):
        if needed not in NEEDED and not NEEDED_TOLERATED.match(needed):
            complaints.append(f"needs {needed}")
    return complaints


def check_undefined(library, platform):
    """Complaints about what the library expects others to define."""
    complaints = []
    for name, version, bind, section in library.symbols("--dyn-syms"):
        if section != "UND" or name in platform:
            continue
        if version.startswith("GLIBC_"):
            continue
        if bind == "WEAK" and name in STARTUP_WEAK:
            continue
        complaints.append(f"undefined: {name}" + (f" ({version})" if version else ""))
    return complaints


def check_exported(library, public):
    """Complaints about exports that no header declares, and the reverse."""
    exported = set()
    for name, version, bind, section in library.symbols("--dyn-syms"):
        # The version script's own name is an absolute symbol.
        if section not in ("UND", "ABS") and bind in ("GLOBAL", "WEAK", "UNIQUE"):
            exported.add(name)
    complaints = [f"exported, but in no public header: {name}" for name in sorted(exported - public)]
    complaints += [f"in a public header, but not exported: {name}"
                   for name in sorted(public - exported)]
    return complaints


def check_constructors(library):
    """Complaints about code that would run when the library is loaded."""
    complaints = []
    pointer = struct.calcsize("<Q") if library.is_64_bit() else struct.calcsize("<I")
    # One entry is the compiler's own: frame_dummy of crtbeginS.o.
    if library.section_size(".init_array") > pointer:
        entries = library.section_size(".init_array") // pointer
        complaints.append(f"{entries} entries in .init_array: a static constructor")
    if library.section_size(".ctors"):
        complaints.append("has .ctors: a static constructor")
    complaints += [f"static constructor {name}" for name, *_ in library.symbols("--syms")
                   if re.match(r"_GLOBAL__sub_I_|__static_initialization_and_destruction", name)]
    return complaints


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--library", required=True)
    parser.add_argument("--include", required=True, type=pathlib.Path)
    parser.add_argument("--readelf", default="readelf")
    arguments = parser.parse_args()

    headers = sorted((arguments.include / "sideband").glob("*.h"))
    platform = declared_names((arguments.include / "sideband" / "platform.h").read_text())
    public = set()
    for header in headers:
        public |= declared_names(header.read_text(), marked_with="SIDEBAND_EXPORT")
    if not platform or not public:
        print(f"no declarations found below {arguments.include}")
        return 1

    library = Library(arguments.library, arguments.readelf)
    complaints = (check_needed(library) + check_undefined(library, platform)
                  + check_exported(library, public) + check_constructors(library))
    for complaint in complaints:
        print(f"{arguments.library}: {complaint}")
    if not complaints:
        used = {row[0] for row in library.symbols("--dyn-syms") if row[3] == "UND"} & platform
        print(f"{arguments.library}: exports the {len(public)} public names, uses {len(used)} of "
              f"{len(platform)} platform names, needs {', '.join(library.dynamic('NEEDED'))}")
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main())
