#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Checks what the built library needs and offers.

usage: symbols.py --library libsideband.so --include DIRECTORY [--unfortified] [--readelf COMMAND]

The library may need libc, libm and the functions and records of sideband/platform.h, and nothing
else, and of libc nothing that asks for an environment variable; it exports what the public headers
mark SIDEBAND_EXPORT, and nothing else; it runs no code of its own when it is loaded. It has a stack
protector, libc's checks of lengths (unless it is unfortified: built without an optimizer) and an
offset table that nothing writes to once it is loaded. Works on a library of any architecture.
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
# A stack protector reads its guard from the dynamic loader on ARM. That is a part of libc, and every
# program has it in memory.
NEEDED_TOLERATED = re.compile(r"ld(64|-linux(-armhf|-aarch64)?)\.so\.\d+$")
# Weak references in the compiler's own start-up objects (crtbegin, crti); they may stay unresolved.
STARTUP_WEAK = {"__gmon_start__", "_ITM_deregisterTMCloneTable", "_ITM_registerTMCloneTable"}
# What a program can do with its environment by itself; system() only passes it on.
ENVIRONMENT = {"getenv", "secure_getenv", "__secure_getenv", "environ", "_environ", "__environ", "setenv", "putenv",
               "unsetenv", "clearenv"}


class Library:
    def __init__(self, path, readelf):
        self.path, self.readelf = path, readelf

    def _run(self, *options):
        return subprocess.run([self.readelf, "-W", *options, self.path], check=True,
                              capture_output=True, text=True).stdout

    def dynamic(self, tag):
        return re.findall(rf"\({tag}\).*\[(.*)\]", self._run("--dynamic"))

    def symbols(self, which):
        """(name, version, bind, section) of every named symbol; version empty if it has none."""
        rows = []
        for line in self._run(which).splitlines():
            fields = line.split()
            if len(fields) < 8 or not re.fullmatch(r"\d+:", fields[0]):
                continue
            name, _, version = fields[7].partition("@")
            rows.append((name, version.lstrip("@"), fields[4], fields[6]))
        return rows

    def loads(self, segment):
        return re.search(rf"^\s*{segment}\s", self._run("--program-headers"), re.MULTILINE) is not None

    def binds_at_once(self):
        return re.search(r"\(FLAGS\).*BIND_NOW|\(FLAGS_1\).*NOW|\(BIND_NOW\)",
                         self._run("--dynamic")) is not None

    def has_executable_stack(self):
        return re.search(r"^\s*GNU_STACK\s.*\sRWE\s", self._run("--program-headers"),
                         re.MULTILINE) is not None

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
        if name in ENVIRONMENT:
            complaints.append(f"uses its environment: {name}")
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


def check_hardening(library, fortified):
    """Complaints about protection that the library was built without."""
    imports = {name for name, _, _, section in library.symbols("--dyn-syms") if section == "UND"}
    complaints = []
    if "__stack_chk_fail" not in imports:
        complaints.append("has no stack protector: does not use __stack_chk_fail")
    if fortified and not any(re.fullmatch(r"__\w+_chk", name) for name in imports):
        complaints.append("is not fortified: uses no function of libc that checks a length")
    if not library.loads("GNU_RELRO") or not library.binds_at_once():
        complaints.append("its offset table stays writable: no RELRO, or not bound when loaded")
    if library.has_executable_stack():
        complaints.append("asks for a stack that code can run on")
    return complaints


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--library", required=True)
    parser.add_argument("--include", required=True, type=pathlib.Path)
    parser.add_argument("--unfortified", action="store_true")
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
                  + check_exported(library, public) + check_constructors(library)
                  + check_hardening(library, not arguments.unfortified))
    for complaint in complaints:
        print(f"{arguments.library}: {complaint}")
    if not complaints:
        used = {row[0] for row in library.symbols("--dyn-syms") if row[3] == "UND"} & platform
        print(f"{arguments.library}: exports the {len(public)} public names, uses {len(used)} of "
              f"{len(platform)} platform names, needs {', '.join(library.dynamic('NEEDED'))}")
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main())
