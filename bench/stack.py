#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""How much stack each exported function takes at most, by the frames that the compiler reports.

usage: stack.py BUILD_DIRECTORY [FUNCTION...]

Reads what -fcallgraph-info=su wrote beside the library's objects, and prints for each kind of binding the deepest of each
family of calls and the ten deepest of all, or those named with the way down, with the library's own bindings. What libc and the platform take below a call is not in it.
"""
import pathlib
import re
import subprocess
import sys

DEEPEST = 10

# Which functions a call through a pointer may reach: by the file of the caller (and its name, if that matters),
# by file and name of the called. The first line that fits counts.
NOBODY = ""
OPERATIONS = "operations of the binding"
BINDINGS = {
    "SMBus": r"transport/.*:(sl8_)?smbus_(send|recv|xfer)\w*$",
    "PCIe": r"transport/.*:pcie_(send|recv|xfer)\w*$",
    "sockets": r"transport/.*:socket_(send|recv|xfer)\w*$",
}
LAYER = r"pldm/message\.cpp:pldm_(send|recv|transfer)$"
INDIRECT = [
    # The library's own bindings are read in place: only a binding of somebody else's gets that far.
    (r"transport/reassembly\.cpp", r"", NOBODY),
    (r"transport/smbus_message\.cpp", r"", r"transport/.*:(sl8_)?smbus_block_(read|write)$"),
    (r"transport/pcie_message\.cpp", r"", r"transport/.*:pcie_(read|write|transfer)$"),
    (r"transport/", r"", OPERATIONS),
    (r"pldm/message\.cpp|pldm/base\.cpp", r"^exchange$", LAYER),
    (r"pldm/(message|base|strict)\.cpp", r"", OPERATIONS),
    (r"pldm/update/(answers|state|message)\.cpp", r"", LAYER),
    # The platform's own, and what prints.
    (r"pldm/update/(devices|descriptor)\.cpp|common/(printable|output|debug_log)\.cpp", r"", NOBODY),
    (r"ncsi/message", r"^exchange$", r"ncsi/message\.cpp:(transfer|transfer_by_oem)$"),
    (r"ncsi/(message|commands)", r"^(transfer_by_oem|ncsi_oem_\w+)$", r"ncsi/message\.cpp:transfer_locked$"),
    (r"ncsi/oem\.cpp", r"^ncsi_oem_\w+_entry$", r"ncsi/oem\.cpp:ncsi_oem_(?!.*_entry$)\w+$"),
    (r"ncsi/", r"", OPERATIONS),
    (r"NVMeMI/context\.cpp", r"^initialise$", r"transport/mctp\.cpp:mctp_init2\w*$"),
    (r"NVMeMI/message\.cpp", r"^transfer$", r"NVMeMI/.*:request_with_retries$"),
    (r"NVMeMI/", r"", OPERATIONS),
]

# The families of calls that docs/porting.md tells a port about, by the file that a function is in. The first line that
# fits counts.
FAMILIES = {
    "MCTP control, discovery": r"transport/",
    "PLDM base": r"pldm/(base|context|message|strict)\.cpp",
    "PLDM monitoring": r"pldm/(monitor|pdr\w*|state_sets)\.cpp",
    "PLDM FRU data": r"pldm/fru_\w+\.cpp",
    "PLDM firmware update": r"pldm/update/",
    "NC-SI": r"ncsi/",
    "NVMe-MI context and management": r"NVMeMI/(context|message|management)\.cpp",
    "NVMe firmware download": r"NVMeMI/download\.cpp",
    "NVMe admin commands": r"NVMeMI/admin\.cpp",
    "log, texts": r"common/",
}

# What calls itself on purpose, once more for each component of a package; it counts once here.
NESTS = ("fw_update_state_fn",)

# What the library calls for another binding than its own.
FOR_OTHER_BINDINGS = ("transfer_aside",)

NODE = re.compile(r'node: \{ title: "([^"]+)" label: "([^"]*)"')
EDGE = re.compile(r'edge: \{ sourcename: "([^"]+)" targetname: "([^"]+)"')
CALL = "__indirect_call"


CLONES = ("constprop", "isra", "part", "cold")


def last_identifier(mangled):
    """The last identifier of a nested mangled name: _ZN8sideband12_GLOBAL__N_14readE... has "read"."""
    name, rest = mangled, mangled[mangled.find("_ZN") + 3:]
    while match := re.match(r"[KVrRO]*(\d+)", rest):
        length = int(match[1])
        name = rest[match.end():match.end() + length]
        rest = rest[match.end() + length:]
    return name


class Function:
    def __init__(self, title, label):
        lines = label.split("\\n")
        # The label of a clone has no name; the mangled one ends with the identifier behind its length.
        named = re.search(r"([\w~]+)\(", lines[0].replace("{anonymous}::", ""))
        self.name = named[1] if named and named[1] not in CLONES else last_identifier(title)
        self.place = lines[1] if len(lines) > 1 else ""
        frame = re.match(r"(\d+) bytes \((\w+)", lines[2]) if len(lines) > 2 else None
        self.frame = int(frame[1]) if frame else 0
        self.bounded = frame is None or frame[2] == "static"
        self.defined = frame is not None
        self.calls = set()

    def where(self):
        return self.place.split(":")[0] + ":" + self.name


def read(build):
    """Every function by its title."""
    functions = {}
    files = list(pathlib.Path(build).glob("libsideband.so*.p/*.ci"))
    if not files:
        sys.exit(f"stack.py: {build} was not built with -fcallgraph-info=su")
    for file in files:
        text = file.read_text()
        for title, label in NODE.findall(text):
            known = functions.get(title)
            function = Function(title, label)
            if known is None or (function.defined and not known.defined):
                functions[title] = function
        for source, target in EDGE.findall(text):
            functions[source].calls.add(target)
    return functions


def targets(functions, function, operations):
    """The titles that a function may call, those through pointers resolved."""
    for title in function.calls:
        if title != CALL:
            yield title
            continue
        for place, caller, called in INDIRECT:
            if re.search(place, function.place) and re.search(caller, function.name):
                break
        else:
            # An algorithm of the standard library that got its predicate by pointer.
            if "/include/c++/" in function.place or function.name.startswith("operator"):
                continue
            sys.exit(f"stack.py: {function.name} ({function.place}) calls through a pointer: say whom, in INDIRECT")
        called = operations if called == OPERATIONS else called
        found = [t for t, f in functions.items() if f.defined and re.search(called, f.where())]
        if called != NOBODY and not found:
            sys.exit(f"stack.py: {function.name} ({function.place}) calls nobody by the name of {called}")
        if called != NOBODY:
            yield from found


def deepest(functions, title, operations, depths, above=()):
    """(bytes, titles on the way down)"""
    if title in depths:
        return depths[title]
    if title in NESTS and title in above:
        return 0, []
    if title in above:
        sys.exit(f"stack.py: {functions[title].name} calls itself: nothing bounds its stack")
    function = functions.get(title)
    if function is None or not function.defined:
        return 0, []
    if function.name in FOR_OTHER_BINDINGS:
        return 0, []
    if not function.bounded:
        sys.exit(f"stack.py: {function.name} has a frame of a size that only shows when it runs")
    below = (0, [])
    for target in targets(functions, function, operations):
        below = max(below, deepest(functions, target, operations, depths, (*above, title)), key=lambda d: d[0])
    depths[title] = (function.frame + below[0], [title, *below[1]])
    return depths[title]


def exported(build):
    listed = subprocess.run(["nm", "-D", "--defined-only", pathlib.Path(build) / "libsideband.so"],
                            check=True, capture_output=True, text=True).stdout
    return re.findall(r" [Tt] ([^@\s]+)", listed)


def measure(build, binding):
    """Bytes by exported function, the deepest first, and the functions with their depths."""
    functions = read(build)
    depths = {}
    names = [name for name in exported(build) if name in functions]
    if not names:
        sys.exit(f"stack.py: {build} exports nothing that was compiled there")
    sizes = {name: deepest(functions, name, BINDINGS[binding], depths)[0] for name in names}
    return dict(sorted(sizes.items(), key=lambda item: (-item[1], item[0]))), functions, depths


def families(sizes, functions):
    """The deepest exported function of each family: bytes by family."""
    found = dict.fromkeys(FAMILIES, 0)
    for name, size in sizes.items():
        place = functions[name].place
        family = next((family for family, pattern in FAMILIES.items() if re.search(pattern, place)), None)
        if family is None:
            sys.exit(f"stack.py: {name} ({place}) is in no family: say in which, in FAMILIES")
        found[family] = max(found[family], size)
    if 0 in found.values():
        sys.exit(f"stack.py: a family without calls: {found}")
    return found


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    for binding in BINDINGS:
        sizes, functions, depths = measure(sys.argv[1], binding)
        print(f"over {binding}:")
        if len(sys.argv) == 2:
            for family, size in families(sizes, functions).items():
                print(f"{size:>7} {family}")
        for name in sys.argv[2:] or list(sizes)[:DEEPEST]:
            print(f"{sizes[name]:>7} {name}")
            if len(sys.argv) > 2:
                for title in depths[name][1]:
                    print(f"        {functions[title].frame:>7} {functions[title].name}")


if __name__ == "__main__":
    main()
