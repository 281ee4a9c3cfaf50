# SPDX-License-Identifier: Apache-2.0
"""Packages and updates: the seeds of fuzz-package and fuzz-fw-update."""
import struct

from seeds.control import call, with_code
from seeds.pldm import pldm_answer
from seeds.smbus import ECHO, ENDLESS, EOM, FIX_TAG, SOM, environment, packet

SEAL, TWICE = 0x01, 0x02
FORMAT_1_0 = bytes.fromhex("f018878ccb7d49439800a02f059aca02")


def descriptor(kind, value, length=None):
    return struct.pack("<HH", kind, len(value) if length is None else length) + value


def device_record(descriptors=(), version=b"r", data=b"", bitmap=b"\1", length=None, count=None,
                  data_length=None):
    body = (struct.pack("<BIBBH", len(descriptors) if count is None else count, 1, 1, len(version),
                        len(data) if data_length is None else data_length) +
            bitmap + version + b"".join(descriptors) + data)
    return struct.pack("<H", 2 + len(body) if length is None else length) + body


def component(offset=0, size=1, version=b"c"):
    return struct.pack("<HHIHHIIBB", 10, 1, 0xFFFFFFFF, 0, 0, offset, size, 1,
                       len(version)) + version


def package(records=(), components=(), version=b"p", identifier=FORMAT_1_0, revision=1, bits=8,
            header_size=None, record_count=None, component_count=None, image=b"\xC0", mode=SEAL,
            **env):
    tail = (struct.pack("<HBB", bits, 1, len(version)) + version +
            bytes([len(records) if record_count is None else record_count]) + b"".join(records) +
            struct.pack("<H", len(components) if component_count is None else component_count) +
            b"".join(components) + bytes(4))
    size = 32 + len(tail) if header_size is None else header_size
    return (environment(**env) + bytes([mode]) + identifier + struct.pack("<BH", revision, size) +
            bytes(13) + tail + image)


def package_seeds():
    vendor, device = descriptor(0, b"\xB3\x15"), descriptor(0x100, b"\x1D\x10")
    two = [device_record([vendor, device]),
           device_record([descriptor(0xFFFF, b"\1\1BX")], b"s", bytes(40))]
    one = [component()]
    yield "good", package(two, one * 3)
    yield "good-twice", package(two, one * 3, mode=SEAL | TWICE)
    yield "nothing", environment()
    yield "empty", package()
    yield "unsealed", package(two, one, mode=0)
    yield "identifier-1-1", package(two, one, identifier=bytes.fromhex(
        "1244d2648d7d4718a030fc8a56587d5a"), revision=2)
    yield "revision-2", package(two, one, revision=2)
    yield "revision-descriptor", package([device_record([descriptor(0x103, b"\7"),
                                                        descriptor(0x103, b"\1")])], one)
    yield "uuid", package([device_record([descriptor(2, bytes(range(16)))])], one)
    yield "no-bitmap", package([device_record(bitmap=b"")], one, bits=7)
    yield "bitmap-64", package([device_record(bitmap=bytes(range(8)))], one, bits=64)
    yield "bitmap-huge", package(two, one, bits=0xFFFF)
    yield "header-size-0", package(two, one, header_size=0)
    yield "header-size-huge", package(two, one, header_size=0xFFFF)
    yield "records-255", package(two, one, record_count=255)
    yield "records-many", package([device_record()] * 100, one)
    yield "components-65535", package(two, one, component_count=0xFFFF)
    yield "components-many", package(two, one * 60)
    yield "record-length-0", package([device_record(length=0)], one, record_count=255)
    yield "record-length-1", package([device_record([vendor], length=1)], one, record_count=9)
    yield "record-length-huge", package([device_record(length=0xFFFF)], one)
    yield "overlap", package([device_record(data=bytes(3000), length=0)], one, record_count=255)
    yield "descriptors-255", package([device_record([vendor], count=255)], one)
    yield "descriptor-huge", package([device_record([descriptor(0, b"\1", 0xFFFF)])], one,
                                     image=bytes(3000))
    yield "descriptor-empty", package([device_record([descriptor(0, b"")])], one)
    yield "package-data-huge", package([device_record(data_length=0xFFFF)], one)
    yield "long-strings", package([device_record(version=b"S" * 255)],
                                  [component(version=b"C" * 255)], b"P" * 255)
    yield "component-outside", package(two, [component(0xFFFFFFFF, 0xFFFFFFFF), component(0, 0)])
    for nth in range(1, 10):
        yield f"no-memory-{nth}", package(two, one, fail_allocation=nth)


# ---- The device's side of an update ---------------------------------------------------------------

