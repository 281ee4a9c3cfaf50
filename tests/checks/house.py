#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Checks the house rules that a machine can check: who includes whom, how a file opens.

usage: house.py SOURCE_ROOT

Library folders may include those below them only, the simulated board nothing of the library but
sideband/platform.h, and nothing in the library the platform, the tools or the tests. Rooms of the
tool share the shell and nothing else. Every source file opens with the licence line and a comment
that says what it is for, and leaves no work undone.
"""
import pathlib
import re
import sys

LIBRARY = ("common", "transport", "pldm", "ncsi", "NVMeMI")
# Folder -> project folders that it may include, besides the public headers.
MAY_INCLUDE = {
    "include": (),
    "common": ("common",),
    "transport": ("common", "transport"),
    "pldm": ("common", "transport", "pldm"),
    "ncsi": ("common", "transport", "ncsi"),
    "NVMeMI": ("common", "transport", "NVMeMI"),
}
# The tool's rooms stand beside one another on the shell, which knows none of them; the tour is on top
# of all, and so is what lies in tools/ itself.
TOOL_SHELL = "shell"
TOOL_TOP = ("demo",)
# Spelt in pieces, so that no file of the project holds the words themselves.
UNFINISHED = re.compile(r"\b(" + "|".join(("TO" + "DO", "FIX" + "ME", "XX" + "X", "HA" + "CK")) + r")\b")
LICENCE = re.compile(r"^(//|/\*|#) SPDX-License-Identifier: Apache-2\.0( \*/)?$")


def included(text):
    return re.findall(r'^[ \t]*#[ \t]*include[ \t]*[<"]([^>"]+)[>"]', text, flags=re.M)


def include_complaints(path, text, root):
    """Complaints about the includes of one file of the library or the simulated board."""
    complaints = []
    folder = path.relative_to(root).parts[0]
    project_folders = {entry.name for entry in root.iterdir() if entry.is_dir()}
    for name in included(text):
        first = name.split("/")[0]
        local = (path.parent / name).exists()
        if folder in MAY_INCLUDE:
            foreign = first in project_folders and first not in MAY_INCLUDE[folder]
            if foreign or name.startswith(("..", "sideband-sim/")):
                complaints.append(f"{path}: includes {name}")
        elif path.is_relative_to(root / "platform" / "sim"):
            of_library = first in (*LIBRARY, "include", "testing", "tools", "tests")
            # MCTP_binding_SMBUS() and MCTP_binding_PCIE() fill a caller's mctp_ctx: whoever supplies
            # them has to know the record, here as in firmware. No other file needs it.
            allowed = {"sideband/platform.h"}
            if path.name == "card.cpp" and path.parent.name == "port":
                allowed.add("sideband/mctp.h")
            if (first == "sideband" and name not in allowed) or (of_library and not local):
                complaints.append(f"{path}: includes {name}")
    return complaints


def room_complaints(path, text, root):
    """Complaints about the includes of one file of the tool from another of its rooms."""
    rooms = path.relative_to(root / "tools").parts[:-1]
    if not rooms or rooms[0] in TOOL_TOP:
        return []
    complaints = []
    for name in included(text):
        parts = pathlib.PurePosixPath(name).parts
        known = parts[0] == "tools" and len(parts) > 2 and parts[1] in (rooms[0], TOOL_SHELL)
        if ".." in parts or (parts[0] == "tools" and not known):
            complaints.append(f"{path}: includes {name}")
    return complaints


def opening_complaints(path, text):
    """Complaints about the first lines of a file and about work it leaves open."""
    complaints = []
    lines = text.splitlines()
    if not lines or not LICENCE.match(lines[0]):
        complaints.append(f"{path}: does not open with the licence line")
    elif len(lines) < 2 or not re.match(r"^(//|/\*)", lines[1]):
        complaints.append(f"{path}: the second line does not say what the file is for")
    for number, line in enumerate(lines, 1):
        if UNFINISHED.search(line):
            complaints.append(f"{path}:{number}: unfinished work")
    return complaints


def main():
    root = pathlib.Path(sys.argv[1]).resolve()
    complaints, count = [], 0
    folders = (*LIBRARY, "include", "platform", "tools", "testing", "tests", "bench", "fuzz", "examples")
    for folder in folders:
        for path in sorted((root / folder).rglob("*")):
            if path.suffix not in (".cpp", ".h", ".c") or not path.is_file():
                continue
            count += 1
            text = path.read_text()
            complaints += include_complaints(path, text, root) + opening_complaints(path, text)
            if folder == "tools":
                complaints += room_complaints(path, text, root)
    for complaint in complaints:
        print(complaint)
    print(f"{count} files: {len(complaints)} complaints")
    return 1 if complaints or not count else 0


if __name__ == "__main__":
    sys.exit(main())
