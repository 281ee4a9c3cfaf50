#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Compiles every example against the installed library, with warnings as errors, runs it on the simulated board
and checks what it prints.

usage: examples.py --build DIR --cc COMMAND --cxx COMMAND [--sanitize LIST] --make-examples SCRIPT TOOL EXAMPLE...
"""
import pathlib
import re
import sys
import tempfile

sys.dont_write_bytecode = True  # no __pycache__ in the source tree
from prefix import Prefix, parser, run  # noqa: E402

WARNINGS = "-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror"
LANGUAGES = {".c": "cc -std=c11", ".cpp": "cxx -std=c++20"}
LONGEST = 100  # lines
# The file that an example is given.
FILES = {"update_nic": "nic.fwpkg", "update_drive": "drive.img"}
# A file that the device does not take, and what the example says of it: its exit status is 1.
REFUSED = {"update_nic": ("cut.fwpkg", "the card is not there, or the package is not for it"),
           "update_drive": ("nic.fwpkg", "the drive does not keep the image")}
# Lines that it prints, in this order, among others: the trace of the library goes to the same place.
EXPECTED = {
    "read_sensor": ["EID 29: 69.000 degC"],
    "poll_sensors": [
        "round 0, sensor 1: 69.125 degC", "round 0, sensor 2: 75128.000 mW",
        "round 0, sensor 3: 70.000 degC", "round 0, sensor 4: 882.000 mV",
        "round 1, sensor 1: 79.000 degC", "round 2, sensor 2: 105717.000 mW",
        "round 2, sensor 4: 792.000 mV"],
    "inventory": [
        "bus 2, address 0x64", " record set 1", "  manufacturer: Example Networks", "  model: EN-2x100G",
        "  part number: EN2-1000-04", "  serial number: EN24C0012345", "  version: A4",
        "  description: Dual-port 100 Gb/s network adapter", " record set 2", "  name: Port 0 module",
        "  vendor: Example Optics", "  part number: EO-100G-SR4", "  serial number: EO0077123",
        "bus 3, address 0x9e", " record set 1", "  manufacturer: Example Graphics",
        "  serial number: EG1524009876", "  asset tag: RACK12-U20"],
    "update_nic": ["before: active 22.40.1000, pending nothing", "after: active 22.41.1000, pending nothing"],
    "update_drive": ["revision ES11    , before ES10    "],
    "link_state": ["channel 0: link up, 25 Gb/s, auto-negotiation complete", "channel 1: link down"],
    "discover_pcie": [
        "47:00.0: EID 64, UUID 67707531-0c3a-4f7e-b1d6-000000000006, TID 4",
        "c2:00.0: EID 66, UUID 6e696331-73f2-4b0d-8d54-000000000009, TID 6",
        "c3:00.0: no endpoint"],
    "own_transfer": ["TID 42: 23 degC", "no sensor 8: completion code 0x80, after 3 exchanges"],
}


def missing_line(output, expected):
    """The first expected line that the output does not have behind the ones before it; None if it has all."""
    lines = iter(output.splitlines())
    return next((line for line in expected if line not in lines), None)


def check(prefix, example, data):
    """Complaints about one example."""
    name = example.stem
    text = example.read_text(encoding="utf-8")
    complaints = [f"{name}: {len(text.splitlines())} lines, more than {LONGEST}"
                  for _ in range(len(text.splitlines()) > LONGEST)]
    foreign = [header for header in re.findall(r'^#include [<"](.*)[>"]', text, re.MULTILINE)
               if "/" in header and not header.startswith(("sideband/", "sideband-sim/"))]
    complaints += [f"{name}: includes {header}" for header in foreign]
    prefix.shell(f"{LANGUAGES[example.suffix]} {WARNINGS} {example} "
                 f"$(pkg-config --cflags --libs sideband sideband-sim) -o {name}")
    output = prefix.execute(name, *[data / FILES[name]] if name in FILES else [])
    line = missing_line(output, EXPECTED.get(name, ["what examples.py expects of it"]))
    if name in REFUSED:
        file, words = REFUSED[name]
        said = prefix.execute(name, data / file, status=1)
        complaints += [f"{name}: does not say \"{words}\":\n{said}" for _ in range(words not in said)]
    if line is not None:
        complaints.append(f"{name}: does not print, at its place, \"{line}\":\n{output}")
    return complaints


def main():
    arguments = parser()
    arguments.add_argument("--make-examples", required=True)
    arguments.add_argument("tool")
    arguments.add_argument("example", nargs="+", type=lambda name: pathlib.Path(name).resolve())
    arguments = arguments.parse_args()
    here = arguments.example[0].parent
    complaints = [f"{path.name} is not tried" for path in sorted(here.glob("*.c*"))
                  if path not in arguments.example]
    page = (here / "README.md").read_text(encoding="utf-8")
    complaints += [f"{path.name} is not in examples/README.md" for path in arguments.example
                   if f"]({path.name}) |" not in page]
    with tempfile.TemporaryDirectory() as name:
        data = pathlib.Path(name) / "data"
        data.mkdir()
        run([sys.executable, arguments.make_examples, "--tool", arguments.tool, str(data)])
        prefix = Prefix(pathlib.Path(name), arguments)
        for example in arguments.example:
            complaints += check(prefix, example, data)
    print("\n".join(complaints) or f"{len(arguments.example)} examples print what they should")
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main())
