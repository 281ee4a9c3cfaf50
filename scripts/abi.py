#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Compares the binary interface with its record, or records it anew (docs/abi.md).

usage: abi.py [--record] --folder packaging/abi ARCHITECTURE=LIBRARY=COMPILER...

The record holds, for each architecture, what abidw says of libsideband.abi, the library's own interface, and of
platform.abi, what a port supplies, both compressed; and for all of them constants.txt, the values of the public macros. abidw gets
the public headers and nothing else: a C file that defines every function and record that they declare. The names,
versions and sizes of what the built library exports are held against it.
"""
import argparse
import lzma
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.dont_write_bytecode = True  # no __pycache__ in the source tree
sys.path.insert(0, str(ROOT / "tests" / "checks"))
from headers_text import declarations  # noqa: E402

INCLUDE = ROOT / "include"
LIBRARY_HEADERS = sorted((INCLUDE / "sideband").glob("*.h"))
# What comes with the platform libraries of the project is declared beside the functions of a port.
PLATFORM_HEADERS = [INCLUDE / "sideband" / "platform.h", ROOT / "platform/sim/sideband-sim/sim.h",
                    ROOT / "platform/linux/sideband-linux/linux.h"]
COMPACT = ("--no-show-locs", "--no-corpus-path", "--no-comp-dir-path", "--no-elf-needed",
           "--no-parameter-names", "--load-all-types")
# A macro with a value; a list of members is none.
CONSTANT = re.compile(r"#define (\w+(?:\([^)]*\))?) ([^;]+)")
# What is no promise: include guards, compiler support, the version itself.
NO_CONSTANT = re.compile(r"SIDEBAND_(\w+_H$|BEGIN|END|EXPORT|PRINTF|PACKED|ANONYMOUS|STATIC|VERSION)")


def run(*command, **options):
    done = subprocess.run([str(word) for word in command], capture_output=True, text=True, check=False,
                          **options)
    if done.returncode != 0:
        sys.exit(f"{command[0]} ended with {done.returncode}:\n{done.stdout}{done.stderr}")
    return done.stdout


def exported(library):
    """name -> (version, kind, size) of what a library exports; functions have no size that matters."""
    found = {}
    for line in run("readelf", "-W", "--dyn-syms", library).splitlines():
        fields = line.split()
        if len(fields) < 8 or not re.fullmatch(r"\d+:", fields[0]) or fields[3] == "SECTION" \
                or fields[6] in ("UND", "ABS"):
            continue
        name, _, version = fields[7].partition("@")
        kind = fields[3]
        found[name] = (version.lstrip("@"), kind, int(fields[2], 0) if kind == "OBJECT" else 0)
    return found


def definition(declaration, sizes):
    """The definition of what a header declares; a table without a length has that of the built library."""
    text = re.sub(r"\bSIDEBAND_PRINTF\s*\([^)]*\)", "", declaration.text).strip()
    if declaration.is_function:
        return text + " { __builtin_trap(); }"
    text = re.sub(r"\bextern\b", "", text)
    size = sizes.get(declaration.name, ("", "", 0))[2]
    return re.sub(r"\[\s*\]", f"[{size} / sizeof(*{declaration.name})]", text) + ";"


def write_stub(path, headers, marked_with, sizes):
    lines = []
    for header in headers:
        text = header.read_text(encoding="utf-8")
        lines += [definition(each, sizes) for each in declarations(text, marked_with)]
    includes = [f'#include "{header}"' for header in headers]
    path.write_text("\n".join(includes + lines) + "\n", encoding="utf-8")


def describe(folder, name, compiler, headers, library=None):
    """Compiles a stub of the headers and returns what abidw says of it."""
    sizes = exported(library) if library else {}
    source, stub = folder / f"{name}.c", folder / f"{name}.so"
    write_stub(source, headers, "SIDEBAND_EXPORT" if library else None, sizes)
    link = [f"-Wl,--version-script={ROOT / 'sideband.map'}"] if library else []
    run(*shlex.split(compiler), "-std=gnu11", "-g", "-O0", "-w", "-fPIC", "-shared", "-nostdlib",
        f"-I{INCLUDE}", *link, f"-Wl,-soname,{library.name if library else name}", source.name, "-o", stub.name, cwd=folder)
    if library and (complaints := differences(exported(stub), sizes)):
        sys.exit("\n".join(f"{library}: {text}" for text in complaints))
    return run("abidw", *COMPACT, "--headers-dir", INCLUDE, stub)


def differences(declared, built):
    """Complaints about a library whose exports are not those that its headers declare."""
    complaints = []
    for name in sorted(declared.keys() | built.keys()):
        if declared.get(name) != built.get(name):
            complaints.append(f"{name}: the headers say {declared.get(name)}, the library {built.get(name)}")
    return complaints


def constants(compiler):
    """The public macros with their text, one a line."""
    headers = [*LIBRARY_HEADERS, *PLATFORM_HEADERS]
    text = "".join(header.read_text(encoding="utf-8") for header in headers)
    names = {name for name in re.findall(r"^#define (\w+)", text, re.MULTILINE) if not NO_CONSTANT.match(name)}
    arguments = [word for header in headers for word in ("-include", header)]
    lines = run(*shlex.split(compiler), "-dM", "-E", "-x", "c", "-std=gnu11", f"-I{INCLUDE}", *arguments,
                "/dev/null").splitlines()
    found = [each for each in map(CONSTANT.fullmatch, lines) if each and each[1].partition("(")[0] in names]
    return "".join(sorted(f"{each[1]} {each[2]}\n" for each in found))


def compare(recorded, found):
    """Prints how a description differs from the recorded one; whether it does."""
    if not recorded.exists():
        print(f"{recorded}: not recorded")
        return True
    before = found.with_suffix(".before.abi")
    before.write_bytes(lzma.decompress(recorded.read_bytes()))
    done = subprocess.run(["abidiff", "--harmless", "--non-reachable-types", "--no-show-locs", before, found], capture_output=True,
                          text=True, check=False)
    # Bits 0 and 1 are errors of abidiff itself, the others tell of changes.
    if done.returncode & 3:
        sys.exit(f"abidiff ended with {done.returncode}:\n{done.stdout}{done.stderr}")
    if done.returncode != 0 or done.stdout.strip():
        print(f"{recorded} differs:\n{done.stdout}")
        return True
    return False


def compare_constants(recorded, found):
    before = set(recorded.read_text(encoding="utf-8").splitlines()) if recorded.exists() else set()
    after = set(found.splitlines())
    changes = [f"  - {line}" for line in sorted(before - after)] + [f"  + {line}" for line in sorted(after - before)]
    if changes:
        print("\n".join([f"{recorded} differs:", *changes]))
    return bool(changes)


def check_architecture(record, library, compiler, renew):
    """Whether one architecture differs from its record; renews the record if that is wanted."""
    differs = False
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        found = {"libsideband": describe(folder, "libsideband", compiler, LIBRARY_HEADERS, library),
                 "platform": describe(folder, "platform", compiler, PLATFORM_HEADERS)}
        for part, text in found.items():
            path = folder / f"{part}.abi"
            path.write_text(text, encoding="utf-8")
            recorded = record / f"{part}.abi.xz"
            changed = compare(recorded, path)
            if changed and renew:
                record.mkdir(parents=True, exist_ok=True)
                recorded.write_bytes(lzma.compress(text.encode(), preset=9))
            differs |= changed
    return differs


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--record", action="store_true")
    parser.add_argument("--folder", required=True, type=pathlib.Path)
    parser.add_argument("target", nargs="+")
    arguments = parser.parse_args()
    record = arguments.folder
    record.mkdir(parents=True, exist_ok=True)
    differs = False
    for target in arguments.target:
        architecture, library, compiler = target.split("=")
        differs |= check_architecture(record / architecture, pathlib.Path(library).resolve(), compiler,
                                      arguments.record)
    text = constants(compiler)
    differs |= compare_constants(record / "constants.txt", text)
    if arguments.record:
        (record / "constants.txt").write_text(text, encoding="utf-8")
        print("recorded")
        return 0
    print("the interface is not as recorded: see docs/abi.md" if differs else
          f"the interface is as recorded, on {len(arguments.target)} architectures")
    return 1 if differs else 0


if __name__ == "__main__":
    sys.exit(main())