UPDATE, INVENTORY, COMMAND, ANSWER, ACT, CHECK = range(6)
PACKAGE_DATA, OUTSIDE, SELF_CONTAINED, SOME_ONLY = 0x10, 0x20, 0x40, 0x80
IDENTIFIERS = pldm_answer(struct.pack("<IB", 6, 1) + descriptor(0, b"\xB3\x15"))


def shape(components=1, records=1, flags=0):
    return components | records << 2 | flags


def fw(*calls, what=None, image=96, transfer=64, how=0, **env):
    return (environment(**env) + bytes([how, shape() if what is None else what]) +
            struct.pack("<HH", image, transfer) + b"".join(calls))


def fw_parameters(*entries, count=None, active=b"1.0", pending=b"", lengths=None):
    table = b"".join(
        struct.pack("<HHBIBB8xIBB8xHI", 10, identifier, index, 1, 1, len(version), 0, 1, 0, 0, 0) +
        version for identifier, index, version in entries)
    active_length, pending_length = lengths or (len(active), len(pending))
    return pldm_answer(struct.pack("<IHBBBB", 0, len(entries) if count is None else count, 1,
                                   active_length, 1, pending_length) + active + pending + table)


def asks(command, *fields):
    body = bytes([0x81, 0x05, command]) + b"".join(fields)
    return bytes([0, len(body)]) + body


def asks_data(offset, length):
    return asks(0x15, struct.pack("<II", offset, length))


def loads(size=96, piece=32):
    """A component from its first piece to the report that it is applied."""
    return (pldm_answer([0, 0, 0, 0, 0, 0, 0, 0]) +
            b"".join(asks_data(offset, piece) for offset in range(0, size, piece)) +
            asks(0x16, b"\0") + asks(0x17, b"\0") + asks(0x18, b"\0\0\0"))


def starts(entries=1, metadata=0, package_data=0):
    return (call(UPDATE, 0) + IDENTIFIERS +
            fw_parameters(*[(i + 1, i, b"v0") for i in range(entries)]) +
            pldm_answer(struct.pack("<HB", metadata, package_data)))


