#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Compiles every public header alone, as C11 and as C++20, with warnings as errors.

usage: headers.py --include DIRECTORY --compiler "COMMAND" [--compiler "COMMAND" ...]
"""
import argparse
import pathlib
import shlex
import subprocess
import sys

LANGUAGES = (("c", "c11"), ("c++", "c++20"))
WARNINGS = ("-Wall", "-Wextra", "-Wpedantic", "-Werror")


def compiles(compiler, include, header, language, standard):
    """None if the header compiles, else what the compiler said."""
    # Included twice: a header must stand a second inclusion too.
    source = f"#include <{header}>\n#include <{header}>\n"
    command = [*compiler, "-x", language, f"-std={standard}", *WARNINGS, f"-I{include}",
               "-fsyntax-only", "-"]
    done = subprocess.run(command, input=source, capture_output=True, text=True)
    return None if done.returncode == 0 else done.stderr


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--include", required=True, type=pathlib.Path)
    parser.add_argument("--compiler", required=True, action="append")
    arguments = parser.parse_args()
    headers = sorted(str(path.relative_to(arguments.include))
                     for path in arguments.include.rglob("*.h"))
    if not headers:
        print(f"no header below {arguments.include}")
        return 1

    failures = 0
    for compiler in arguments.compiler:
        for header in headers:
            for language, standard in LANGUAGES:
                said = compiles(shlex.split(compiler), arguments.include, header, language, standard)
                if said is not None:
                    failures += 1
                    print(f"{compiler}: {header} as {standard}:\n{said}")
    print(f"{len(headers)} headers, {len(arguments.compiler)} compilers, "
          f"{len(LANGUAGES)} languages: {failures} failures")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
