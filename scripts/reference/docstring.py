# SPDX-License-Identifier: Apache-2.0
"""Takes the text of a comment apart: paragraphs, lists, @param and @return as the public headers have them."""
import re
from typing import NamedTuple

ITEM = re.compile(r"^( *)- (.*)$")
TERM = re.compile(r"^( +)(\S+(?: \S+)*)( {2,})(\S.*)$")
TAG = re.compile(r"^@(param|return)\b *(.*)$")
INLINE_TAG = re.compile(r"(?<=\S) +(?=@(?:param|return)\b)")


class Malformed(Exception):
    """A comment that is not put together as the others are."""


class Block(NamedTuple):
    kind: str  # "paragraph", "items" or "terms"
    parts: list  # one text; a text for each item; a pair of term and text for each term


class Doc:
    """What one comment says."""

    def __init__(self, lines):
        """lines: the comment's text, without the stars in front, indented as it was behind them."""
        self.blocks, self.params, self.returns = [], [], []
        self._target, self._column = self.blocks, None
        for line in lines:
            parts = INLINE_TAG.split(line)
            for part in parts:
                self._take(part.rstrip(), len(parts) > 1)

    def _take(self, line, on_one_line):
        tag = TAG.match(line.strip())
        if tag:
            self._start(tag, on_one_line)
        elif not line:
            self._column = None
        elif self._target is not self.blocks and not line.startswith(" ") and not self._loose:
            raise Malformed(f'"{line}" follows @param or @return and is not indented')
        else:
            self._add(line if self._target is self.blocks else line.strip())

    def _start(self, tag, on_one_line):
        self._loose = on_one_line  # where a tag stands behind other text its second line has no indentation
        text = tag[2]
        self._target = self.returns
        if tag[1] == "param":
            name, _, text = text.partition(" ")
            self._target = []
            self.params.append((name, self._target))
        self._column = None
        self._add(text.strip())

    def _add(self, line):
        """A line of text, to the block that it belongs to."""
        item, term = ITEM.match(line), TERM.match(line)
        indent = len(line) - len(line.lstrip())
        last = self._target[-1] if self._target and self._column is not None else None
        if item:
            self._append("items", item[2], len(item[1]) + 1)
        elif last and last.kind != "paragraph" and indent >= self._column:
            self._extend(last, line.strip())
        elif term:
            self._append("terms", (term[2], term[4]), len(line) - len(term[4]))
        elif last and last.kind == "paragraph":
            self._extend(last, line.strip())
        else:
            self._target.append(Block("paragraph", [line.strip()]))
            self._column = 0

    def _append(self, kind, part, column):
        if not self._target or self._target[-1].kind != kind or self._column is None:
            self._target.append(Block(kind, []))
        self._target[-1].parts.append(part)
        self._column = column

    @staticmethod
    def _extend(block, text):
        last = block.parts[-1]
        block.parts[-1] = (last[0], f"{last[1]} {text}") if block.kind == "terms" else f"{last} {text}"

    def first_sentence(self):
        """Up to the first full stop in front of a capital, without it."""
        if not self.blocks or self.blocks[0].kind != "paragraph":
            return ""
        return re.split(r"\.(?= +[A-Z]|$)", self.blocks[0].parts[0], maxsplit=1)[0]

    def text(self):
        """All of its words, for those who look for one."""
        blocks = [*self.blocks, *(block for _, param in self.params for block in param), *self.returns]
        return " ".join(" ".join(part) if isinstance(part, tuple) else part for block in blocks for part in block.parts)
