#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The manual pages: whether they are what the tools say of themselves, and whether troff has nothing to say of them.

usage: manual.py ROOT TOOL...

Exit status 77 if neither groff nor man is installed and nothing else is wrong.
"""
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys

sys.dont_write_bytecode = True  # no __pycache__ in the source tree


def tree_of(tool):
    return json.loads(subprocess.run([tool, "__commands"], check=True, capture_output=True, text=True).stdout)


def options_of(node):
    """All options of a command and of what is under it."""
    names = {name for option in node["options"] if not option["argument"] for name in option["names"]}
    return names.union(*(options_of(command) for command in node["commands"]))


def commands_of(node, words=()):
    """The words of every command, and of every noun."""
    yield words
    for command in node["commands"]:
        yield from commands_of(command, (*words, command["name"]))


def plain(text):
    """A page without fonts and escapes."""
    text = re.sub(r"\\f[BIR]", "", text)
    return text.replace("\\-", "-").replace("\\&", "").replace("\\(aq", "'")


def missing(page, tree):
    """Commands and options that the page does not have."""
    text = plain(page)
    # A command with nothing under it has a paragraph that begins with it.
    words = [" ".join(command) for command in commands_of(tree)]
    leaves = [word for word in words if word and not any(other.startswith(word + " ") for other in words)]
    return [f"lacks {word}" for word in leaves if not re.search(rf"^{re.escape(word)}(?= [\[A-Z-]|$)", text, re.MULTILINE)] + \
        [f"lacks {name}" for name in options_of(tree) - {"--help", "-h"}
         if not re.search(rf"(?<![\w-]){re.escape(name)}(?![\w-])", text)]


def unknown(page, tree):
    """Options that the page has and the tool has not, and examples of commands that there are not."""
    text = plain(page)
    known = options_of(tree)
    complaints = [f"has {name}, which the tool has not" for name in set(re.findall(r"(?<![\w-])--[a-z][\w-]*", text))
                  if name not in known]
    commands = set(commands_of(tree))
    for example in re.findall(rf"^\.B {tree['name']} (.+)$", text, re.MULTILINE):
        words = list(example.split())
        while words and words[0].startswith("-"):  # an option and, unless it is a flag, its value
            words = words[1:] if words[0] in ("--json", "--verbose") else words[2:]
        if not words or (words[0],) not in commands:
            complaints.append(f"shows {example}, which is no command")
        elif any(len(command) == 2 and command[0] == words[0] for command in commands) and \
                tuple(words[:2]) not in commands:
            complaints.append(f"shows {example}, which is no command")
    return complaints


def same(root, tool, page):
    sys.path.insert(0, str(root / "scripts"))
    import make_manual  # noqa: E402, PLC0415
    if page.read_text() == make_manual.manual(tool, page.with_name(page.name + ".in")):
        return []
    return [f"is not what the tool says: scripts/make_manual.py TOOL docs/man/{page.name}.in >docs/man/{page.name}"]


def said_by(*command):
    """What a formatter complains of."""
    done = subprocess.run(command, capture_output=True, text=True, check=False, env={**os.environ, "LC_ALL": "C.UTF-8"})
    return [f"{command[0]}: {line}" for line in done.stderr.splitlines()] + \
        ([f"{command[0]} ends with {done.returncode}"] if done.returncode else [])


def main():
    root = pathlib.Path(sys.argv[1])
    tools = sys.argv[2:]
    pages = sorted((root / "docs" / "man").glob("*.[17]"))
    complaints = []
    for tool in tools:
        tree = tree_of(tool)
        page = root / "docs" / "man" / (tree["name"] + ".1")
        for complaint in missing(page.read_text(), tree) + unknown(page.read_text(), tree) + same(root, tool, page):
            complaints.append(f"{page.name}: {complaint}")
    formatters = [words for words in (["groff", "-man", "-Tutf8", "-ww", "-z"], ["man", "--warnings", "-l"])
                  if shutil.which(words[0])]
    for name in {"groff", "man"} - {words[0] for words in formatters}:
        print(f"skipped: {name} is not installed")
    version = subprocess.run([tools[0], "--version"], check=True, capture_output=True, text=True).stdout.split()[1]
    for page in pages:
        if f'"sideband {version}"' not in page.read_text():
            complaints.append(f"{page.name}: is not of version {version}")
        for words in formatters:
            complaints += [f"{page.name}: {line}" for line in said_by(*words, str(page))]
    for complaint in complaints:
        print(complaint)
    print(f"{len(pages)} pages, {len(complaints)} complaints")
    if complaints or not pages:
        return 1
    return 0 if formatters else 77


if __name__ == "__main__":
    sys.exit(main())
