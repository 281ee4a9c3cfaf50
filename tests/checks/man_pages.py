#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Has the manual pages of the public headers formatted without a warning, and looks whether they leave nothing out.

usage: man_pages.py SOURCE_ROOT

man, groff and mandoc are asked, as far as they are installed; exit status 77 if none is.
"""
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True  # no __pycache__ in the source tree
import headers_text  # noqa: E402

FORMATTERS = {"man": ["man", "--warnings=w", "-E", "UTF-8", "-l"], "groff": ["groff", "-man", "-ww", "-z", "-Tutf8"],
              "mandoc": ["mandoc", "-T", "lint", "-W", "warning"]}
MACRO = re.compile(r"^[ \t]*#[ \t]*define (\w+)", re.M)


def named_in(header):
    """What a header gives to its users, as a reader who knows no comments finds it."""
    macros = {name for name in MACRO.findall(header) if not name.endswith("_H")}
    records = set(re.findall(r"^\} (\w+);$", header, re.M))
    return headers_text.declared_names(header) | macros | records


def left_out(header, page):
    """Names of the header that its page does not have."""
    # The page writes a hyphen-minus as an escape, and nothing else that a name could have.
    words = set(re.findall(r"\w+", re.sub(r"\\f[BIP]|\\\(\w\w", " ", page)))
    return sorted(named_in(header) - words)


def warnings(page):
    """What the formatters complain of."""
    complaints = []
    for name, command in FORMATTERS.items():
        if shutil.which(name):
            done = subprocess.run([*command, page], stdin=subprocess.DEVNULL, capture_output=True, text=True,
                                  check=False)
            said = done.stderr + (done.stdout if name == "mandoc" else "")
            if said or done.returncode != 0:
                complaints.append(f"{name}, status {done.returncode}: {said}")
    return complaints


def main():
    if not any(map(shutil.which, FORMATTERS)):
        print("skipped: neither man nor groff nor mandoc is installed")
        return 77
    root = pathlib.Path(sys.argv[1])
    headers = sorted((root / "include" / "sideband").glob("*.h"))
    complaints = []
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run([sys.executable, root / "scripts" / "reference" / "man.py", "--version", "0", "--output", folder,
                        *headers], check=True)
        pages = sorted(pathlib.Path(folder).glob("*.3"))
        for header, page in zip(headers, pages, strict=True):
            complaints += warnings(page)
            complaints += [f"{page.name}: says nothing of {name}"
                           for name in left_out(header.read_text(encoding="utf-8"), page.read_text(encoding="ascii"))]
    for complaint in complaints:
        print(complaint)
    print(f"{len(pages)} pages: {len(complaints)} complaints")
    return 1 if complaints or not pages else 0


if __name__ == "__main__":
    sys.exit(main())
