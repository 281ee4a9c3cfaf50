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


def lets_work(unit, sources):
    """Whether the unit has the sockets and the folder of the platform for Linux. --capture is not among its options."""
    text = unit.read_text()
    families = re.search(r"^RestrictAddressFamilies=(.*)$", text, re.MULTILINE)[1].split()
    opened = {family for path in sorted(sources.glob("*.cpp")) if path.name != "tap.cpp"
              for family in re.findall(r"\bsocket\((AF_\w+)", path.read_text())}
    missing = sorted((opened | {"AF_INET", "AF_MCTP"}) - set(families))
    folder = re.search(r'run_folder = "/run/(\w+)"', (sources / "board.h").read_text())[1]
    if missing:
        print(f"{unit.name}: RestrictAddressFamilies without {', '.join(missing)}")
    if not opened:
        print(f"{sources}: no socket is opened, so this looks for the wrong thing")
    has_folder = f"\nRuntimeDirectory={folder}\n" in text and "\nRuntimeDirectoryPreserve=yes\n" in text
    if not has_folder:
        print(f"{unit.name}: /run/{folder}, where the locks are, is not made or not kept")
    return bool(opened) and not missing and has_folder


def main():
    packaging = pathlib.Path(sys.argv[1]) / "packaging"
    verdicts = [lets_work(unit, packaging.parent / "platform" / "linux")
                for unit in sorted((packaging / "systemd").glob("*.service"))]
    if not verdicts:
        print("there is no unit")
        return 1
    if shutil.which("systemd-analyze"):
        with tempfile.TemporaryDirectory() as folder:
            verdicts += [unit_is_good(unit, pathlib.Path(folder))
                         for unit in sorted((packaging / "systemd").glob("*.service"))]
    else:
        print("skipped: systemd-analyze is not installed")
    if shutil.which("promtool"):
        verdicts.append(accepted("promtool", "check", "config", packaging / "prometheus" / "prometheus.yml"))
    else:
        print("skipped: promtool is not installed")
    return 0 if all(verdicts) else 1


if __name__ == "__main__":
    sys.exit(main())
