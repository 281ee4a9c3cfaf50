# SPDX-License-Identifier: Apache-2.0
"""Which pages the documentation has, and what each of them and of their headings is called in the site."""
import posixpath
import re

import markdown

FOLDERS = (".", "docs")
MAIN_PAGE = "README.md"
MAIN = "index"


def pages(root):
    """
    The Markdown files of the root and of docs/, and those that they lead to, as paths relative to the root.

    The README is the first. The guides come in the order in which it names them, then those that it does not.
    """
    found = [MAIN_PAGE]
    there = [path.relative_to(root).as_posix() for folder in FOLDERS for path in sorted((root / folder).glob("*.md"))]
    for name in found:
        found += [each for each in linked(root, name) if each.endswith(".md") and each not in found]
        if name == found[-1]:
            found += [each for each in there if each not in found]
    return sorted(found, key=lambda name: (name != MAIN_PAGE, not name.startswith("docs/"), "/" in name))


def linked(root, name):
    """The files that a page leads to, each once."""
    targets = (resolved(name, link.target)[0] for link in markdown.links((root / name).read_text(encoding="utf-8")))
    return [target for target in dict.fromkeys(targets) if (root / target).is_file()]


def resolved(name, target):
    """(path relative to the root, anchor) of a link's target in a page."""
    path, _, anchor = target.partition("#")
    return posixpath.normpath(posixpath.join(posixpath.dirname(name), path)) if path else name, anchor


def label(name, heading):
    """The name of a heading in the site. A page goes by that of its first."""
    page = MAIN if name == MAIN_PAGE else re.sub(r"\W", "_", name.removesuffix(".md").removeprefix("docs/"))
    return page if heading.level == 1 else f"{page}__{heading.slug}"


def address(root, name, anchor=""):
    """Where a page, or one of its headings, is in the site."""
    headings = markdown.headings((root / name).read_text(encoding="utf-8"))
    file = label(name, headings[0]) + ".html"
    for heading in headings:
        if heading.slug == anchor and heading.level > 1:
            return f"{file}#{label(name, heading)}"
    return file
