#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Has systemd and Prometheus read the samples for those who install the project.

What a unit lets its program do is held against the sources, since nothing else fails without a service manager.

usage: packaging.py SOURCE_ROOT
"""
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile


OPENED = ("platform/linux", "transport", "tools/metrics")
# The tap is for an option alone.
TAP, TAP_OPTION = "tap.cpp", "--capture"
RECORDS, BOARD = "platform/linux/records.cpp", "platform/linux/board.h"


def named_families(argument, text):
    """The address families that the first argument of socket() stands for; none if that cannot be told."""
    if re.fullmatch(r"[AP]F_\w+", argument):
        return {"AF" + argument[2:]}
    if argument.endswith("ai_family"):
        return {"AF_INET", "AF_INET6"}
    constant = re.search(rf"\b{re.escape(argument)} = .*\b(AF_\w+)", text)
    return {constant[1]} if constant else set()


def opened_families(root, command):
    """Address family -> a file that opens sockets of it if that command runs; and what cannot be told."""
    families, unclear = {}, []
    for path in sorted(path for folder in OPENED for path in (root / folder).rglob("*.cpp")):
        if path.name == TAP and TAP_OPTION not in command:
            continue
        text, name = path.read_text(encoding="utf-8"), path.relative_to(root)
        for argument in re.findall(r"\bsocket\(([^(),]+),", text):
            found = named_families(argument, text)
            families.update(dict.fromkeys(found, name))
            unclear += [] if found else [f"{name}: the family of socket({argument}, ...) cannot be told"]
    return families, unclear


def unit_complaints(root, text):
    """What a unit keeps from the program that it starts."""
    settings = dict(re.findall(r"^(\w+)=(.*)$", text, re.M))
    families, complaints = opened_families(root, settings["ExecStart"])
    allowed = settings.get("RestrictAddressFamilies", "").split()
    complaints += [f"RestrictAddressFamilies lacks {family}, which {path} opens"
                   for family, path in sorted(families.items()) if family not in allowed]
    mode = re.search(r"\bkFolderMode = (\d+);", (root / RECORDS).read_text(encoding="utf-8"))[1]
    folder = re.search(r'\brun_folder = "/run/(.*)";', (root / BOARD).read_text(encoding="utf-8"))[1]
    # Not preserved, the locks of others would go with the service.
    wanted = {"RuntimeDirectory": folder, "RuntimeDirectoryMode": mode, "RuntimeDirectoryPreserve": "yes"}
    complaints += [f"{key} is {settings.get(key)}, not {value}" for key, value in wanted.items()
                   if settings.get(key) != value]
    return complaints if families else [*complaints, "no source opens a socket"]


def accepted(*command):
    done = subprocess.run(command, capture_output=True, text=True, check=False)
    print(" ".join(map(str, command)), done.returncode, done.stdout + done.stderr)
    # systemd has words and status 0 for a key that it does not know.
    return done.returncode == 0 and "Unknown" not in done.stderr


def unit_is_good(unit, folder):
    """The unit with a program that is there."""
    text = unit.read_text()
    program = "/usr/bin/sideband "
    if program not in text:
        return False
    here = folder / unit.name
    here.write_text(text.replace(program, "/bin/true "))
    return accepted("systemd-analyze", "verify", here)


def main():
    root = pathlib.Path(sys.argv[1])
    packaging = root / "packaging"
    units = sorted((packaging / "systemd").glob("*.service"))
    complaints = [f"{unit.name}: {text}" for unit in units
                  for text in unit_complaints(root, unit.read_text(encoding="utf-8"))]
    complaints += [] if units else ["there is no unit"]
    print("".join(f"{line}\n" for line in complaints), end="")
    verdicts = [not complaints]
    if shutil.which("systemd-analyze"):
        with tempfile.TemporaryDirectory() as folder:
            verdicts += [unit_is_good(unit, pathlib.Path(folder)) for unit in units]
    else:
        print("skipped: systemd-analyze is not installed")
    if shutil.which("promtool"):
        verdicts.append(accepted("promtool", "check", "config", packaging / "prometheus" / "prometheus.yml"))
    else:
        print("skipped: promtool is not installed")
    return 0 if all(verdicts) else 1


if __name__ == "__main__":
    sys.exit(main())
