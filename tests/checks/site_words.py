#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Checks that the site says every word of its pages: what Doxygen takes for markup of its own it swallows.

usage: site_words.py SOURCE_ROOT SITE
"""
import collections
import html.parser
import pathlib
import re
import sys

sys.dont_write_bytecode = True  # no __pycache__ in the source tree
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent.parent / "scripts" / "reference"))
import markdown  # noqa: E402
import pages  # noqa: E402

# A per cent sign and an at sign with a word behind it are a command to Doxygen, and a hash sign asks for a link.
WORD = re.compile(r"[%@#\\]?\w+")
# What a page has for its layout alone: the language of a block, the number of an item, a mark on a line of its own.
LAYOUT = re.compile(r"^ *(```|~~~)\w*$|^ *\d+\. |^ *<!--.*-->$", re.M)


class Words(html.parser.HTMLParser):
    """The text of a page of the site."""

    def __init__(self, text):
        super().__init__()
        self.said, self.silent = [], 0
        self.feed(text)

    def handle_starttag(self, tag, attrs):
        self.silent += tag in ("script", "style")
        if tag in ("p", "li", "tr", "td", "th", "div", "h1", "h2", "h3", "h4", "br", "pre"):
            self.said.append(" ")
        # What stands for a picture is said by it.
        self.said += [f" {value} " for key, value in attrs if key == "alt" and value]

    def handle_endtag(self, tag):
        self.silent -= tag in ("script", "style")

    def handle_data(self, data):
        if not self.silent:
            self.said.append(data)


def missing(page, site):
    """The words of a Markdown text that a page of the site lacks, and how often."""
    page = LAYOUT.sub("", markdown.LINK.sub(r"\1", page))
    words = collections.Counter(WORD.findall(re.sub(r"\\(?=\|)|^#+ ", "", page, flags=re.M)))
    return words - collections.Counter(WORD.findall("".join(Words(site).said)))


def main():
    root, site = (pathlib.Path(argument).resolve() for argument in sys.argv[1:3])
    names, complaints = pages.pages(root), 0
    for name in names:
        built = site / pages.address(root, name)
        gone = missing((root / name).read_text(encoding="utf-8"), built.read_text(encoding="utf-8"))
        for word, count in sorted(gone.items()):
            print(f"{name}: {built.name} lacks \"{word}\", {count} times")
        complaints += len(gone)
    print(f"{len(names)} pages: {complaints} complaints")
    return 1 if complaints or not names else 0


if __name__ == "__main__":
    sys.exit(main())
