#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Writes the files that the documentation's commands name, for the simulated board.

usage: make_examples.py [--tool TOOL] FOLDER

nic.json    describes a firmware update package for the network card nic0
nic.img     the image of its one component
nic.fwpkg   the package, made of both by `pkg create`
cut.fwpkg   its first 100 bytes
drive.img   a firmware image that the drive nvme0 takes
steps.txt   commands for `batch`
board.json  a small board file

TOOL is sideband-sim: without the option the one that the environment variable SIDEBAND_TOOL names, else the
one that ./dev build has built, else the one on the path.
"""
import argparse
import json
import os
import pathlib
import shutil
import subprocess
import sys

BUILT = pathlib.Path(__file__).resolve().parent.parent / "build" / "release" / "tools" / "sideband-sim"
# Of the built-in board's nic0: PCI vendor, device, subsystem vendor and subsystem ID, lowest byte first.
DESCRIPTORS = ((0x0000, "B315"), (0x0100, "1D10"), (0x0101, "B315"), (0x0102, "1700"))
DESCRIPTION = {
    "PackageHeaderInformation": {
        "PackageHeaderIdentifier": "F018878CCB7D49439800A02F059ACA02",
        "PackageHeaderFormatVersion": 1,
        "PackageReleaseDateTime": "17/03/2024 10:20:30",
        "PackageVersionString": "NIC-22.41.1000",
    },
    "FirmwareDeviceIdentificationArea": [{
        "DeviceUpdateOptionFlags": [],
        "ComponentImageSetVersionString": "22.41.1000",
        "ApplicableComponents": [0],
        "Descriptors": [{"DescriptorType": kind, "DescriptorData": data} for kind, data in DESCRIPTORS],
    }],
    # Firmware, compared by its stamp (option 1), activated by an AC power cycle (method 5).
    "ComponentImageInformationArea": [{
        "ComponentClassification": 10,
        "ComponentIdentifier": 1,
        "ComponentOptions": [1],
        "RequestedComponentActivationMethod": [5],
        "ComponentVersionString": "22.41.1000",
        "ComponentComparisonStamp": "0x16290000",
    }],
}
STEPS = """\
# A namespace, from its making to its use.
nvme ns create nvme0 --blocks 1024
nvme ns attach nvme0 2
nvme ns list nvme0
"""
BOARD = {
    "name": "small",
    "buses": [{"bus": 1}],
    "devices": [{"name": "card0", "type": "pldm", "bus": 1, "address": "0x40"}],
}
IMAGE_SIZE = 65536
CUT_SIZE = 100
DRIVE_IMAGE_SIZE = 16384


def find_tool():
    """The tool that makes the package."""
    named = os.environ.get("SIDEBAND_TOOL")
    found = named or (str(BUILT) if BUILT.exists() else shutil.which("sideband-sim"))
    if found is None:
        sys.exit("make_examples.py: no sideband-sim: ./dev build builds it")
    return found


def make(folder, tool):
    (folder / "nic.json").write_text(json.dumps(DESCRIPTION, indent=4) + "\n")
    (folder / "nic.img").write_bytes(bytes(IMAGE_SIZE))
    subprocess.run([tool, "pkg", "create", folder / "nic.fwpkg", "--metadata", folder / "nic.json",
                    "--image", folder / "nic.img"], stdout=subprocess.DEVNULL, check=True)
    (folder / "cut.fwpkg").write_bytes((folder / "nic.fwpkg").read_bytes()[:CUT_SIZE])
    (folder / "board.json").write_text(json.dumps(BOARD, indent=4) + "\n")
    (folder / "steps.txt").write_text(STEPS)
    (folder / "drive.img").write_bytes(b"SIMDRIVEES11    ".ljust(DRIVE_IMAGE_SIZE, b"\0"))


def main():
    parser = argparse.ArgumentParser(description="Writes the files that the documentation's commands name.")
    parser.add_argument("--tool", help="sideband-sim")
    parser.add_argument("folder", type=pathlib.Path)
    options = parser.parse_args()
    if not options.folder.is_dir():
        parser.error(f"{options.folder}: no folder")
    make(options.folder, options.tool or find_tool())


if __name__ == "__main__":
    main()
