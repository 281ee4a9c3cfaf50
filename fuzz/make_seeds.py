#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Writes the seed inputs of the fuzz targets, a folder for each target and one file a scenario.

usage: make_seeds.py FOLDER STAMP

The inputs are scripts in the targets' own encoding; here they are spelt out. The file STAMP is written
last, for a build that has to know when they were made.
"""
import pathlib
import shutil
import sys

sys.dont_write_bytecode = True  # no __pycache__ in the source tree
from seeds.board import board_seeds, linux_board_seeds  # noqa: E402
from seeds.control import control_seeds  # noqa: E402
from seeds.description import description_seeds  # noqa: E402
from seeds.firmware import package_seeds, fw_update_seeds  # noqa: E402
from seeds.fru import fru_seeds  # noqa: E402
from seeds.http import http_seeds  # noqa: E402
from seeds.netlink import netlink_seeds  # noqa: E402
from seeds.ncsi import ncsi_seeds  # noqa: E402
from seeds.nvme import nvme_seeds, nvme_admin_seeds  # noqa: E402
from seeds.pcie import pcie_seeds  # noqa: E402
from seeds.pdr import pdr_seeds  # noqa: E402
from seeds.pldm import pldm_seeds  # noqa: E402
from seeds.serial import serial_seeds  # noqa: E402
from seeds.smbus import receive_seeds, strictly  # noqa: E402
from seeds.socket import socket_seeds  # noqa: E402

# The inputs of these begin with an environment: each seed is there with all strict bits as well.
LIBRARY = {"fuzz-receive": receive_seeds, "fuzz-control": control_seeds, "fuzz-pldm": pldm_seeds,
           "fuzz-pcie": pcie_seeds, "fuzz-pdr": pdr_seeds, "fuzz-fru": fru_seeds,
           "fuzz-package": package_seeds, "fuzz-fw-update": fw_update_seeds,
           "fuzz-ncsi": ncsi_seeds, "fuzz-nvme": nvme_seeds,
           "fuzz-nvme-admin": nvme_admin_seeds, "fuzz-socket": socket_seeds}
OTHERS = {"fuzz-netlink": netlink_seeds, "fuzz-serial": serial_seeds, "fuzz-board": board_seeds,
          "fuzz-linux-board": linux_board_seeds, "fuzz-description": description_seeds,
          "fuzz-http": http_seeds}


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    folder = pathlib.Path(sys.argv[1])
    for target, seeds in (LIBRARY | OTHERS).items():
        # Without those that an earlier version of the seeds had.
        shutil.rmtree(folder / target, ignore_errors=True)
        (folder / target).mkdir(parents=True)
        for name, content in seeds():
            (folder / target / name).write_bytes(content)
            if target in LIBRARY:
                (folder / target / f"{name}-strict").write_bytes(strictly(content))
    pathlib.Path(sys.argv[2]).write_text("")


if __name__ == "__main__":
    main()
