#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Writes the seed inputs of the fuzz targets to corpus/, one file a scenario.

usage: make_seeds.py [--check]

The inputs are scripts in the targets' own encoding; here they are spelt out. With --check nothing is
written: the exit status tells whether every file is there and as this script would write it.
"""
import pathlib
import sys

sys.dont_write_bytecode = True  # no __pycache__ in the source tree
from seeds.control import control_seeds  # noqa: E402
from seeds.firmware import package_seeds, fw_update_seeds  # noqa: E402
from seeds.fru import fru_seeds  # noqa: E402
from seeds.ncsi import ncsi_seeds  # noqa: E402
from seeds.nvme import nvme_seeds, nvme_admin_seeds  # noqa: E402
from seeds.pcie import pcie_seeds  # noqa: E402
from seeds.pdr import pdr_seeds  # noqa: E402
from seeds.pldm import pldm_seeds  # noqa: E402
from seeds.smbus import receive_seeds  # noqa: E402

CORPUS = pathlib.Path(__file__).parent / "corpus"
SEEDS = {"fuzz-receive": receive_seeds, "fuzz-control": control_seeds, "fuzz-pldm": pldm_seeds,
         "fuzz-pcie": pcie_seeds, "fuzz-pdr": pdr_seeds, "fuzz-fru": fru_seeds,
         "fuzz-package": package_seeds, "fuzz-fw-update": fw_update_seeds,
         "fuzz-ncsi": ncsi_seeds, "fuzz-nvme": nvme_seeds,
         "fuzz-nvme-admin": nvme_admin_seeds}


def main():
    check = sys.argv[1:] == ["--check"]
    if sys.argv[1:] and not check:
        sys.exit(__doc__)
    differ = []
    for target, seeds in SEEDS.items():
        for name, content in seeds():
            file = CORPUS / target / name
            if check:
                if not file.is_file() or file.read_bytes() != content:
                    differ.append(file)
                continue
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_bytes(content)
    for file in differ:
        print(f"make_seeds.py: {file} is not what this script writes")
    return 1 if differ else 0


if __name__ == "__main__":
    sys.exit(main())
