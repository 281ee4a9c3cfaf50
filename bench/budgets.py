#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Holds what the library costs against bench/budgets.json: instructions, stack and size.

usage: budgets.py [--record] X86_BUILD ARM_BUILD

The file has what was measured when it was written; what is more than 3 % above fails, as does a case or a function
that it does not know. --record writes it anew: do that, and say why, if a change is worth its cost, or has saved
something. What docs/porting.md tells of the stack is renewed by tests/checks/porting_page.py --write, the figures of
docs/performance.md by performance_page.py --write there.
"""
import argparse
import json
import pathlib
import re
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True  # no __pycache__ in the source tree
import instructions  # noqa: E402
import stack  # noqa: E402

FILE = pathlib.Path(__file__).resolve().parent / "budgets.json"
TOLERANCE = 0.03


def sizes(build):
    """Bytes of the library in flash and memory, and of its stripped file."""
    library = pathlib.Path(build) / "libsideband.so"
    with tempfile.TemporaryDirectory() as scratch:
        stripped = pathlib.Path(scratch) / "stripped"
        subprocess.run(["arm-linux-gnueabihf-strip", "-o", stripped, library], check=True)
        table = subprocess.run(["arm-linux-gnueabihf-size", stripped], check=True, capture_output=True,
                               text=True).stdout
        text, data, bss = (int(n) for n in re.findall(r"\d+", table.splitlines()[1])[:3])
        return {"text": text, "data": data, "bss": bss, "text + data + bss": text + data + bss,
                "stripped file": stripped.stat().st_size}


def deepest(build, binding):
    depths, _, _ = stack.measure(build, binding)
    return dict(list(depths.items())[:stack.DEEPEST])


def families(build, binding):
    depths, functions, _ = stack.measure(build, binding)
    return stack.families(depths, functions)


def counted(build, plugin=None):
    return {case: round(parts["library"] + parts["libc"]) for case, parts in instructions.measure(build, plugin)}


def measure(x86, arm):
    return {
        "instructions on x86-64, -O2": counted(x86),
        "instructions on armhf, -Os": counted(arm, pathlib.Path(x86) / "bench" / "count_plugin.so"),
        **{f"stack over {binding} on armhf, bytes": deepest(arm, binding) for binding in stack.BINDINGS},
        **{f"stack by family over {binding} on armhf, bytes": families(arm, binding) for binding in stack.BINDINGS},
        "size on armhf, bytes": sizes(arm),
    }


def compare(found, budget):
    """Prints one table and gives the number of lines that miss their budget."""
    missed = 0
    for name in [*found, *(name for name in budget if name not in found)]:
        now, bound = found.get(name), budget.get(name)
        if now is None:
            verdict = "  NOT MEASURED"
        elif bound is None:
            verdict = "  NO BUDGET"
        elif now > bound * (1 + TOLERANCE):
            verdict = "  MISSED"
        else:
            verdict = ""
            if now < bound * (1 - TOLERANCE):
                print(f"  {name} needs less than its budget: record it")
        print(f"  {name:<50}{'-' if now is None else now:>9}{'-' if bound is None else bound:>9}{verdict}")
        missed += bool(verdict)
    return missed


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--record", action="store_true")
    parser.add_argument("x86")
    parser.add_argument("arm")
    arguments = parser.parse_args()
    found = measure(arguments.x86, arguments.arm)
    if arguments.record:
        FILE.write_text(json.dumps(found, indent=2) + "\n")
        return 0
    budgets = json.loads(FILE.read_text())
    missed = 0
    for name, table in found.items():
        print(f"{name:<52}{'now':>9}{'budget':>9}")
        missed += compare(table, budgets.get(name, {}))
    print(f"{missed} missed" if missed else "every budget is kept")
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
