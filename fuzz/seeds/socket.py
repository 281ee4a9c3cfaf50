# SPDX-License-Identifier: Apache-2.0
"""The seeds of fuzz-socket."""
import struct

from seeds.smbus import environment

(EXCHANGE, RECEIVE, SEND, STEP, READDRESS, TIME, EID, PLDM, NVME) = range(9)
OTHER = 0x80
INTERRUPTED, WAIT_FAILS, TAKES, EMPTY, LISTENER = 1, 2, 4, 8, 16
ADDRESS, CLAIMS, CHECKED, VANISHES, REQUEST, LARGE = 1, 2, 4, 8, 16, 128
TAG_OWNER = 8


def socket(*calls, failures=0):
    return environment() + bytes([failures]) + b"".join(calls)


def message(body, how=0, before=b"", wait=0, wait_fields=b""):
    times = 30 if how & LARGE else 1
    return (bytes([wait]) + wait_fields + bytes([how]) + before +
            bytes([len(body) // times]) + bytes(body))


def address(eid=9, network=1, message_type=1, tag=0, family=45, size=12):
    return bytes([size]) + struct.pack("<HHIBBBB", family, 0, network, eid, message_type, tag, 0)


def exchange(*messages, capacity=64, request=6, context=0):
    return bytes([EXCHANGE | context]) + struct.pack("<HH", capacity + 4, request) + b"".join(messages)


def receive(*messages, capacity=64, context=0):
    return bytes([RECEIVE | context]) + struct.pack("<H", capacity + 4) + b"".join(messages)


def send(tag_owner=1, length=6):
    return bytes([SEND, tag_owner]) + struct.pack("<H", length)


def step(command):
    return bytes([STEP, command])


def readdress(eid=9, network=1, message_type=1, wait=300):
    return bytes([READDRESS, eid, network, message_type]) + struct.pack("<H", wait)


def socket_seeds():
    good = message(range(1, 9))
    nvme = readdress(message_type=0x84)
    yield "exchange", socket(exchange(good))
    yield "exchange-twice", socket(exchange(good), exchange(good), exchange(good, context=OTHER))
    for capacity in (-3, 0, 1, 7, 8, 9, 8000):
        yield f"room-{capacity}", socket(exchange(good, capacity=capacity))
        yield f"room-{capacity}-checked", socket(
            nvme, exchange(message(range(1, 9), CHECKED), capacity=capacity))
    yield "large", socket(exchange(message(bytes(7500), LARGE), capacity=8000))
    yield "large-checked", socket(nvme, exchange(message(bytes(4200), LARGE | CHECKED), capacity=8000))
    yield "too-large-checked", socket(
        nvme, exchange(message(bytes(4230), LARGE | CHECKED), capacity=8000))
    yield "unchecked", socket(nvme, exchange(good, message(range(1, 9), CHECKED)))
    for length in range(6):
        yield f"wrong-check-{length}", socket(nvme, exchange(
            message(bytes(length), ADDRESS, address(message_type=0x84))))
    for name, where in {"eid": address(eid=10), "network": address(network=2), "type": address(message_type=2),
                        "owner": address(tag=8), "tag": address(tag=0x40), "family": address(family=2),
                        "none": address(size=0), "short": address(size=11), "long": address(size=13),
                        "larger": address(size=255)}.items():
        yield f"from-other-{name}", socket(exchange(message(b"\1\2", ADDRESS, where), good))
    for claimed in (0, 1, 7, 9, 4224, 4225, 65535):
        for how, name in ((0, ""), (CHECKED, "-checked")):
            yield f"claims-{claimed}{name}", socket(exchange(
                message(range(1, 9), CLAIMS | how, struct.pack("<H", claimed)), good))
    yield "empty", socket(exchange(message(b""), good))
    yield "vanishes", socket(exchange(message(b"\1", VANISHES), good))
    yield "vanishes-checked", socket(nvme, exchange(message(b"\1", VANISHES | CHECKED)))
    yield "interrupted", socket(exchange(bytes([INTERRUPTED, 9]) * 40, good))
    yield "wait-fails", socket(exchange(bytes([WAIT_FAILS])))
    yield "ready-and-empty", socket(exchange(bytes([EMPTY]) * 5, good))
    yield "late", socket(readdress(wait=100), exchange(message(b"\1", 0, b"", TAKES, b"\xff")),
                         exchange(good))
    yield "silent", socket(exchange())
    yield "send-receive", socket(send(), receive(good))
    yield "answer", socket(step(0x10), receive(message(b"\x81\5\x15", REQUEST, b"\5", LISTENER)),
                           send(0), step(0x1A))
    yield "update", socket(step(0x10), step(0x14),
                           *([receive(message(b"\x81\5\x15", REQUEST, b"\5", LISTENER)), send(0)] * 3),
                           step(0x1D), receive())
    yield "two-updates", socket(step(0x10), bytes([STEP | OTHER, 0x10]),
                                receive(message(b"\x81\5\x15", REQUEST, b"\5", LISTENER)),
                                receive(message(b"\x81\5\x15", REQUEST, b"\5", LISTENER), context=OTHER))
    yield "request-without-update", socket(receive(message(b"\x81\5\x15", REQUEST, b"\5", LISTENER)))
    yield "default-network", socket(readdress(network=0), exchange(good), exchange(good))
    yield "another-network", socket(readdress(network=7), exchange(good))
    yield "much-later", socket(step(0x10), exchange(good), bytes([TIME, 0xFF, 0xFF]), exchange(good))
    yield "unanswered", socket(readdress(wait=1), *([send()] * 70))
    yield "eid", socket(bytes([EID]) + message([0, 2, 0, 9, 0, 0]))
    yield "pldm", socket(bytes([PLDM]) + message([0, 0, 2, 0, 1]) * 6)
    yield "nvme", socket(bytes([NVME]) + message([0x88, 0, 0, 0, 0x40, 0, 0], CHECKED))
    yield "nvme-later", socket(bytes([NVME]) + message([0x88, 0, 0, 1, 0, 0, 0], CHECKED) +
                               message([0x88, 0, 0, 0, 0x40, 0, 0], CHECKED))
    for bit in range(8):
        yield f"failures-{bit}", socket(step(0x10), exchange(good), send(), receive(good), send(0),
                                        exchange(good), failures=1 << bit)
