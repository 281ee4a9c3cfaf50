# SPDX-License-Identifier: Apache-2.0
"""Reads a public header as its reader does: sections, what is said of all in one, declarations and their comments."""
import re
from typing import NamedTuple

from docstring import Doc, Malformed

COMMENT = re.compile(r"/\*.*?\*/", re.S)
TITLE = re.compile(r"^/\* -{4} (.*?) -+ \*/$")
NO_DECLARATION = re.compile(r"SIDEBAND_(STATIC_ASSERT|BEGIN_DECLS|END_DECLS)\b")
# A comment that sends its reader to another one.
LIKE = re.compile(r"\b(?:As|See) (\w+_\w+)")
PLAIN_TYPE = re.compile(r"u?int\d*(_t)?$|size_t$|char$|void$")
RESERVED = re.compile(r"^reserved(_\w+)?$|_pad$")


class Comment(NamedTuple):
    first: int  # lines of the header, from 0
    last: int
    text: str

    @property
    def is_doc(self):
        return self.text.startswith("/**")

    def doc(self):
        """Its text, taken apart."""
        inside = re.sub(r"^/\*\*?<?|\*/$", "", self.text).split("\n")
        lines = [inside[0].strip()]
        for line in inside[1:]:
            starred = re.match(r"\s*\*( ?)(.*)$", line)
            lines.append(starred[2] if starred else line.strip())
        try:
            return Doc(lines)
        except Malformed as malformed:
            raise Malformed(f"line {self.first + 1}: {malformed}") from None


class Member(NamedTuple):
    text: str  # as declared, without the semicolon
    name: str
    doc: Doc
    is_reserved: bool


class Declaration:
    """A function, a variable, a type or a macro."""

    def __init__(self, first, last, text, trailing=None):
        self.first, self.last, self.raw = first, last, text
        self.trailing = trailing  # the comment behind it on its line
        code = " ".join(COMMENT.sub(" ", text).split())
        self.code = code.rstrip(";").strip()
        self.kind, self.name = self._classify()

    def _classify(self):
        code = self.code
        if code.startswith("#"):
            return "macro", re.match(r"# ?define (\w+)", code)[1]
        if re.match(r"(typedef )?(struct|union)\b[^{;(]*\{", code):
            closing = re.search(r"\} ?(\w+)$", code)
            return "record", closing[1] if closing else re.match(r"(?:struct|union)(?: [A-Z_]+)* (\w+)", code)[1]
        if code.startswith("typedef"):
            called = re.search(r"\(\*(\w+)\)", code)
            forward = re.match(r"typedef struct (\w+) (\w+)$", code)
            if forward:
                return "forward", forward[2]
            return "type", called[1] if called else re.search(r"(\w+)$", code)[1]
        if re.match(r"struct \w+$", code):
            return "forward", code.split()[1]
        if re.search(r"\bextern\b", code):
            return "variable", re.search(r"(\w+)(?:\[\w*\])*$", code)[1]
        return "function", re.search(r"(\w+) ?\(", code)[1]

    @property
    def prototype(self):
        """What a caller sees: without export and format check."""
        text = re.sub(r"\bSIDEBAND_(EXPORT|ANONYMOUS|PACKED) ?", "", self.code)
        return re.sub(r" SIDEBAND_PRINTF\(.*\)$", "", text)

    @property
    def returns_nothing(self):
        return self.prototype.startswith("void ") and not self.prototype.startswith("void*")

    def parameters(self):
        """(type, name) of each parameter of a function, or of what a type stands for."""
        inside = self.prototype[self.prototype.rindex("(") + 1:self.prototype.rindex(")")]
        found = []
        for each in inside.split(","):
            match = re.match(r"^\s*(.*?)\b(\w+)(?:\[\w*\])?\s*$", each)
            if match and match[1]:
                found.append((match[1].strip(), match[2]))
        return found

    def members(self):
        """Those of a record; what lies in an unnamed union or struct counts as its own."""
        found, pending, code = [], None, ""
        inside = self.raw[self.raw.index("{") + 1:self.raw.rindex("}")]
        for match in re.finditer(r"/\*.*?\*/|[^;{}/]+|[;{}/]", inside, re.S):
            text = match[0]
            if text.startswith("/**<") and found:
                found[-1] = found[-1]._replace(doc=Comment(0, 0, text).doc())
            elif text.startswith("/**"):
                pending = Comment(0, 0, text).doc()
            elif text == ";":
                flat = " ".join(code.split())
                name = re.search(r"\(\*(\w+)\)", flat) or re.search(r"(\w+)(?:\[\w*\])*$", flat)
                if name:
                    found.append(Member(flat, name[1], pending, bool(RESERVED.search(name[1]))))
                code, pending = "", None
            elif text in "{}":
                code = ""
            elif not text.startswith("/*"):
                code += text
        return found


