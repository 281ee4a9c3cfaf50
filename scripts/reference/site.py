#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Builds the documentation site with Doxygen.

usage: site.py ROOT OUTPUT

It is made of the project's pages and public headers, whichever there are, and ends up in OUTPUT/html. Files that a page
leads to and that are no pages are copied beside it.
"""
import os
import pathlib
import re
import shutil
import subprocess
import sys

sys.dont_write_bytecode = True  # no __pycache__ in the source tree
import doxygen_filter  # noqa: E402
import pages  # noqa: E402

HERE = pathlib.Path(__file__).resolve().parent
TABS = {"classes": "Records", "classlist": "All records", "classindex": "By letter", "classmembers": "Members",
        "files": "Headers", "filelist": "All headers", "globals": "All names"}
VERSION = '#define SIDEBAND_VERSION_STRING "'


def version(root):
    text = (root / "include" / "sideband" / "version.h").read_text(encoding="utf-8")
    return text.split(VERSION)[1].split('"')[0]


def configuration(root, output):
    """The Doxyfile and what it is told of this tree."""
    folder = root / "docs" / "reference"
    inputs = [root / name for name in pages.pages(root)] + sorted((root / "include" / "sideband").glob("*.h"))
    for path in inputs:
        doxygen_filter.view(root, path)  # Doxygen would leave a file out that its filter fails for
    filters = f"{sys.executable} {HERE / 'doxygen_filter.py'}"
    settings = {
        "INPUT": " ".join(f'"{path}"' for path in inputs),
        "OUTPUT_DIRECTORY": f'"{output}"',
        "PROJECT_NUMBER": version(root),
        "STRIP_FROM_PATH": f'"{root}" "{root / "include"}"',
        "STRIP_FROM_INC_PATH": f'"{root / "include"}"',
        "INCLUDE_PATH": f'"{root / "include"}"',
        "FILTER_PATTERNS": f'"*.h={filters}" "*.md={filters}"',
        "USE_MDFILE_AS_MAINPAGE": f'"{root / "README.md"}"',
        "LAYOUT_FILE": f'"{output / "layout.xml"}"',
        "HTML_EXTRA_STYLESHEET": f'"{folder / "site.css"}"',
    }
    ours = "".join(f"{name} = {value}\n" for name, value in settings.items())
    return (folder / "Doxyfile").read_text(encoding="utf-8") + ours


def copy_linked(root, html):
    """What the pages lead to besides one another."""
    known = pages.pages(root)
    for target in {target for name in known for target in pages.linked(root, name)} - set(known):
        copy = html / "files" / target
        copy.parent.mkdir(parents=True, exist_ok=True)
        shutil.copyfile(root / target, copy)


def layout(path):
    """Doxygen's own layout, with the words of C for what it lists."""
    subprocess.run(["doxygen", "-l", path], check=True)
    text = path.read_text(encoding="utf-8")
    for tab, title in TABS.items():
        text, found = re.subn(rf'(<tab type="{tab}" visible="[^"]*" title=)""', rf'\1"{title}"', text)
        assert found == 1, tab
    path.write_text(text, encoding="utf-8")


def main():
    root, output = (pathlib.Path(argument).resolve() for argument in sys.argv[1:3])
    shutil.rmtree(output / "html", ignore_errors=True)
    output.mkdir(parents=True, exist_ok=True)
    layout(output / "layout.xml")
    done = subprocess.run(["doxygen", "-"], input=configuration(root, output), text=True, check=False,
                          cwd=root, env={**os.environ, "SIDEBAND_ROOT": str(root)})
    if done.returncode != 0:
        return 1
    copy_linked(root, output / "html")
    return 0


if __name__ == "__main__":
    sys.exit(main())
