#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Checks the house rules that a machine can check: who includes whom, how a file opens.

usage: house.py SOURCE_ROOT

Library folders may include those below them only, a platform nothing of the library but
sideband/platform.h and of the other platforms nothing but what they share, and nothing in the library
the platform, the tools or the tests. Rooms of the tool share the shell and nothing else. Every source
file opens with the licence line and a comment that says what it is for, and leaves no work undone.
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
    # The judge of ports sees them and the library from outside.
    "porttest": ("porttest",),
}
# The tool's rooms stand beside one another on the shell, which knows none of them; the tour, the
# metrics and batches are on top of all, and so is what lies in tools/ itself.
TOOL_SHELL = "shell"
TOOL_TOP = ("batch", "demo", "metrics")
# Rooms of platform/ that every platform may include, and that include one another only.
SHARED_BY_PLATFORMS = ("board_file", "pcapng")
# Spelt in pieces, so that no file of the project holds the words themselves.
UNFINISHED = re.compile(r"\b(" + "|".join(("TO" + "DO", "FIX" + "ME", "XX" + "X", "HA" + "CK")) + r")\b")
LICENCE = re.compile(r"^(//|/\*|#) SPDX-License-Identifier: Apache-2\.0( \*/)?$")


def included(text):
    return re.findall(r'^[ \t]*#[ \t]*include[ \t]*[<"]([^>"]+)[>"]', text, flags=re.M)


def platform_complaints(path, text, root):
    """Complaints about the includes of one file of a platform library."""
    complaints = []
    own = path.relative_to(root / "platform").parts[0]
    # MCTP_binding_SMBUS() and MCTP_binding_PCIE() fill a caller's mctp_ctx: whoever supplies them has
    # to know the record, here as in firmware. No other file needs it. The template is a single one.
    headers = set() if own in SHARED_BY_PLATFORMS else {"sideband/platform.h"}
    if path.name == "card.cpp" or own == "template":
        headers.add("sideband/mctp.h")
    for name in included(text):
        parts = name.split("/")
        of_project = parts[0] in (*LIBRARY, "include", "testing", "tools", "tests")
        if parts[0] == "platform":
            wrong = parts[1] != own and parts[1] not in SHARED_BY_PLATFORMS
        elif parts[0] == "sideband":
            wrong = name not in headers
        elif parts[0] == "sim" or parts[0].startswith("sideband-"):
            wrong = own != parts[0].removeprefix("sideband-")
        else:
            wrong = (of_project and not (path.parent / name).exists()) or parts[0] == ".."
        if wrong:
            complaints.append(f"{path}: includes {name}")
    return complaints


def include_complaints(path, text, root):
    """Complaints about the includes of one file of the library or of a platform."""
    if path.is_relative_to(root / "platform"):
        return platform_complaints(path, text, root)
    complaints = []
    folder = path.relative_to(root).parts[0]
    project_folders = {entry.name for entry in root.iterdir() if entry.is_dir()}
    for name in included(text) if folder in MAY_INCLUDE else ():
        first = name.split("/")[0]
        foreign = first in project_folders and first not in MAY_INCLUDE[folder]
        if foreign or name.startswith(("..", "sideband-")):
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
    folders = (*LIBRARY, "include", "platform", "porttest", "tools", "testing", "tests", "bench", "fuzz", "examples")
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
