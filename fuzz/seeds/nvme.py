# SPDX-License-Identifier: Apache-2.0
"""The seeds of fuzz-nvme and fuzz-nvme-admin."""
import struct

from seeds.control import call
from seeds.pldm import OWN_TRANSFER, pldm
from seeds.smbus import ENDLESS, EOM, LARGE, SOM, message, packet

(MI_GET, MI_SET, MI_SUBSYSTEM, MI_CONTROLLERS, MI_STRUCTURE, MI_RESET, MI_VPD_READ, MI_VPD_WRITE,
 MI_EXCHANGE, MI_LIFE) = range(10)
DRIVE_CHECKS, DRIVE_LIES = 0x40, 0x20
RESPONSE = 0x80
MI_NAMES = ("get-frequency", "get-unit", "get-health", "set-frequency", "set-unit", "set-health",
            "subsystem", "controllers", "structure", "list", "commands", "reset", "vpd-read",
            "vpd-write")


def mi_body(management=bytes(3), data=b"", status=0, how=0):
    return bytes([RESPONSE | 0x08 | how, 0, 0, status]) + bytes(management) + bytes(data)


def mi_answer(management=bytes(3), data=b"", status=0, how=DRIVE_CHECKS, cut=None):
    body = mi_body(management, data, status, how)[:cut]
    if len(body) <= 255:
        return bytes([0, len(body)]) + body
    body += bytes(-len(body) % 5)
    return bytes([LARGE, len(body) // 5]) + body


def mi_lie(result, status=0):
    return bytes([0, 7, RESPONSE | 0x08 | DRIVE_LIES]) + struct.pack("<hB3x", result, status)


def mi_structure(dtyp, length, capacity=600):
    return call(MI_STRUCTURE, dtyp, 0) + struct.pack("<H", capacity), mi_answer(
        struct.pack("<Hx", length), bytes(i & 0xFF for i in range(length)))


def mi_commands():
    """Each command with a good answer."""
    port = 5
    yield call(MI_GET, 0, port), mi_answer([2, 0, 0])
    yield call(MI_GET, 1, port), mi_answer([64, 0, 0])
    yield call(MI_GET, 2, port), mi_answer()
    yield call(MI_SET, 0, port, 2), mi_answer()
    yield call(MI_SET, 1, port, 64, 0), mi_answer()
    yield call(MI_SET, 2, port, 1, 2, 3, 4), mi_answer()
    yield call(MI_SUBSYSTEM, 0, 0, 0, 0x80), mi_answer(data=[0x38, 0xFF, 40, 3, 1, 0, 0, 0])
    yield call(MI_CONTROLLERS, 0, 0, 1, 0x81, 0, 0, 0, 0), mi_answer([0, 0, 2], range(32))
    yield mi_structure(0, 32)
    yield mi_structure(2, 6)
    yield mi_structure(4, 40)
    yield call(MI_RESET), mi_answer()
    yield call(MI_VPD_READ, 0, 0, 32, 0), mi_answer(data=range(32))
    yield call(MI_VPD_WRITE, 0, 0, 16, 0), mi_answer()


def mi_block(body):
    return message(b"\x84" + body, 64)


def nvme_seeds():
    silence = bytes([1, 0])
    busy = mi_answer(status=1)
    for name, (command, good) in zip(MI_NAMES, mi_commands(), strict=True):
        yield name, pldm(command, good)
        yield f"{name}-own", pldm(command, good, how=OWN_TRANSFER)
        yield f"{name}-refused", pldm(command, mi_answer([5, 11, 0], status=4))
        yield f"{name}-busy", pldm(command, busy, silence, good)
        yield f"{name}-always-busy", pldm(command, busy, switches=ENDLESS)
        yield f"{name}-late", pldm(command, silence * 2, good)
        for cut in (0, 3, 4, 5, 6):
            yield f"{name}-cut-{cut}", pldm(command, mi_answer(cut=cut, how=0))
    for nth in (1, 2):
        yield f"no-memory-read-{nth}", pldm(call(MI_VPD_READ, 0, 0, 4, 0) * 2, fail_allocation=nth)
        yield f"no-memory-write-{nth}", pldm(call(MI_VPD_WRITE, 0, 0, 4, 0) * 2,
                                             fail_allocation=nth)
    for count in (0, 1, 3, 254, 255):
        yield f"controllers-{count}", pldm(call(MI_CONTROLLERS, *bytes(8)),
                                           mi_answer([0, 0, count], range(16)))
    for dtyp, length, claims_length in ((0, 31, 31), (1, 32, 33), (3, 32, 65535), (2, 0, 0),
                                        (2, 6, 10), (4, 6, 7), (5, 32, 32), (255, 32, 32)):
        yield f"structure-{dtyp}-{length}-{claims_length}", pldm(
            mi_structure(dtyp, 0)[0],
            mi_answer(struct.pack("<Hx", claims_length), bytes(length)))
    yield "structure-large", pldm(*mi_structure(2, 1068, 2000))
    yield "structure-no-room", pldm(*mi_structure(0, 32, 31))
    yield "structure-exact-room", pldm(*mi_structure(0, 32, 32))
    for length in (0, 5113, 5114, 65535):
        yield f"vpd-read-{length}", pldm(call(MI_VPD_READ, 0, 0) + struct.pack("<H", length),
                                         mi_answer(data=bytes(900)))
    yield "vpd-read-own-claims", pldm(call(MI_VPD_READ, 0, 0) + struct.pack("<H", 6682),
                                      mi_lie(6689), how=OWN_TRANSFER)
    for length in (0, 256, 257):
        yield f"vpd-write-{length}", pldm(call(MI_VPD_WRITE, 0, 0) + struct.pack("<H", length),
                                          mi_answer())
    for result in (-32768, -1, 0, 1, 7, 8, 5120, 5121, 32767):
        yield f"lies{result}", pldm(call(MI_GET, 0, 0), mi_lie(result))
        yield f"lies{result}-busy", pldm(call(MI_GET, 0, 0), mi_lie(result, 1), mi_answer())
        yield f"lies{result}-own", pldm(call(MI_GET, 0, 0), mi_lie(result), how=OWN_TRANSFER)
    for capacity in (0, 1, 7, 8, 5119, 5120, 5121):
        yield f"exchange-{capacity}", pldm(call(MI_EXCHANGE) + struct.pack("<H", capacity),
                                           mi_answer())
    for status in (2, 3, 5, 0x20, 255):
        yield f"status-{status}", pldm(call(MI_RESET), mi_answer(status=status))
    whole = mi_block(mi_body([32, 0, 0], range(32)))
    for name, how in (("plain", 0), ("sl8", 1), ("marv", 2), ("marv-sl8", 3)):
        yield f"life-{name}", pldm(call(MI_LIFE, how), whole)
        yield f"life-{name}-busy", pldm(call(MI_LIFE, how), mi_block(mi_body(status=1)), whole)
        yield f"life-{name}-silent", pldm(call(MI_LIFE, how))
        yield f"life-{name}-no-memory", pldm(call(MI_LIFE, how), fail_allocation=1)
        yield f"life-{name}-lock", pldm(call(MI_LIFE, how), whole, refuse_lock=1)
    yield "life-list", pldm(call(MI_LIFE, 0x20), mi_block(mi_body([44, 1, 0], bytes(300))))
    yield "life-endless", pldm(call(MI_LIFE, 0x20), packet(SOM, b"\x84\x08"), packet(0x10, b"\1"),
                               switches=ENDLESS)


# ---- fuzz-nvme-admin ----------------------------------------------------------------------------

(ADMIN_FEATURE, ADMIN_PLAIN, ADMIN_CREATE, ADMIN_READ, ADMIN_DOWNLOAD, ADMIN_TUNNEL,
 ADMIN_LIFE) = range(7)
OWN_REQUEST = 1


def drive_body(status=0, dword3=0, data=b"", how=DRIVE_CHECKS, dword0=1):
    completion = struct.pack("<III", dword0, 0, dword3)
    return bytes([RESPONSE | 0x10 | how, 0, 0, status, 5, 11, 0]) + completion + bytes(data)


def drive_answer(status=0, dword3=0, data=b"", how=DRIVE_CHECKS, cut=None):
    body = drive_body(status, dword3, data, how)[:cut]
    return bytes([0, len(body)]) + body


def drive_claims(result):
    return bytes([0, 19, RESPONSE | 0x10 | DRIVE_LIES]) + struct.pack("<h", result) + bytes(16)


def admin_record(opcode=0xD2, dwords=4, offset=0):
    return bytes([opcode, 1, offset]) + struct.pack("<H", dwords)


def admin_read(which, length, record=None):
    return bytes([ADMIN_READ]) + (record or admin_record()) + struct.pack("<BH", which, length)


def admin_download(chunk_size, size, shrinks_at=0):
    return struct.pack("<BHHB", ADMIN_DOWNLOAD, chunk_size, size, shrinks_at)


def admin_feature(which, argument, room=8, dwords=4, offset=0):
    return bytes([ADMIN_FEATURE]) + admin_record(0, dwords, offset) + bytes([which, argument, room])


def nvme_admin_seeds():
    done = drive_answer()
    page = drive_answer(data=range(32))
    code = 2 << 17 | 1 << 25
    commands = [("get-feature", admin_feature(0, 0)), ("set-feature", admin_feature(1, 1)),
                ("any-feature", admin_feature(2, 0xC5, offset=1)), ("create", call(ADMIN_CREATE)),
                ("log-page", admin_read(0, 32)), ("log-page-passthrough", admin_read(0x80, 32)),
                ("identify", admin_read(1, 32)), ("identify-passthrough", admin_read(0x81, 32)),
                ("pd-info", admin_read(2, 32)), ("mrvl-read", admin_read(3, 32))]
    commands += [(f"plain-{which}", call(ADMIN_PLAIN, which, 2, 1)) for which in range(6)]
    for name, command in commands:
        answers = {"done": done, "data": page, "unchecked": drive_answer(how=0),
                   "refused": drive_answer(4), "refused-otherwise": drive_answer(0x20),
                   "failed": drive_answer(dword3=code), "failed-for-good": drive_answer(
                       dword3=code | 1 << 31),
                   "failed-without-code": drive_answer(dword3=1 << 25),
                   "later": drive_answer(1) + page, "later-twice": drive_answer(1) * 2,
                   "no-status": drive_answer(cut=3), "no-completion": drive_answer(cut=15),
                   "claims": drive_claims(5121)}
        if name.startswith("plain") and name != "plain-0":
            answers = {kind: answers[kind] for kind in ("done", "refused", "failed")}
        for kind, reply in answers.items():
            yield f"{name}-{kind}", pldm(command, reply)
        yield f"{name}-own-claims", pldm(command, drive_claims(32767), how=OWN_REQUEST)
    yield "feature-select", pldm(admin_feature(0, 4))
    yield "feature-save", pldm(admin_feature(1, 2))
    yield "feature-too-long", pldm(admin_feature(2, 9, dwords=4097))
    yield "read-silent-once", pldm(admin_read(0, 32), bytes([1, 0]), page)
    yield "read-more", pldm(admin_read(1, 32), drive_answer(dword3=1 << 30, data=range(8)))
    yield "read-nothing", pldm(admin_read(1, 0), done)
    yield "read-longest", pldm(admin_read(0, 4096), bytes([0x80, 250]) +
                               drive_body(data=bytes(1231), how=0))
    yield "read-too-long", pldm(admin_read(1, 4097))
    yield "download", pldm(admin_download(4096, 4097), done * 2)
    yield "download-own", pldm(admin_download(4, 13), done * 4, how=OWN_REQUEST)
    yield "download-empty", pldm(admin_download(4, 0))
    yield "download-odd", pldm(admin_download(6, 15), done * 3)
    yield "download-bytes", pldm(admin_download(1, 5), done * 5)
    yield "download-odd-largest", pldm(admin_download(4095, 8190), done * 2)
    yield "download-chunk-0", pldm(admin_download(0, 5))
    yield "download-chunk-4097", pldm(admin_download(4097, 5))
    yield "download-endless", pldm(admin_download(64, 9000), done, switches=ENDLESS)
    yield "download-shrinks", pldm(admin_download(4, 64, 3), done * 20)
    yield "download-silent", pldm(admin_download(4, 64), done)
    yield "download-retried", pldm(admin_download(4, 8), bytes([1, 0]) * 2, done, bytes([1, 9]),
                                   done)
    yield "download-refused", pldm(admin_download(4, 64), done, drive_answer(4))
    yield "download-failed", pldm(admin_download(4, 64), done, drive_answer(dword3=code))
    yield "download-later", pldm(admin_download(4, 8), drive_answer(1), done, drive_answer(1), done)
    for length, capacity in ((66, 19), (67, 19), (67, 0), (67, 5200), (255, 40)):
        yield f"tunnel-{length}-{capacity}", pldm(
            struct.pack("<BBH", ADMIN_TUNNEL, length, capacity), bytes(length), page)
    block = packet(SOM | EOM, b"\x84" + drive_body(data=range(16)))
    for name, how in (("", 0), ("-sl8", 1), ("-patient", 2), ("-patient-sl8", 3)):
        yield f"life{name}", pldm(call(ADMIN_LIFE, how), admin_record() + struct.pack("<BH", 1, 16),
                                  block, bytes([0, 1, 0]), block)
    yield "life-no-memory", pldm(call(ADMIN_LIFE, 0), fail_allocation=1)
    yield "life-silent", pldm(call(ADMIN_LIFE, 0))
