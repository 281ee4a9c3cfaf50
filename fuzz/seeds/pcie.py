# SPDX-License-Identifier: Apache-2.0
"""The seeds of fuzz-pcie."""
import struct

from seeds.control import control_answer, route, table
from seeds.pldm import pldm_answer
from seeds.smbus import ENDLESS, MPIO_MARKER, TURIN, environment

(EXCHANGE, RECEIVE, SEND, BINDING_READ, BRING_UP, PCIE_DISCOVER, PCIE_PLDM,
 PCIE_ENDPOINT) = range(8)
LENGTH, ADDRESSING, OTHER_RESULT = 1, 2, 4
# Of the strict bits.
PACKETS = 1


def record(body, how=0, fields=b""):
    return bytes([how]) + body + fields


def room(capacity):
    return struct.pack("<H", capacity + 4)


def pcie(*calls, **env):
    return environment(**env) + b"".join(calls)


def pcall(operation, *arguments, tag=0):
    return bytes([tag, operation, *arguments])


def pcie_seeds():
    good = control_answer([0x1D, 0, 0])
    six = struct.pack("<H", 6)
    routes = table(0xFF, 2, route(9, [1, 8]), route(10, [2, 8]))
    yield "exchange", pcie(pcall(EXCHANGE), room(64), six, record(good))
    yield "exchange-cut", pcie(pcall(EXCHANGE), room(3), six, record(good))
    yield "exchange-no-room", pcie(pcall(EXCHANGE), room(0), six, record(good))
    yield "exchange-negative-room", pcie(pcall(EXCHANGE), room(-1), six, record(good))
    yield "exchange-fails", pcie(pcall(EXCHANGE), room(64), six, record(bytes([1, 0])))
    yield "exchange-large-request", pcie(pcall(EXCHANGE), room(64), struct.pack("<H", 1036))
    yield "exchange-pinned-tag", pcie(pcall(EXCHANGE, tag=0x80), room(64), six, record(good))
    for length in (0, 1, 2, 1036, 1037, 0x7FFFFFFF, 0xFFFFFFFF):
        claimed = struct.pack("<I", length)
        yield f"claims-{length}", pcie(pcall(EXCHANGE), room(1199), six,
                                       record(good, LENGTH, claimed),
                                       pcall(BINDING_READ, 9), record(good, LENGTH, claimed),
                                       pcall(RECEIVE, 0), room(1199), record(good, LENGTH, claimed),
                                       pcall(RECEIVE, 1), room(1199), record(good, LENGTH, claimed))
    yield "addressing", pcie(pcall(EXCHANGE), room(64), six,
                             record(good, ADDRESSING, struct.pack("<I", 0x1FF) + bytes(range(5))))
    yield "other-result", pcie(pcall(EXCHANGE), room(64), six, record(good, OTHER_RESULT, b"\2"))
    yield "never-the-type", pcie(pcall(RECEIVE, 0), room(64), record(bytes([0, 0])), switches=ENDLESS,
                                 strict=PACKETS)
    yield "receive", pcie(pcall(RECEIVE, 0), room(64), record(good))
    yield "receive-small-room", pcie(pcall(RECEIVE, 0), room(2), record(good))
    yield "receive-with-type", pcie(pcall(RECEIVE, 1), room(64), record(good))
    yield "send", pcie(pcall(SEND), six)
    yield "send-large", pcie(pcall(SEND), struct.pack("<H", 1050))
    yield "bring-up", pcie(pcall(BRING_UP, 1), record(control_answer([])) * 2, record(good) * 2)
    yield "bring-up-fails", pcie(pcall(BRING_UP, 3), record(control_answer([])))
    yield "discover-ready", pcie(pcall(PCIE_DISCOVER, 1, 1, 0, 1), record(routes), mpio_state=20)
    yield "discover-not-ready", pcie(pcall(PCIE_DISCOVER, 1, 1, 0, 0), switches=TURIN)
    yield "discover-marker", pcie(pcall(PCIE_DISCOVER, 1, 1, 0, 1), record(good), record(routes),
                                  switches=MPIO_MARKER)
    yield "discover-unknown", pcie(pcall(PCIE_DISCOVER, 9, 9, 0, 1), record(routes),
                                   record(good), mpio_state=20)
    yield "pldm", pcie(pcall(PCIE_PLDM), record(pldm_answer([1])),
                       record(pldm_answer([0x3D] + [0] * 7)))
    yield "endpoint", pcie(pcall(PCIE_ENDPOINT), record(control_answer([])),
                           record(bytes([0, 4, 0x80, 0x01, 0, 0x33])))
