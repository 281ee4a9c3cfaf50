# SPDX-License-Identifier: Apache-2.0
"""Headings and links of the project's Markdown pages, as a hosting service sees them."""
import re
from typing import NamedTuple

FENCE = re.compile(r"^ *(```|~~~)")
HEADING = re.compile(r"^(#{1,6}) +(.*?) *#*$")
LINK = re.compile(r"!?\[((?:[^\[\]]|\[[^\[\]]*\])*)\]\(([^()\s]+)\)")
CODE = re.compile(r"(?<!`)(`+)(?!`)(.*?)(?<!`)\1(?!`)", re.S)
EXTERNAL = re.compile(r"^[a-z][a-z0-9+.-]*:")


class Heading(NamedTuple):
    line: int  # from 0
    level: int
    title: str
    slug: str


class Link(NamedTuple):
    line: int
    text: str
    target: str


def prose_lines(text):
    """(number from 0, line) of what is outside fenced and indented code."""
    fenced, code, blank = None, False, True
    for number, line in enumerate(text.split("\n")):
        fence = FENCE.match(line)
        if fence:
            fenced = None if fenced == fence[1] else fenced or fence[1]
        elif not fenced:
            indented = line.startswith("    ")
            code = indented and (code or (blank and not re.match(r"^ +([-*]|\d+\.) ", line)))
            # In a list a paragraph that goes on is indented as well: it counts, its links do.
            if line.strip() and not (code and not LINK.search(line)):
                yield number, line
        blank = not line.strip()


def slug_of(title):
    """What a hosting service makes of a heading."""
    text = re.sub(r"\[([^\]]*)\]\([^)]*\)", r"\1", title).replace("`", "")
    return re.sub(r"[^\w\- ]", "", text.lower()).replace(" ", "-")


def headings(text):
    found, seen = [], {}
    for number, line in prose_lines(text):
        match = HEADING.match(line)
        if match:
            slug = slug_of(match[2])
            count = seen.get(slug, 0)
            seen[slug] = count + 1
            found.append(Heading(number, len(match[1]), match[2], f"{slug}-{count}" if count else slug))
    return found


def paragraphs(text):
    """(first line, text) of each stretch of prose; code spans and links may go on in its next line."""
    found, before = [], None
    for number, line in prose_lines(text):
        if before is not None and number == before + 1:
            found[-1][1].append(line)
        else:
            found.append((number, [line]))
        before = number
    return [(number, "\n".join(lines)) for number, lines in found]


def links(text):
    """Those that lead somewhere inside the project."""
    found = []
    for number, prose in paragraphs(text):
        # The text of a link may be code; what only looks like a link may be in code too.
        blanked = CODE.sub(lambda match: "`" + re.sub(r"[^\n]", "x", match[0][1:-1]) + "`", prose)
        for match in LINK.finditer(blanked):
            if not EXTERNAL.match(match[2]):
                line = number + blanked.count("\n", 0, match.start())
                found.append(Link(line, prose[match.start(1):match.end(1)], match[2]))
    return found
