#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Says for each fuzz target how long it has run in all, and which lines of the sources that it is about its inputs
reach: those that were kept, and the seeds.

usage: fuzz_coverage.py BUILD KEPT [TARGET...]

BUILD has the programs that replay inputs, compiled with clang's source-based coverage. Targets are named as fuzz.sh
names them. Prints a table in Markdown.
"""
import collections
import json
import os
import pathlib
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[1]
# Which sources a target is about, headers apart: what it reaches of others is not counted.
ABOUT = {
    "fuzz-receive": ["transport/smbus_*.cpp", "transport/reassembly.cpp"],
    "fuzz-control": ["transport/control.cpp", "transport/discovery.cpp", "transport/responder.cpp"],
    "fuzz-pcie": ["transport/pcie_*.cpp", "transport/amd_mpio.cpp", "transport/discovery.cpp"],
    "fuzz-socket": ["transport/socket_*.cpp"],
    "fuzz-pldm": ["pldm/base.cpp", "pldm/message.cpp", "pldm/monitor.cpp", "pldm/strict.cpp", "pldm/context.cpp"],
    "fuzz-pdr": ["pldm/pdr*.cpp", "pldm/state_sets.cpp"],
    "fuzz-fru": ["pldm/fru_*.cpp"],
    "fuzz-package": ["pldm/update/package*.cpp", "pldm/update/descriptor.cpp"],
    "fuzz-fw-update": ["pldm/update/*.cpp"],
    "fuzz-ncsi": ["ncsi/*.cpp"],
    "fuzz-nvme": ["NVMeMI/context.cpp", "NVMeMI/message.cpp", "NVMeMI/management.cpp"],
    "fuzz-nvme-admin": ["NVMeMI/admin.cpp", "NVMeMI/download.cpp", "NVMeMI/message.cpp"],
    "fuzz-netlink": ["platform/linux/netlink.cpp"],
    "fuzz-linux-board": ["platform/linux/board.cpp", "platform/linux/board_buses.cpp", "platform/board_file/*.cpp"],
    "fuzz-serial": ["platform/sim/serial/frame.cpp", "platform/sim/serial/bridge.cpp", "platform/sim/mctp/endpoint.cpp",
                    "platform/sim/mctp/control.cpp"],
    "fuzz-board": ["platform/sim/board/board_file.cpp", "platform/sim/*/*config.cpp", "platform/board_file/*.cpp"],
    "fuzz-description": ["tools/update/metadata.cpp", "platform/board_file/*.cpp"],
    "fuzz-http": ["tools/metrics/http_message.cpp"],
}
LIBRARY = ["common/*.cpp", "transport/*.cpp", "pldm/**/*.cpp", "ncsi/*.cpp", "NVMeMI/*.cpp"]


def run(*command, **more):
    done = subprocess.run([str(part) for part in command], capture_output=True, text=True, check=False, **more)
    if done.returncode != 0:
        sys.exit(f"fuzz_coverage.py: {command[0]} failed:\n{done.stderr[-2000:]}")
    return done.stdout


def sources(patterns):
    found = {path for pattern in patterns for path in ROOT.glob(pattern)}
    if not all(list(ROOT.glob(pattern)) for pattern in patterns):
        sys.exit(f"fuzz_coverage.py: nothing is like one of {patterns}")
    return found


def lines_of(profiles, programs, wanted):
    """Lines of sources that are reached, and how many there are to reach. Of several programs llvm-cov says that
    functions do not match: the targets' own, which have the same name in each."""
    merged = profiles[0].parent / "merged"
    run("llvm-profdata-14", "merge", "-sparse", *profiles, "-o", merged)
    objects = [part for program in programs[1:] for part in ("-object", program)]
    told = run("llvm-cov-14", "export", "-summary-only", f"-instr-profile={merged}", programs[0], *objects)
    reached = count = 0
    for file in json.loads(told)["data"][0]["files"]:
        if pathlib.Path(os.path.realpath(file["filename"])) in wanted:
            reached += file["summary"]["lines"]["covered"]
            count += file["summary"]["lines"]["count"]
    if count == 0:
        sys.exit(f"fuzz_coverage.py: {programs[0].name} has none of its sources")
    return reached, count


def runs_of(kept):
    """For each target: seconds, processor seconds and executions of all runs; edges and features of the last one."""
    runs = collections.defaultdict(lambda: [0] * 5)
    path = kept / "runs"
    for line in path.read_text().splitlines() if path.exists() else []:
        _, target, *numbers = line.split()
        numbers = [int(number) for number in numbers]
        runs[target] = [before + more for before, more in zip(runs[target], numbers[:3])] + numbers[3:]
    return runs


def replay(build, kept, target, profile):
    program = build / "fuzz" / target.replace("fuzz-", "fuzz-replay-", 1)
    folders = [folder for folder in (kept / target / "corpus", build / "fuzz/corpus" / target) if folder.is_dir()]
    run(program, "--whole", *folders, env=os.environ | {"LLVM_PROFILE_FILE": str(profile)})
    return program, sum(1 for folder in folders for _ in folder.iterdir())


def percent(reached, count):
    return f"{reached:,} of {count:,} ({100 * reached / count:.0f} %)"


def main():
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    build, kept = (pathlib.Path(argument).resolve() for argument in sys.argv[1:3])
    targets = sys.argv[3:] or list(ABOUT)
    if unknown := set(targets) - set(ABOUT):
        sys.exit(f"fuzz_coverage.py: nobody has said what {', '.join(sorted(unknown))} is about")
    runs = runs_of(kept)
    print("| target | seconds | of them on a processor | executions | edges | features | inputs | lines reached | of |")
    print("|---|---:|---:|---:|---:|---:|---:|---:|---|")
    with tempfile.TemporaryDirectory() as scratch:
        profiles, programs = [], []
        for target in targets:
            profile = pathlib.Path(scratch) / target
            program, inputs = replay(build, kept, target, profile)
            profiles.append(profile)
            programs.append(program)
            figures = " | ".join(f"{number:,}" for number in runs[target])
            print(f"| `{target}` | {figures} | {inputs:,} | "
                  f"{percent(*lines_of([profile], [program], sources(ABOUT[target])))} | "
                  f"{', '.join(f'`{pattern}`' for pattern in ABOUT[target])} |", flush=True)
        if len(targets) == len(ABOUT):
            total = percent(*lines_of(profiles, programs, sources(LIBRARY)))
            figures = " | ".join(f"{sum(run[i] for run in runs.values()):,}" for i in range(3))
            print(f"| all | {figures} | | | | {total} | the library |")


if __name__ == "__main__":
    main()
