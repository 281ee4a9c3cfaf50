#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Shows Doxygen a header or a page in the words that it understands, line for line.

usage: doxygen_filter.py FILE

Headers: a section with its remark becomes a group, a comment above several declarations stands at each of them, what a
header says once for all of a section is repeated at each function. Pages: headings get the names that links go by.
"""
import os
import pathlib
import re
import sys

sys.dont_write_bytecode = True  # no __pycache__ in the source tree
import docstring  # noqa: E402
import header  # noqa: E402
import markdown  # noqa: E402
import pages  # noqa: E402

COMMANDS = str.maketrans({"\\": r"\\", "@": r"\@", "&": "&amp;", "<": "&lt;", ">": "&gt;", "#": r"\#", "%": r"\%",
                          "*": r"\*", "`": r"\`", '"': "&quot;"})
BOLD = re.compile(r"\*\*(?=\S)(.+?)(?<=\S)\*\*", re.S)


def prose(text):
    return text.translate(COMMANDS)


def html(blocks):
    """Paragraphs and lists in a single line."""
    said = []
    for block in blocks:
        if block.kind == "paragraph":
            said.append(f"<p>{prose(block.parts[0])}</p>")
        elif block.kind == "items":
            said.append("<ul>" + "".join(f"<li>{prose(item)}</li>" for item in block.parts) + "</ul>")
        else:
            said.append("<dl>" + "".join(f"<dt>{prose(term)}</dt><dd>{prose(text)}</dd>"
                                         for term, text in block.parts) + "</dl>")
    return "".join(said)


def inline(blocks):
    return " ".join(" ".join(part) if isinstance(part, tuple) else prose(part)
                    for block in blocks for part in block.parts)


def described(doc):
    """Brief description, and behind it what else there is."""
    brief, rest = doc.first_sentence(), doc.blocks
    if brief:
        behind = doc.blocks[0].parts[0][len(brief):].lstrip(". ")
        rest = ([docstring.Block("paragraph", [behind])] if behind else []) + doc.blocks[1:]
    return f"@brief {prose(brief)}. " + (f"@details {html(rest)} " if rest else "")


def told(section, entry, declaration):
    """What a comment says of one of its declarations."""
    doc = entry.doc
    own = declaration.trailing.doc() if declaration.trailing else None
    text = f"@brief {inline(own.blocks)} " if own else ""
    if doc:
        text += f"@details {html(doc.blocks)} " if own else described(doc) if doc.blocks else ""
        for name, said in doc.params:
            text += f"@param {name} {inline(said)} "
        if not doc.blocks and not own and doc.returns:
            text = f"@brief {inline(doc.returns)[:1].upper()}{inline(doc.returns)[1:]}. {text}"
        if declaration.kind == "function" or (declaration.kind == "type" and "(*" in declaration.code):
            text += untold(section, entry, declaration)
        if doc.returns:
            text += f" @return {html(doc.returns)}"
    return text


def untold(section, entry, declaration):
    """Parameters and result that the header describes elsewhere."""
    text = ""
    known = {name for name, _ in entry.doc.params}
    for _, name in declaration.parameters():
        where = None if name in known else section.where_told(entry, declaration, name)
        text += f" @param {name} {where}" if where else ""
    if not declaration.returns_nothing and not entry.doc.returns and section.tells_result():
        text += f" @return as said of all in this section, {prose(section.title)}"
    return text


class HeaderView:
    """A header's lines, in which comments are replaced one by one."""

    def __init__(self, path):
        self.lines = path.read_text(encoding="utf-8").split("\n")
        self.header = header.read(path)
        self.open = False

    def put(self, comment, text):
        """A comment's place, with as many lines as before."""
        self.lines[comment.first] = text
        for line in range(comment.first + 1, comment.last + 1):
            self.lines[line] = ""

    def convert(self):
        about = self.header.about_comment
        self.lines[0] = f"/** @file sideband/{self.header.name}"
        self.put(about, described(self.header.about) + "*/")
        for section in self.header.sections:
            self._section(section)
        if self.open:
            end = max(number for number, line in enumerate(self.lines) if line == "SIDEBAND_END_DECLS")
            self.lines[end] = "/** @} */ " + self.lines[end]
        return "\n".join(self.lines)

    def _section(self, section):
        if section.title:
            remark = html(section.remark.blocks) if section.remark else ""
            # The name ends with its line; behind a title there is an empty line or a remark.
            self.put(section.comment, ("/** @} */ " if self.open else "") + f"/** @name {prose(section.title)}")
            if section.remark:
                self.put(section.remark_comment, remark + " */ /** @{ */")
            else:
                assert not self.lines[section.comment.last + 1], section.title
                self.lines[section.comment.last + 1] = " */ /** @{ */"
            self.open = True
        for entry in section.entries:
            self._entry(section, entry)

    def _entry(self, section, entry):
        if entry.comment:
            self.put(entry.comment, "")
        for declaration in entry.declarations:
            if declaration.kind == "forward":
                self.put(declaration, "")
                continue
            if declaration.kind == "record":
                self._members(declaration)
            text = told(section, entry, declaration)
            if not text:
                continue
            if declaration.trailing:
                self._without(declaration)
            if declaration.kind == "macro":
                self.lines[declaration.last] += f" /**< {text} */"
            else:
                self.lines[declaration.first] = f"/** {text} */ " + self.lines[declaration.first]

    def _without(self, declaration):
        """Takes a comment behind a declaration away."""
        text = "\n".join(self.lines[declaration.first:declaration.last + 1])
        bare = header.COMMENT.sub(lambda match: "\n" * match[0].count("\n"), text)
        self.lines[declaration.first:declaration.last + 1] = bare.split("\n")

    def _expanded(self, line):
        """A line in which members stand for the macro that has them. Its comment lists them."""
        lists = {each.name: (entry.doc, each) for section in self.header.sections for entry in section.entries
                 for each in entry.declarations if each.kind == "macro"}
        found = re.search(r"\b[A-Z]\w+_MEMBERS\b", line)
        if not found:
            return line
        doc, macro = lists[found[0]]
        said = {name: text for block in doc.blocks if block.kind == "terms" for term, text in block.parts
                for name in term.split(", ")}
        members = re.findall(r"([^;]*?(\w+)(?:\[\w+\])?;)", macro.code.split(found[0])[1] + ";")
        return line.replace(found[0], " ".join(f"{member} /**< {said[name]} */" for member, name in members))

    def _members(self, record):
        """The comments inside a record."""
        text = "\n".join(self._expanded(line) for line in self.lines[record.first:record.last + 1])

        def replaced(match):
            doc = header.Comment(0, 0, match[0]).doc()
            behind = "<" if match[0].startswith("/**<") else ""
            in_front = text[:match.start()]
            # Doxygen has no place for a member of an unnamed union that has a brief description alone.
            deep = in_front.count("{") - in_front.count("}") > 1
            said = ("" if deep else "@brief ") + inline(doc.blocks) if behind else described(doc)
            said += "".join(f" @param {name} {inline(each)}" for name, each in doc.params)
            said += f" @return {inline(doc.returns)}" if doc.returns else ""
            return f"/**{behind} {said} */" + "\n" * match[0].count("\n")

        text = re.sub(r"/\*\*.*?\*/", replaced, text, flags=re.S)
        text = re.sub(r"^( +\w+\*? (?:reserved\w*|\w+_pad)(?:\[\w+\])?;)$", r"\1 /**< Reserved. */", text, flags=re.M)
        self.lines[record.first:record.last + 1] = text.split("\n")


