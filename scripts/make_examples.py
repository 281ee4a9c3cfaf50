#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Writes the files that the documentation's commands name, for the simulated board.

usage: make_examples.py FOLDER

nic.fwpkg   a firmware update package (DSP0267, header format 1.0) for the network card nic0
cut.fwpkg   its first 100 bytes
drive.img   a firmware image that the drive nvme0 takes
"""
import pathlib
import struct
import sys
import zlib

IDENTIFIER = bytes.fromhex("f018878ccb7d49439800a02f059aca02")
# timestamp104 (DSP0240): UTC offset, microseconds, 30 s, 20 min, 10 h, 17 March 2024, resolution.
RELEASED = struct.pack("<h3s5BHB", 0, bytes(3), 30, 20, 10, 17, 3, 2024, 0)
ASCII = 1
# Of the built-in board's nic0: PCI vendor, device, subsystem vendor and subsystem ID.
DESCRIPTORS = ((0x0000, 0x15B3), (0x0100, 0x101D), (0x0101, 0x15B3), (0x0102, 0x0017))
IMAGE_SIZE = 65536
CUT_SIZE = 100
DRIVE_IMAGE_SIZE = 16384


def record(version):
    """The firmware device ID record: for the card above, with component 0."""
    descriptors = b"".join(struct.pack("<HHH", kind, 2, value) for kind, value in DESCRIPTORS)
    body = struct.pack("<BIBBHB", len(DESCRIPTORS), 0, ASCII, len(version), 0, 0x01) + version
    return struct.pack("<H", 2 + len(body) + len(descriptors)) + body + descriptors


def component(version, location):
    """The component image information: firmware, compared by its stamp, activated by AC power."""
    return struct.pack("<HHIHHIIBB", 10, 1, 0x16290000, 0x0002, 0x0020, location, IMAGE_SIZE,
                       ASCII, len(version)) + version


def package(version=b"22.41.1000", name=b"NIC-22.41.1000"):
    head_size = len(IDENTIFIER) + 3  # up to the rest, when the header's size is known
    rest = RELEASED + struct.pack("<HBB", 8, ASCII, len(name)) + name
    rest += b"\x01" + record(version) + struct.pack("<H", 1)
    size = head_size + len(rest) + len(component(version, 0)) + 4
    header = IDENTIFIER + struct.pack("<BH", 1, size) + rest + component(version, size)
    return header + struct.pack("<I", zlib.crc32(header)) + bytes(IMAGE_SIZE)


def make(folder):
    nic = package()
    (folder / "nic.fwpkg").write_bytes(nic)
    (folder / "cut.fwpkg").write_bytes(nic[:CUT_SIZE])
    (folder / "drive.img").write_bytes(b"SIMDRIVEES11    ".ljust(DRIVE_IMAGE_SIZE, b"\0"))


def main():
    if len(sys.argv) != 2 or not pathlib.Path(sys.argv[1]).is_dir():
        sys.exit("usage: make_examples.py FOLDER")
    make(pathlib.Path(sys.argv[1]))


if __name__ == "__main__":
    main()
