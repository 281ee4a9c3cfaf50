#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Holds the figures of docs/porting.md: sizes of records, stack by family of calls, the PECs of its examples.

usage: porting_page.py [--write] --root SOURCE_ROOT --compiler "COMMAND"...

Sizes are those that the compilers give, each for its machine's column; stack is that of bench/budgets.json. --write puts
them into the page instead.
"""
import argparse
import json
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile

HEADERS = ("mctp", "ncsi", "nvme_mi", "platform", "pldm", "pldm_fw_update")
SIZES = "| record | armhf | x86-64 |"
STACK = "| family of calls | over SMBus | over PCIe | over sockets |"
# Column of the table of sizes, by what a compiler calls its machine.
COLUMNS = {"arm-linux-gnueabihf": 0, "arm-linux-gnueabi": 0, "x86_64-linux-gnu": 1, "x86_64-pc-linux-gnu": 1}
BINDINGS = ("SMBus", "PCIe", "sockets")
EXAMPLE = re.compile(r"^((?:[0-9a-f]{2} )+)\| ([0-9a-f]{2})$", re.M)


def rows(page, head):
    """The rows of a table: names and their cells."""
    table = page.partition(head + "\n")[2].partition("\n\n")[0].splitlines()[1:]
    cells = ([cell.strip().strip("`") for cell in line.strip("|").split("|")] for line in table)
    return {first: rest for first, *rest in cells}


def sizes(names, compiler, include):
    """Bytes of each record as a compiler lays it out."""
    lines = [f"#include <sideband/{header}.h>" for header in HEADERS]
    lines += [f'extern "C" {{ char size_{name}[sizeof({name})]; }}' for name in names]
    with tempfile.TemporaryDirectory() as folder:
        source = pathlib.Path(folder) / "sizes.cpp"
        source.write_text("\n".join(lines) + "\n")
        done = subprocess.run([*compiler, "-std=c++20", "-fno-lto", "-I", include, "-S", "-o", "-", source], check=True,
                              capture_output=True, text=True)
    return {name: int(size) for name, size in re.findall(r"\.size\s+size_(\w+), (\d+)", done.stdout)}


def thousands(number):
    return f"{number:,}"


def wanted_stack(root):
    budgets = json.loads((root / "bench" / "budgets.json").read_text())
    columns = [budgets[f"stack by family over {binding} on armhf, bytes"] for binding in BINDINGS]
    return {family: [thousands(column[family]) for column in columns] for family in columns[0]}


def with_rows(page, head, wanted):
    """The page with other cells in the rows of a table."""
    before, head, rest = page.partition(head + "\n")
    table, gap, after = rest.partition("\n\n")
    for name, cells in wanted.items():
        table = re.sub(rf"^\| (`?){re.escape(name)}`? \|.*$",
                       lambda match: f"| {match[1]}{name}{match[1]} | " + " | ".join(cells) + " |", table, flags=re.M)
    return before + head + table + gap + after


def pec(data):
    crc = 0
    for byte in data:
        crc ^= byte
        for _ in range(8):
            crc = (crc << 1 ^ 0x07) & 0xFF if crc & 0x80 else crc << 1
    return crc


def example_complaints(page):
    examples = EXAMPLE.findall(page)
    if len(examples) < 2:
        return ["no examples of a PEC"]
    return [f"the PEC of {data.strip()} is {pec(bytes.fromhex(data)):02x}, not {told}" for data, told in examples
            if pec(bytes.fromhex(data)) != int(told, 16)]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--write", action="store_true")
    parser.add_argument("--root", required=True, type=pathlib.Path)
    parser.add_argument("--compiler", action="append", default=[])
    arguments = parser.parse_args()
    path = arguments.root / "docs" / "porting.md"
    page = path.read_text(encoding="utf-8")
    known, told_stack = rows(page, SIZES), rows(page, STACK)
    wanted = {name: list(cells) for name, cells in known.items()}
    checked = 0
    for command in map(shlex.split, arguments.compiler):
        machine = subprocess.run([*command, "-dumpmachine"], check=True, capture_output=True, text=True).stdout.strip()
        if machine not in COLUMNS:
            print(f"{machine} has no column")
            continue
        checked += 1
        for name, size in sizes(known, command, arguments.root / "include").items():
            wanted[name][COLUMNS[machine]] = thousands(size)
    stack = wanted_stack(arguments.root)
    if arguments.write:
        page = with_rows(with_rows(page, SIZES, wanted), STACK, stack)
        path.write_text(page, encoding="utf-8")
        return 0
    complaints = [f"{name}: the page has {known[name]}, the compiler {cells}" for name, cells in wanted.items()
                  if cells != known[name]]
    complaints += [f"{family}: the page has {told_stack.get(family)}, bench/budgets.json {stack.get(family)}"
                   for family in {**stack, **told_stack} if stack.get(family) != told_stack.get(family)]
    complaints += example_complaints(page)
    print("\n".join(complaints) or f"{len(known)} records by {checked} compilers, {len(stack)} families of calls")
    return 1 if complaints or not known or not checked else 0


if __name__ == "__main__":
    sys.exit(main())
