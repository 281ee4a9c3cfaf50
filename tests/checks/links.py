#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Checks that every link inside the documentation leads somewhere: to a file that is there, and to a heading in it.

usage: links.py SOURCE_ROOT
       links.py --site FOLDER

The first looks at the Markdown pages of the tree, the second at the site that is built of them. Nothing is fetched:
links to other places are left alone.
"""
import html.parser
import pathlib
import re
import sys
import urllib.parse

sys.dont_write_bytecode = True  # no __pycache__ in the source tree
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent.parent / "scripts" / "reference"))
import markdown  # noqa: E402

BY_REFERENCE = re.compile(r"^ {0,3}\[[^\]]+\]:\s|\]\[[^\]]*\]")
# The trees at the side of Doxygen's pages are lists in scripts.
IN_SCRIPT = re.compile(r'"([\w.-]+\.html(?:#[\w.-]+)?)"')


def pages_of(root):
    """The Markdown files of a tree, without what is built in it and what is hidden."""
    return [path for path in sorted(root.rglob("*.md"))
            if not any(part.startswith((".", "build")) for part in path.relative_to(root).parts[:-1])]


def page_complaints(root, page):
    """(complaints, number of links) of one Markdown page."""
    complaints = []
    text = page.read_text(encoding="utf-8")
    found = markdown.links(text)
    for link in found:
        where = f"{page.relative_to(root)}:{link.line + 1}: {link.target}"
        path, _, anchor = link.target.partition("#")
        target = (page.parent / urllib.parse.unquote(path)).resolve() if path else page
        if path.startswith("/") or not target.is_relative_to(root):
            complaints.append(f"{where} leads out of the tree")
        elif not target.exists():
            complaints.append(f"{where} is not there")
        elif anchor and target.suffix != ".md":
            complaints.append(f"{where} names a place in a file that has none")
        elif anchor and anchor not in {each.slug for each in markdown.headings(target.read_text(encoding="utf-8"))}:
            complaints.append(f"{where} has no such heading")
    for number, line in markdown.prose_lines(text):
        if BY_REFERENCE.search(markdown.CODE.sub("", line)):
            complaints.append(f"{page.relative_to(root)}:{number + 1}: a link by reference: the site has none")
    return complaints, len(found)


class Places(html.parser.HTMLParser):
    """Where a page of the site leads to, and what in it can be led to."""

    def __init__(self, text):
        super().__init__()
        self.names, self.targets = set(), []
        self.feed(text)

    def handle_starttag(self, tag, attrs):
        given = dict(attrs)
        self.names |= {given[key] for key in ("id", "name") if given.get(key)}
        self.targets += [given[key] for key in ("href", "src") if given.get(key)]


def site_complaints(folder):
    """(complaints, number of links) of a built site."""
    complaints, count = [], 0
    places = {path: Places(path.read_text(encoding="utf-8")) for path in sorted(folder.rglob("*.html"))}
    targets = [(path, target) for path, each in places.items() for target in each.targets]
    targets += [(path, target) for path in sorted(folder.rglob("*.js"))
                for target in IN_SCRIPT.findall(path.read_text(encoding="utf-8")) if path.parent == folder]
    for page, target in targets:
        if markdown.EXTERNAL.match(target) or target == "#":
            continue
        count += 1
        path, _, anchor = target.partition("#")
        file = (page.parent / urllib.parse.unquote(path)).resolve() if path else page
        where = f"{page.relative_to(folder)}: {target}"
        if not file.is_relative_to(folder) or not file.is_file():
            complaints.append(f"{where} is not there")
        elif anchor and file in places and urllib.parse.unquote(anchor) not in places[file].names:
            complaints.append(f"{where} has no such place")
    return sorted(set(complaints)), count


def main():
    if sys.argv[1] == "--site":
        complaints, count = site_complaints(pathlib.Path(sys.argv[2]).resolve())
    else:
        root = pathlib.Path(sys.argv[1]).resolve()
        complaints, count = [], 0
        for page in pages_of(root):
            of_page, links = page_complaints(root, page)
            complaints += of_page
            count += links
    for complaint in complaints:
        print(complaint)
    print(f"{count} links: {len(complaints)} complaints")
    return 1 if complaints or not count else 0


if __name__ == "__main__":
    sys.exit(main())