def coded(match):
    """A code span in HTML: Doxygen's own end at an apostrophe, and it looks for commands in them."""
    text = prose(match[2].strip()).replace("_", r"\_").replace("--", r"\--").replace(r"\\|", r"\|")
    return f"<code>{text}</code>"


def headed(heading, name):
    """
    A heading with its name, in plain words. Those of the main page would stand among the other pages in the tree at
    the side.
    """
    heading = heading._replace(title=heading.title.replace("`", ""))
    if name != pages.MAIN_PAGE:
        return f"{'#' * heading.level} {heading.title} {{#{pages.label(name, heading)}}}"
    if heading.level == 1:
        return f"# {heading.title}"
    return f'<h{heading.level - 1} id="{pages.label(name, heading)}">{heading.title}</h{heading.level - 1}>'


def relinked(root, name, known, match):
    """A link to another page, to a heading, or to a file that is copied beside the site."""
    in_code = any(span.start() < match.start() < span.end() for span in markdown.CODE.finditer(match.string))
    if in_code or markdown.EXTERNAL.match(match[2]):
        return match[0]
    target, anchor = pages.resolved(name, match[2])
    where = pages.address(root, target, anchor) if target in known else f"files/{target}"
    if match[0].startswith("!"):
        return f'<img src="{where}" alt="{match[1]}">'
    return f'<a href="{where}">{match[1]}</a>'


def page_view(root, name):
    """A page with named headings, and links that Doxygen follows."""
    text = (root / name).read_text(encoding="utf-8")
    lines = text.split("\n")
    known = set(pages.pages(root))
    for heading in markdown.headings(text):
        lines[heading.line] = headed(heading, name)
    for first, paragraph in markdown.paragraphs("\n".join(lines)):
        said = markdown.LINK.sub(lambda match: relinked(root, name, known, match), paragraph)
        said = BOLD.sub(r"<b>\1</b>", markdown.CODE.sub(coded, said))
        lines[first:first + said.count("\n") + 1] = said.split("\n")
    return "\n".join(lines)


def view(root, path):
    """What Doxygen gets to see of a file."""
    return page_view(root, path.relative_to(root).as_posix()) if path.suffix == ".md" else HeaderView(path).convert()


def main():
    sys.stdout.write(view(pathlib.Path(os.environ["SIDEBAND_ROOT"]), pathlib.Path(sys.argv[1]).resolve()))


if __name__ == "__main__":
    main()
