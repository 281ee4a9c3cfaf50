#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Holds the names of the interface in docs/abi.md against sideband.map and the headers.

usage: abi_page.py SOURCE_ROOT

A name that the library exports begins as the page says that most do, or stands in its list; the list has no others.
"""
import pathlib
import re
import sys

sys.dont_write_bytecode = True  # no __pycache__ in the source tree
import headers_text  # noqa: E402

SENTENCE = re.compile(r"^## Names that others may have\n\n.*?\bMost begin with (.*?);\s*these\s+do not: (.*?)\. ",
                      re.M | re.S)
GLOBAL = re.compile(r"\bglobal:(.*?)\blocal:", re.S)


def exported(root):
    """(plain names, what patterns begin with) of the version script."""
    entries = re.findall(r"([\w*]+);", GLOBAL.search((root / "sideband.map").read_text(encoding="utf-8"))[1])
    return ({entry for entry in entries if not entry.endswith("*")},
            {entry[:-1] for entry in entries if entry.endswith("*")})


def declared(root):
    return {name for header in sorted((root / "include" / "sideband").glob("*.h"))
            for name in headers_text.declared_names(header.read_text(encoding="utf-8"), "SIDEBAND_EXPORT")}


def complaints_of(root):
    """(complaints, number of names in the list)"""
    found = SENTENCE.search((root / "docs" / "abi.md").read_text(encoding="utf-8"))
    if not found:
        return ["docs/abi.md: the sentence with the names is not found"], 0
    beginnings, listed = (re.findall(r"`(\w+)`", part) for part in found.groups())
    plain, patterns = exported(root)
    rest = {name for name in declared(root) if name.startswith(tuple(patterns))}
    wanted = {name for name in plain | rest if not name.startswith(tuple(beginnings))}
    complaints = [f"docs/abi.md: {name}* is no pattern of sideband.map" for name in sorted(set(beginnings) - patterns)]
    complaints += [f"docs/abi.md: {name} is not in the list" for name in sorted(wanted - set(listed))]
    complaints += [f"docs/abi.md: {name} is in the list, and not exported beside the others"
                   for name in sorted(set(listed) - wanted)]
    return complaints, len(listed)


def main():
    complaints, names = complaints_of(pathlib.Path(sys.argv[1]))
    print("\n".join(complaints) or f"{names} names")
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main())