def fw_update_seeds():
    accepts = pldm_answer([0, 0])
    activates = pldm_answer([5, 0])
    offer = pldm_answer([0, 0, 0, 0, 0, 0, 0, 0])
    begun = starts() + accepts
    yield "whole", fw(starts(), accepts, loads(), activates)
    yield "three-components", fw(starts(3), accepts * 3, loads(), loads(), loads(), activates,
                                 what=shape(3))
    yield "some-components", fw(starts(3), accepts * 2, loads(), loads(), activates,
                                what=shape(3, 1, SOME_ONLY))
    yield "package-data", fw(
        starts(1, 0, 1), asks(0x11, bytes([0, 0, 0, 0, 1])), asks(0x11, bytes([1, 0, 0, 0, 0])),
        accepts, loads(), activates, what=shape(1, 1, PACKAGE_DATA))
    yield "package-data-of-another", fw(
        starts(1, 0, 1), asks(0x11, bytes([0, 0, 0, 0, 1])),
        b"".join(asks(0x11, bytes([part, 0, 0, 0, 0])) for part in range(1, 4)), accepts, loads(),
        activates, what=shape(1, 3, PACKAGE_DATA))
    yield "package-data-wrong-handle", fw(
        starts(1, 0, 1), asks(0x11, bytes([0, 0, 0, 0, 1])), asks(0x11, bytes([9, 0, 0, 0, 0])),
        what=shape(1, 1, PACKAGE_DATA))
    yield "metadata", fw(starts(1, 8), pldm_answer([1, 0, 0, 0, 1, 5, 5]),
                         pldm_answer([2, 0, 0, 0, 4, 5]), accepts, loads(), activates)
    yield "query", fw(call(UPDATE, 3), IDENTIFIERS, fw_parameters((1, 0, b"v")))
    yield "in-update-mode", fw(starts()[:-9], with_code(0x81, 2), pldm_answer([0] * 9) * 2,
                               pldm_answer([0, 0, 0]), accepts, loads(), activates,
                               what=shape(1, 2))
    yield "in-update-mode-for-ever", fw(starts()[:-9], with_code(0x81, 2), pldm_answer([0] * 9),
                                        switches=ENDLESS)
    for code in (0x8A, 0x8E, 0x80):
        yield f"request-update-{code:02x}", fw(starts()[:-9], with_code(code, 2))
    yield "component-refused", fw(begun, pldm_answer([1, 6, 0, 0, 0, 0, 0, 0]), activates)
    yield "piece-retried", fw(begun, offer, asks_data(0, 32) * 3, asks_data(64, 32), loads()[14:])
    yield "piece-too-short", fw(begun, offer, asks_data(0, 31))
    yield "piece-too-long", fw(begun, offer, asks_data(0, 65))
    yield "piece-behind-the-end", fw(begun, offer, asks_data(0xFFFFFFFF, 64))
    yield "piece-without-length", fw(begun, offer, asks_data(0, 0))
    yield "piece-across-the-end", fw(begun, offer, asks_data(200, 64), asks_data(250, 64),
                                     what=shape(1, 1, OUTSIDE))
    yield "piece-cut", fw(begun, offer, asks(0x15, b"\0\0"))
    yield "transfer-fails", fw(begun, offer, asks(0x16, b"\2"), pldm_answer([]), activates)
    yield "verify-fails", fw(begun, offer, asks(0x16, b"\0"), asks(0x17, b"\3"), pldm_answer([]))
    yield "apply-fails", fw(begun, offer, asks(0x16, b"\0"), asks(0x17, b"\0"),
                            asks(0x18, b"\4\0\0"), pldm_answer([]))
    yield "cancel-busy", fw(begun, offer, asks(0x16, b"\2"), with_code(0x86, 2) * 3)
    yield "verify-too-early", fw(begun, offer, asks(0x17, b"\0"))
    yield "apply-too-early", fw(begun, offer, asks(0x18, b"\0\0\0"))
    yield "ignored-for-ever", fw(begun, offer, asks(0x12), switches=ENDLESS)
    yield "data-for-ever", fw(begun, offer, asks_data(0, 32), switches=ENDLESS)
    yield "data-for-ever-outside", fw(begun, offer, asks_data(0, 32), what=shape(1, 1, OUTSIDE),
                                      switches=ENDLESS)
    yield "answers-fail", fw(begun, offer, asks_data(0, 32), asks_data(32, 32), write_failures=0xFF)
    yield "receives-fail-for-ever", fw(begun, offer, bytes([1, 0]), switches=ENDLESS)
    for nth in range(1, 16):
        yield f"records-left-out-{nth}", fw(call(INVENTORY), fw_parameters((1, 0, b"v")), call(ACT, 2, 0, 9, 1),
                                            what=shape(1, 2), fail_allocation=nth)
        yield f"versions-left-out-{nth}", fw(call(INVENTORY), fw_parameters((1, 0, b"v")), what=shape(0, 0),
                                             fail_allocation=nth)
    yield "parameters-lie", fw(call(INVENTORY, 0), IDENTIFIERS,
                               fw_parameters((1, 0, b"v"), count=65535))
    yield "parameters-strings-lie", fw(call(INVENTORY, 0), IDENTIFIERS,
                                       fw_parameters((1, 0, b"v"), lengths=(255, 255)))
    yield "identifiers-lie", fw(call(INVENTORY, 0), pldm_answer(
        struct.pack("<IB", 0xFFFFFFFF, 255) + descriptor(0, b"\xB2\x15", 0xFFFF)))
    yield "identifiers-cut", fw(call(INVENTORY, 0), pldm_answer([6, 0]))
    for which in range(7):
        yield f"command-{which}", fw(call(COMMAND, which, 32, 0), pldm_answer(range(16)))
    for which, fields in enumerate(([0, 0, 0, 0, 1], [0, 0, 0, 0, 32, 0, 0, 0], [0], [0], [0])):
        yield f"answer-{which}", fw(call(ANSWER, which, 1, 0x80, 5, 0x11 + which, *fields))
    for state in range(8):
        yield f"state-{state}", fw(call(INVENTORY, 0), IDENTIFIERS, fw_parameters((1, 0, b"v")),
                                   call(ACT, state, 0, 9, 0), pldm_answer([]), accepts, loads())
    yield "check", fw(call(CHECK, 0, 0, 0, 0), packet(
        SOM | EOM, bytes([0, 0, 2, 0, 0x1D, 0, 0]), FIX_TAG | ECHO) + packet(
            SOM | EOM, bytes([1, 0, 0, 2, 0, 7]), FIX_TAG | ECHO) + packet(
                SOM | EOM, bytes([1, 0, 0, 4, 0, 0x21] + [0] * 7), FIX_TAG | ECHO) + packet(
                    SOM | EOM, bytes([1, 0, 5, 1, 0, 6, 0, 0, 0, 1, 0, 0, 2, 0, 0xB3, 0x15]),
                    FIX_TAG | ECHO))
    for nth in range(1, 16):
        yield f"no-memory-{nth}", fw(starts(), accepts, loads(), activates, fail_allocation=nth)
