#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""What ./dev kernel runs in its kernel: every group of cases, then their count.

Environment: SIDEBAND_SIM, SIDEBAND_MI_CLIENT, SIDEBAND_TOOL (programs), SIDEBAND_RUN (folder for what is
written); its file "words" names the groups to run as JSON, none for all of them; behind "all-but", those not to run.
"""
import json
import os
import pathlib
import sys

import faults
import hostile
import i2c
import libnvme
import nvme_cli
import same_tool
import session
from machine import Tool
from report import Report


def wanted(words, groups):
    """The groups that the words ask for."""
    if words[:1] == ["all-but"]:
        return [name for name in groups if name not in words[1:]]
    return words or list(groups)


def main():
    program, folder = os.environ["SIDEBAND_SIM"], pathlib.Path(os.environ["SIDEBAND_RUN"])
    tool, report = Tool(program), Report()
    groups = {
        "sideband": lambda: same_tool.check(report, program, tool, folder, os.environ["SIDEBAND_TOOL"]),
        "i2c": lambda: i2c.check(report, program, tool, folder, os.environ["SIDEBAND_TOOL"]),
        "session": lambda: session.check(report, program, folder, os.environ["SIDEBAND_TOOL"]),
        "nvme-cli": lambda: nvme_cli.check(report, program, tool, folder),
        "libnvme": lambda: libnvme.check(report, program, tool, folder, os.environ["SIDEBAND_MI_CLIENT"]),
        "faults": lambda: faults.check(report, program, folder),
        "hostile": lambda: hostile.check(report, program, folder, os.environ["SIDEBAND_TOOL"]),
    }
    for name in wanted(json.loads((folder / "words").read_text()), groups):
        # A group that does not get as far as its cases fails as one.
        try:
            groups[name]()
        except Exception as error:  # pylint: disable=broad-except
            with report.case(f"{name}: the board behind the line"):
                raise error
    return report.end(folder)


if __name__ == "__main__":
    sys.exit(main())
