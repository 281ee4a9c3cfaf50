#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Writes a manual page of the tool: what stands in a template, and what the tool says of its commands.

usage: make_manual.py TOOL TEMPLATE >PAGE

In the template @VERSION@, @OPTIONS@ and @COMMANDS@ are the tool's, @END@ is tool-end.1.in beside it. A cross compiler's
tool cannot be run, so the pages lie in the tree; the test "manual" tells if one is old.
"""
import json
import pathlib
import re
import subprocess
import sys


def escaped(text):
    """Text as troff takes it, in one line."""
    text = text.replace("\\", "\\e").replace("-", "\\-").replace("'", "\\(aq").replace("^", "\\(ha").replace("~", "\\(ti")
    return re.sub(r"^([.'])", r"\\&\1", text)


def sentence(option):
    """The help, and the least and the largest value."""
    text = option["help"]
    limits = re.fullmatch(r"\w+ in \[(\S+) - (\S+)\]", option["limits"])
    if limits and option["takes_value"] and " to " not in text:
        text += f" ({limits[1]} to {limits[2]})"
    return escaped(text)


def value_of(option):
    """The name of the value in italics, words to choose from as they are."""
    value = option["value"]
    font = "B" if "|" in value else "I"
    return "\\f" + font + escaped(value) + "\\fR" if value else ""


def dots(option):
    return "..." if option["many"] else ""


def option_lines(option):
    if option["argument"]:
        head = f"\\fI{escaped(option['names'][0])}\\fR" + dots(option)
        head += ": " + value_of(option) if "|" in option["value"] else ""
    else:
        head = ", ".join(f"\\fB{escaped(name)}\\fR" for name in option["names"])
        head += " " + value_of(option) + dots(option) if option["value"] else ""
    return [".TP", head, sentence(option)]


def options_of(node, wanted):
    return [option for option in node["options"] if "--help" not in option["names"] and option["argument"] == wanted]


def synopsis(words, node):
    text = f"\\fB{escaped(words)}\\fR"
    for option in options_of(node, True):
        name = f"\\fI{escaped(option['names'][0])}\\fR" + dots(option)
        text += f" {name}" if option["required"] else f" [{name}]"
    for option in options_of(node, False):
        name = f"\\fB{escaped(option['names'][0])}\\fR" + (" " + value_of(option) + dots(option) if option["value"] else "")
        text += f" {name}" if option["required"] else f" [{name}]"
    return text


def commands_of(node, words):
    """Every command under a node."""
    for command in node["commands"]:
        below = f"{words} {command['name']}".strip()
        if command["commands"]:
            yield from commands_of(command, below)
        else:
            yield below, command


def command_lines(tree):
    lines = []
    for noun in tree["commands"]:
        lines += [".SS " + escaped(noun["name"]), escaped(noun["help"][:1].upper() + noun["help"][1:]) + "."]
        commands = list(commands_of(noun, noun["name"])) if noun["commands"] else [(noun["name"], noun)]
        for words, command in commands:
            lines += [".TP", synopsis(words, command)]
            lines += [escaped(command["help"])] if noun["commands"] else ["\\&"]
            # What an ENDPOINT is stands in the description, for all commands.
            explained = [option for option in options_of(command, True) + options_of(command, False)
                         if option["names"] != ["ENDPOINT"]]
            if explained:
                lines += [".RS"] + [line for option in explained for line in option_lines(option)] + [".RE"]
    return lines


def manual(tool, template):
    tree = json.loads(subprocess.run([tool, "__commands"], check=True, capture_output=True, text=True).stdout)
    version = subprocess.run([tool, "--version"], check=True, capture_output=True, text=True).stdout.split()[1]
    options = [line for option in tree["options"] for line in option_lines(option)]
    text = template.read_text().replace("@END@\n", (template.parent / "tool-end.1.in").read_text())
    for key, value in (("@OPTIONS@", "\n".join(options)), ("@COMMANDS@", "\n".join(command_lines(tree))),
                       ("@VERSION@", version), ("@TOOL@", escaped(tree["name"]))):
        text = text.replace(key, value)
    # The tools share the end of their pages, and none refers to itself.
    return text.replace(f".BR {escaped(tree['name'])} (1),\n", "")


if __name__ == "__main__":
    sys.stdout.write(manual(sys.argv[1], pathlib.Path(sys.argv[2])))
