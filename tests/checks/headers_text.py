# SPDX-License-Identifier: Apache-2.0
"""Finds the functions and variables that a C header of this project declares."""
import re
from typing import NamedTuple


def _statements(text):
    """The top-level declarations of a header: no comments, directives or bodies."""
    text = re.sub(r"/\*.*?\*/|//[^\n]*", " ", text, flags=re.S)
    text = re.sub(r"^[ \t]*#(?:[^\n\\]|\\\n|\\.)*", " ", text, flags=re.M)
    outside, depth = [], 0
    for character in text:
        if character == "{":
            depth += 1
        elif character == "}":
            depth -= 1
        elif depth == 0:
            outside.append(character)
    return [" ".join(statement.split()) for statement in "".join(outside).split(";")]


class Declaration(NamedTuple):
    name: str
    text: str  # without the semicolon
    is_function: bool


def declarations(text, marked_with=None):
    """
    The functions and extern variables declared in the text.

    With marked_with only declarations that contain this word count.
    """
    found = []
    for statement in _statements(text):
        statement = re.sub(r"\bSIDEBAND_(BEGIN|END)_DECLS\b", "", statement).strip()
        if statement.startswith(("typedef ", "SIDEBAND_STATIC_ASSERT")):
            continue
        if marked_with and not re.search(rf"\b{marked_with}\b", statement):
            continue
        function = re.search(r"\b(\w+)\s*\(", statement)
        variable = re.search(r"\bextern\b.*?\b(\w+)(?:\s*\[[^\]]*\])*$", statement)
        if function or variable:
            found.append(Declaration((function or variable).group(1), statement, bool(function)))
    return found


def declared_names(text, marked_with=None):
    """Their names."""
    return {each.name for each in declarations(text, marked_with)}
