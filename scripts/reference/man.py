#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Writes a manual page of section 3 for each public header, from its comments.

usage: man.py --version VERSION --output FOLDER HEADER...

The page of sideband/mctp.h is sideband_mctp(3). SOURCE_DATE_EPOCH gives its date; without it the header's own counts.
"""
import argparse
import datetime
import os
import pathlib
import re
import sys
import textwrap

sys.dont_write_bytecode = True  # no __pycache__ in the source tree
import header  # noqa: E402
from docstring import Malformed  # noqa: E402

BESIDE = ("sideband-sim(1)", "sideband(7)")
ESCAPES = str.maketrans({"\\": r"\(rs", "-": r"\-", "~": r"\(ti", "^": r"\(ha", "`": r"\(ga", "'": r"\(aq"})
# Names that stand out: functions, macros.
NAMES = re.compile(r"\b(\w+)(?=\(\))|\b([A-Z][A-Z0-9]*_[A-Z0-9_]*[A-Z0-9])\b")


def escaped(text):
    return text.translate(ESCAPES)


def prose(text, own=()):
    """A text with its names in bold and the parameters of its function in italics."""
    def marked(match):
        return rf"\fB{match[0]}\fP"

    text = NAMES.sub(marked, escaped(text))
    for name in own:
        text = re.sub(rf"(?<![\w.\\]){name}(?![\w(.])(?!\.\w)", rf"\\fI{name}\\fP", text)
    return text


class Page:
    """The lines of a page. Knows where a paragraph needs no macro of its own."""

    def __init__(self):
        self.lines, self._fresh = [], True

    def macro(self, line, fresh=True):
        self.lines.append(line)
        self._fresh = fresh

    def paragraph(self):
        if not self._fresh:
            self.macro(".PP")

    def text(self, text):
        for line in textwrap.wrap(text, 78, break_long_words=False, break_on_hyphens=False):
            # A line with a control character in front would be a request.
            self.lines.append(r"\&" + line if line[0] in ".'" else line)
        self._fresh = False

    def code(self, lines):
        self.paragraph()
        self.macro(".nf")
        for line in lines:
            self.lines.append(rf"\fB{escaped(line)}\fP")
        self.macro(".fi", fresh=False)

    def tagged(self, tags, text):
        """A description behind its tag, or behind several in a column."""
        for index, tag in enumerate(tags):
            self.macro(".TQ" if index else ".TP")
            self.lines.append(tag)
        self.text(text or r"\&")

    def blocks(self, blocks, own=(), first=""):
        """Paragraphs and lists. first is put in front of the first paragraph."""
        for block in blocks:
            if block.kind == "paragraph":
                self.paragraph()
                self.text(first + prose(block.parts[0], own))
            elif block.kind == "items":
                for item in block.parts:
                    self.macro(r".IP \(bu 2")
                    self.text(prose(item, own))
            else:
                for term, text in block.parts:
                    self.tagged([prose(term, own)], prose(text, own))
            first = ""


def folded(prototype, width=74):
    """The lines of a prototype; what does not fit goes below the first parameter."""
    if len(prototype) <= width or "(" not in prototype:
        return [prototype]
    opening = prototype.rindex("(", 0, prototype.index(",")) + 1 if "," in prototype else prototype.index("(") + 1
    indent = opening if opening < 40 else 4
    lines, line = [], prototype[:opening]
    for part in re.split(r"(?<=,) ", prototype[opening:]):
        if len(line) + len(part) + 1 > width and line.strip():
            lines.append(line.rstrip())
            line = " " * indent
        line += part + " "
    return [*lines, line.rstrip()]


def joined(block_lists):
    """The words of several blocks in one line, for where a page has a single paragraph."""
    texts = []
    for block in block_lists:
        texts += [" ".join(part) if isinstance(part, tuple) else part for part in block.parts]
    return " ".join(texts)


def write_macros(page, entry):
    """Macros that one comment is about; those with comments of their own follow it."""
    tags = [macro for macro in entry.declarations if macro.kind == "macro"]
    plain = [macro for macro in tags if not macro.trailing]
    told = [macro for macro in tags if macro.trailing]

    def tag(macro):
        name, value = re.match(r"# ?define (\w+(?:\([^)]*\))?) ?(.*)$", macro.code).groups()
        return rf"\fB{escaped(name)}\fP" + (f" {escaped(value)}" if value and len(value) < 40 else "")

    doc = entry.doc
    if plain:
        page.tagged([tag(macro) for macro in plain], prose(joined(doc.blocks[:1])) if doc else "")
        if doc and len(doc.blocks) > 1:
            page.macro(".RS")
            page.blocks(doc.blocks[1:])
            page.macro(".RE", fresh=False)
    elif doc:
        page.paragraph()
        page.blocks(doc.blocks)
    for macro in told:
        page.tagged([tag(macro)], prose(joined(macro.trailing.doc().blocks)))


def write_members(page, record):
    for member in record.members():
        if member.is_reserved:
            continue
        said = member.doc.blocks if member.doc else []
        page.tagged([rf"\fB{escaped(member.text)}\fP"], prose(joined(said)))
        if member.doc:
            for name, text in member.doc.params:
                page.text(rf"\fI{escaped(name)}\fP: {prose(joined(text))}.")
            if member.doc.returns:
                page.text("Result: " + prose(joined(member.doc.returns)) + ".")


def write_declarations(page, entry):
    """Functions, variables and types, with what is said of them."""
    shown = [each for each in entry.declarations if each.kind not in ("macro", "forward")]
    if not shown:
        return
    doc = entry.doc
    own = [name for each in shown if each.kind == "function" for _, name in each.parameters()]
    own += [name for name, _ in doc.params] if doc else []
    lines = []
    for each in shown:
        if each.kind == "record":
            keyword = "union" if "union" in each.code[:each.code.index("{")] else "struct"
            lines.append(f"{keyword} {each.name}")
        else:
            lines += folded(each.prototype + ";")
    page.code(lines)
    page.macro(".RS 4")
    page.blocks(doc.blocks if doc else [], own)
    for name, text in doc.params if doc else []:
        page.tagged([rf"\fI{escaped(name)}\fP"], prose(joined(text), own))
    if doc and doc.returns:
        page.paragraph()
        page.blocks(doc.returns, own, first="Result: ")
    for each in shown:
        if each.trailing:
            page.paragraph()
            page.text(rf"\fB{escaped(each.name)}\fP: " + prose(joined(each.trailing.doc().blocks)))
        if each.kind == "record":
            write_members(page, each)
    page.macro(".RE", fresh=False)


def write_section(page, section):
    if section.title:
        page.macro(f'.SS {escaped(section.title)}')
    if section.remark:
        page.blocks(section.remark.blocks)
    for entry in section.entries:
        if any(each.kind == "macro" for each in entry.declarations):
            write_macros(page, entry)
        write_declarations(page, entry)


def page_name(path):
    return f"sideband_{path.stem}"


def render(path, beside, version, date):
    """The page of a header."""
    read = header.read(path)
    page = Page()
    page.lines = [r".\" SPDX-License-Identifier: Apache-2.0", rf".\" Made from sideband/{path.name}.",
                  f'.TH {page_name(path).upper()} 3 {date} "sideband {version}" "sideband manual"', ".SH NAME",
                  f"{page_name(path)} \\- {escaped(read.about.first_sentence())}", ".SH LIBRARY",
                  r"sideband (\fIlibsideband\fP, \fI\-lsideband\fP)"]
    page.macro(".SH SYNOPSIS")
    page.code([f"#include <sideband/{path.name}>"])
    prototypes = [line for each in read.declarations() if each.kind in ("function", "variable")
                  for line in folded(each.prototype + ";")]
    if prototypes:
        page.code(prototypes)
    page.macro(".SH DESCRIPTION")
    page.lines.append(".nh")  # a name that is cut is a wrong one
    page.blocks(read.about.blocks)
    for section in read.sections:
        write_section(page, section)
    page.macro(".SH SEE ALSO")
    others = [f"{page_name(each)}(3)" for each in beside if each != path]
    others = [*BESIDE[:1], *sorted(others), *BESIDE[1:]]
    for index, other in enumerate(others):
        name, number = other[:-1].split("(")
        page.lines.append(f".BR {escaped(name)} ({number})" + ("," if index < len(others) - 1 else ""))
    return "\n".join(page.lines) + "\n"


def date_of(path):
    seconds = int(os.environ.get("SOURCE_DATE_EPOCH") or path.stat().st_mtime)
    return datetime.datetime.fromtimestamp(seconds, datetime.timezone.utc).date().isoformat()


def main():
    arguments = argparse.ArgumentParser()
    arguments.add_argument("--version", required=True)
    arguments.add_argument("--output", type=pathlib.Path, required=True)
    arguments.add_argument("headers", nargs="+", type=pathlib.Path)
    given = arguments.parse_args()
    given.output.mkdir(parents=True, exist_ok=True)
    for path in given.headers:
        try:
            page = render(path, given.headers, given.version, date_of(path))
        except Malformed as malformed:
            sys.exit(f"{path}: {malformed}")
        (given.output / f"{page_name(path)}.3").write_text(page, encoding="ascii")


if __name__ == "__main__":
    main()
