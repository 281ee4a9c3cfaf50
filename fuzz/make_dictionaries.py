#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Writes the dictionaries of the fuzz targets, TARGET.dict each: those of fuzz/dictionaries/ as they are, and those of
texts in JSON with the words that their readers know.

usage: make_dictionaries.py FOLDER STAMP

The words are taken from the sources, so that a new key is in them from its first day. The file STAMP is written last,
for a build that has to know when they were made.
"""
import json
import pathlib
import re
import shutil
import sys

ROOT = pathlib.Path(__file__).resolve().parents[1]
HAND_WRITTEN = ROOT / "fuzz/dictionaries"
SCHEMA = ROOT / "docs/board.schema.json"
SHARED = ["platform/board_file/fields.cpp", "platform/board_file/json_tree.cpp"]
SOURCES = {"fuzz-linux-board": ["platform/linux/board.cpp", "platform/linux/board_buses.cpp", *SHARED],
           "fuzz-description": ["tools/update/metadata.cpp"]}
SYNTAX = ["{", "}", "[", "]", ":", ",", "null", "true", "false", "\"0x", "\"\"", "\\u0000", "-1", "1e9",
          "9223372036854775807", "4294967295", "65535", "255", "{}", "[]", "[{", "}]", "},{"]
WORD = re.compile(r"[A-Za-z_][A-Za-z0-9_]*")


def schema_words(node):
    """The keys of a schema's objects, and the words that a value may be."""
    if isinstance(node, dict):
        yield from node.get("properties", {})
        yield from (word for word in [*node.get("enum", []), node.get("const")] if isinstance(word, str))
        for value in node.values():
            yield from schema_words(value)
    elif isinstance(node, list):
        for value in node:
            yield from schema_words(value)


def source_words(paths):
    """The texts in sources that have the form of a key."""
    for path in paths:
        for literal in re.findall(r'"((?:[^"\\\n]|\\.)*)"', (ROOT / path).read_text()):
            if WORD.fullmatch(literal):
                yield literal


def entry(text):
    return '"' + "".join(c if c not in '"\\' else "\\" + c for c in text) + '"\n'


def dictionary(words):
    words = sorted(set(words))
    if len(words) < 10:
        sys.exit("make_dictionaries.py: there are hardly any words: are they elsewhere now?")
    keys = "".join(entry(f'"{word}"') for word in words)
    return "".join(map(entry, SYNTAX)) + keys


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    folder = pathlib.Path(sys.argv[1])
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    for path in HAND_WRITTEN.glob("*.dict"):
        shutil.copy(path, folder)
    words = {target: source_words(paths) for target, paths in SOURCES.items()}
    words["fuzz-board"] = schema_words(json.loads(SCHEMA.read_text()))
    for target, some in words.items():
        (folder / f"{target}.dict").write_text(dictionary(some))
    pathlib.Path(sys.argv[2]).write_text("")


if __name__ == "__main__":
    main()
