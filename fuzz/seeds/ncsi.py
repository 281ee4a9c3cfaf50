# SPDX-License-Identifier: Apache-2.0
"""The seeds of fuzz-ncsi."""
import struct

from seeds.control import ECHO_COMMAND, call
from seeds.pldm import OWN_TRANSFER, pldm
from seeds.smbus import ECHO, ENDLESS, EOM, FIX_TAG, SOM, packet

(NCSI_DISCOVER, NCSI_DISCOVER_OEM, NCSI_LINK, NCSI_PACKAGE, NCSI_BROADCOM, NCSI_MELLANOX,
 NCSI_EXCHANGE, NCSI_CONFIGURE, NCSI_LIFE) = range(9)
UNSUPPORTED = (0x0003, 0x7FFF)


def ncsi_packet(command, channel, payload, codes=(0, 0)):
    return (struct.pack(">BBBBBBHQ", 0, 1, 0, 1, command, channel, 4 + len(payload), 0) +
            struct.pack(">HH", *codes) + bytes(payload) + bytes(4))


def ncsi_answer(payload=b"", codes=(0, 0), cut=None, flags=ECHO_COMMAND):
    body = ncsi_packet(0, 0, payload, codes)[:cut]
    return bytes([flags, len(body)]) + body


def ncsi_block(command, channel, payload=b""):
    return packet(SOM | EOM, b"\2" + ncsi_packet(command | 0x80, channel, payload))


def ncsi_seeds():
    silence = bytes([1, 0])
    preboot = ncsi_answer(bytes.fromhex("0000113d001c0004000000005a00f123"))
    tlv = ncsi_answer(bytes.fromhex("00008119000023000000f1000300022167801234"))
    link = ncsi_answer(bytes.fromhex("0900004f0000000000000000"))
    done = ncsi_answer()
    configured = call(NCSI_CONFIGURE, 2, 0x42, 1, 0xBC, 0x0A, 3)
    for name, how in (("", 0), ("own-transfer-", OWN_TRANSFER)):
        yield f"{name}discover-all", pldm(call(NCSI_DISCOVER), done * 8, how=how)
        yield f"{name}discover-none", pldm(call(NCSI_DISCOVER), how=how)
        yield f"{name}discover-last", pldm(call(NCSI_DISCOVER), silence * 63, done, how=how)
        yield f"{name}link", pldm(configured, call(NCSI_LINK, 2), link, how=how)
        yield f"{name}packages", pldm(call(NCSI_PACKAGE, 2, 4), done, call(NCSI_PACKAGE, 2, 5),
                                      done, how=how)
        yield f"{name}package-8", pldm(call(NCSI_PACKAGE, 2, 16), call(NCSI_PACKAGE, 2, 17),
                                       how=how)
        yield f"{name}preboot", pldm(configured, call(NCSI_BROADCOM, 2, 0), preboot,
                                     call(NCSI_BROADCOM, 2, 1), preboot, done,
                                     call(NCSI_BROADCOM, 2, 2), how=how)
        yield f"{name}tlv", pldm(configured, call(NCSI_MELLANOX, 2, 0), tlv,
                                 call(NCSI_MELLANOX, 2, 1), tlv, done, how=how)
        yield f"{name}mac", pldm(call(NCSI_MELLANOX, 2, 2), ncsi_answer(range(16)), how=how)
        yield f"{name}temperature", pldm(configured, call(NCSI_MELLANOX, 2, 3),
                                         ncsi_answer(range(12)), how=how)
        for maker, number in ((NCSI_BROADCOM, 0), (NCSI_BROADCOM, 1), (NCSI_MELLANOX, 0),
                              (NCSI_MELLANOX, 1), (NCSI_MELLANOX, 2), (NCSI_MELLANOX, 3)):
            yield f"{name}unsupported-{maker}-{number}", pldm(
                call(maker, 2, number), ncsi_answer(codes=UNSUPPORTED), how=how)
            yield f"{name}cut-{maker}-{number}", pldm(
                call(maker, 2, number), ncsi_answer(bytes(20), cut=20), how=how)
    yield "discover-in-the-middle", pldm(call(NCSI_DISCOVER), silence * 20, done, silence, done)
    yield "discover-refused", pldm(call(NCSI_DISCOVER), ncsi_answer(codes=(1, 2)), switches=ENDLESS)
    yield "discover-oem", pldm(call(NCSI_DISCOVER_OEM), silence * 3, done)
    yield "discover-oem-none", pldm(call(NCSI_DISCOVER_OEM))
    yield "discover-oem-bus-1", pldm(call(NCSI_DISCOVER_OEM), done, how=0x10)
    for nth in (1, 2):
        yield f"discover-oem-lock-{nth}", pldm(call(NCSI_DISCOVER_OEM), done * 8, refuse_lock=nth)
    yield "link-of-another-command", pldm(call(NCSI_LINK, 0), ncsi_answer(bytes(12), flags=0))
    yield "link-of-another-channel", pldm(
        configured, call(NCSI_LINK, 2), bytes([ECHO_COMMAND, 36]) + bytes(36))
    for cut in (1, 4, 5, 6, 16, 19, 20, 23):
        yield f"link-cut-{cut}", pldm(call(NCSI_LINK, 0), ncsi_answer(bytes(12), cut=cut))
    yield "link-too-long", pldm(call(NCSI_LINK, 0), ncsi_answer(bytes(200)))
    header = ncsi_packet(0, 0, b"")[:16]
    for way in (0, 1):
        for length, capacity in ((15, 24), (16, 24), (17, 21), (16, 16), (16, 0), (16, -1),
                                 (255, 999)):
            yield f"exchange-{way}-{length}-{capacity}", pldm(
                call(NCSI_EXCHANGE, 0, way, length) + struct.pack("<h", capacity) +
                header.ljust(length, b"\1")[:length], ncsi_answer(bytes(12)))
    blocks = b"".join(ncsi_block(0, channel) for channel in range(8))
    known_eids = 2
    yield "life", pldm(call(NCSI_LIFE, known_eids), blocks, ncsi_block(0x0A, 0, bytes(12)),
                       ncsi_block(0x50, 0, bytes(12)))
    yield "life-sl8", pldm(call(NCSI_LIFE, known_eids | 1), blocks)
    yield "life-silent", pldm(call(NCSI_LIFE, known_eids))
    yield "life-gets-eid", pldm(call(NCSI_LIFE, 0), packet(
        SOM | EOM, bytes([0, 0, 2, 0, 0x1D, 0, 0]), FIX_TAG | ECHO), blocks)
    yield "life-without-eid", pldm(call(NCSI_LIFE, 0))
    yield "life-no-memory", pldm(call(NCSI_LIFE, known_eids), fail_allocation=1)
    yield "life-endless", pldm(call(NCSI_LIFE, known_eids), packet(SOM | EOM | 5, b"\2\2", fit=0),
                               switches=ENDLESS)