class Entry(NamedTuple):
    """A comment and the declarations that it is about; doc is None if nothing is said of them."""
    comment: Comment
    doc: Doc
    declarations: list


class Section:
    """What stands between two titles; the remark is what it says of all that is in it."""

    def __init__(self, title, comment=None):
        self.title, self.comment, self.entries = title, comment, []
        self.remark, self.remark_comment = None, None

    def where_told(self, entry, declaration, name):
        """
        Where else than by @param the header tells what a parameter is, or nothing: in the comment of its own type, in
        the text here, in that of the section, or in the comment of another function that is like this one.
        """
        types = {each: kind for kind, each in declaration.parameters()}
        record = re.fullmatch(r"(?:const )?(?:struct )?(\w+)\*?", types[name])
        if record and not PLAIN_TYPE.match(record[1]):
            return f"see {record[1]}"
        if re.search(rf"\b{name}\b", entry.doc.text()):
            return "as said above"
        if self.remark and re.search(rf"\b{name}\b", self.remark.text()):
            return f"as said of all in this section, {self.title}"
        like = LIKE.search(entry.doc.text())
        return f"as for {like[1]}" if like else None

    def tells_result(self):
        """Whether the remark is about results."""
        return bool(self.remark and re.search(r"\breturn", self.remark.text()))


class Header:
    """A header, read."""

    def __init__(self, name, text):
        self.name = name
        self._lines = text.split("\n")
        self._line = 0
        self.comments = []
        self.licence = self._comment()
        self.about_comment = self._comment()
        self.about = self.about_comment.doc()
        self.sections = [Section("")]
        self._pending = None
        self._skipping = 0
        while self._line < len(self._lines):
            self._step()

    def declarations(self):
        for section in self.sections:
            for entry in section.entries:
                yield from entry.declarations

    def _comment(self):
        first = self._line
        while "*/" not in self._lines[self._line]:
            self._line += 1
        self._line += 1
        text = "\n".join(self._lines[first:self._line]).strip()
        return Comment(first, self._line - 1, text)

    def _step(self):
        line = self._lines[self._line].strip()
        if line.startswith("#"):
            self._directive(line)
        elif self._skipping:
            self._line += 1
        elif line.startswith("/*"):
            self._take_comment(self._comment())
        elif not line:
            self._pending = None
            self._line += 1
        else:
            self._take_statement()

    def _take_comment(self, comment):
        title = TITLE.match(comment.text)
        section = self.sections[-1]
        if title:
            self.sections.append(Section(title[1], comment))
        elif comment.is_doc:
            self._pending = Entry(comment, comment.doc(), [])
            section.entries.append(self._pending)
        elif section.title and not section.entries and section.remark is None:
            section.remark, section.remark_comment = comment.doc(), comment
        elif not NO_DECLARATION.match(self._lines[self._line]):
            raise Malformed(f"{self.name}, line {comment.first + 1}: a comment that belongs to no declaration and is "
                            "not the first of a section")

    def _directive(self, line):
        """#else and what follows it are another compiler's."""
        if re.match(r"# *(else|elif)", line):
            self._skipping = 1
        elif re.match(r"# *if", line):
            self._skipping += 1 if self._skipping else 0
        elif re.match(r"# *endif", line):
            self._skipping -= 1 if self._skipping else 0
        if re.match(r"# *define", line) and not self._skipping:
            self._take_macro()
        else:
            self._line += 1

    def _take_macro(self):
        first = self._line
        while self._lines[self._line].endswith("\\"):
            self._line += 1
        text = "\n".join(line.rstrip("\\") for line in self._lines[first:self._line + 1])
        self._line += 1
        if re.match(r"# *define SIDEBAND_\w+_H$", text):
            return
        self._declare(first, text)

    def _take_statement(self):
        first, text = self._line, ""
        while True:
            line = self._lines[self._line]
            text += line + "\n"
            self._line += 1
            bare = COMMENT.sub("", text)
            if NO_DECLARATION.match(bare.strip()) and bare.strip().endswith(("DECLS", ";")):
                return
            if "/*" not in bare and bare.strip().endswith(";") and bare.count("{") == bare.count("}"):
                break
        if not NO_DECLARATION.match(text.strip()):
            self._declare(first, text.rstrip("\n"))

    def _declare(self, first, text):
        trailing = None
        behind = re.search(r"/\*\*<.*?\*/$", text, re.S)
        if behind and not re.search(r"\{", text):
            trailing = Comment(first, self._line - 1, behind[0])
        declaration = Declaration(first, self._line - 1, text, trailing)
        if self._pending is None:
            self._pending = Entry(None, None, [])
            self.sections[-1].entries.append(self._pending)
        self._pending.declarations.append(declaration)


def read(path):
    """The header in a file."""
    return Header(path.name, path.read_text(encoding="utf-8"))
