# SPDX-License-Identifier: Apache-2.0
"""The seeds of fuzz-serial."""
import struct

STREAM, PACKET, MESSAGE, DRIVE_MESSAGE, TIME = range(5)
BRIDGE, TERMINUS, DRIVE, NCSI, REPLAY, MPIO, OWNER = range(8, 15)
TAG_OWNER = 0x08


def frame_check(data):
    check = 0xFFFF
    for byte in data:
        check ^= byte
        for _ in range(8):
            check = check >> 1 ^ (0x8408 if check & 1 else 0)
    return check


def frame(packet):
    checked = bytes([1, len(packet)]) + packet
    escaped = b"".join(bytes([0x7D, byte & ~0x20]) if byte in (0x7D, 0x7E) else bytes([byte])
                       for byte in packet)
    return b"\x7e" + checked[:2] + escaped + struct.pack(">H", frame_check(checked)) + b"\x7e"


def stream(data):
    return b"".join(bytes([STREAM, len(data[i:i + 255])]) + data[i:i + 255]
                    for i in range(0, len(data), 255))


def packet(text):
    data = bytes.fromhex(text)
    return bytes([PACKET, len(data)]) + data


def message(eid, text, flags=TAG_OWNER):
    data = bytes.fromhex(text)
    return bytes([MESSAGE, eid, flags]) + struct.pack("<H", len(data)) + data


def drive(data):
    return bytes([DRIVE_MESSAGE]) + struct.pack("<H", len(data)) + data


def admin(opcode, length=0, dword10=0, data=b""):
    body = bytearray(67)
    body[0], body[3], body[4] = 0x10, opcode, 1 if length else 0
    struct.pack_into("<I", body, 31, length)
    struct.pack_into("<I", body, 43, dword10)
    return drive(bytes(body) + data)


def time(milliseconds):
    return bytes([TIME]) + struct.pack("<H", milliseconds * 10)


def serial_seeds():
    get_eid = bytes.fromhex("010850c8008002")
    good = frame(get_eid)
    yield "frame", stream(good) + time(1)
    yield "frame-escapes", stream(frame(bytes.fromhex("010950c801 7d7e80027d7e"))) + time(1)
    yield "frames-share-a-flag", stream(good + good[1:] + good) + time(1)
    yield "frame-cut", stream(good[:6] + good + good[:-2] + good)
    yield "frame-too-long", stream(good[:-1] + b"\0\0\x7e" + good)
    yield "frame-wrong-check", stream(good[:-3] + b"\0\0\x7e" + good)
    yield "frame-wrong-escape", stream(b"\x7e\x01\x07\x01\x7d\x7d" + good)
    yield "frame-no-packet", stream(b"\x7e\x01\x00\xb8\x9f\x7e" + good)
    yield "frame-longest", stream(frame(bytes.fromhex("010950c801") + bytes(250))) + time(1)
    yield "packet-short", packet("01") + packet("0108") + packet("010850c8")
    yield "packet-version", packet("020850c8008002")
    for name, text in (("set-eid", "0080010020"), ("get-eid", "008002"), ("uuid", "008003"),
                       ("versions", "00800400"), ("types", "008005"), ("vendor", "00800600"),
                       ("allocate", "008008000a40"), ("allocation", "008008020000"),
                       ("routes", "00800a00"), ("prepare", "00800b"), ("discover", "00800c")):
        yield "bridge-" + name, message(BRIDGE, text) + time(1) + message(0x41, "01800002") + time(1)
    yield "no-eid", packet("010050c8008002") + packet("01ff50c8008002") + packet("01c050c8008002")
    for eid in range(TERMINUS, OWNER + 1):
        yield f"endpoint-{eid}", message(eid, "008002") + message(eid, "008005") + time(2)
    yield "owner", message(OWNER, "00800d") + time(500) + message(OWNER, "00000b00", 0) + time(500)
    yield "mpio", message(MPIO, "008008000a40") + message(MPIO, "00800a00") + time(2)
    yield "terminus", b"".join(message(TERMINUS, "0180" + text) for text in (
        "0002", "0004", "000300000000010000", "0211010000", "0250", "0251000000000000000001ff000000",
        "0401", "040200000000 01")) + time(5)
    yield "interleaved", (packet("01095088 018000") + packet("01095188 018000")
                          + packet("01095058 02") + packet("01095158 02") + time(1))
    yield "out-of-sequence", packet("01095088 018000") + packet("01095068 02") + time(1)
    yield "ncsi", message(NCSI, "02" + "00010000 00 00 00 00".replace(" ", "") + "00" * 12) + time(5)
    yield "replay", message(REPLAY, "01800002") + time(1)
    yield "update", (message(TERMINUS, "01800510 20000000 0100 01 0400 01 01 41") + time(5)
                     + message(TERMINUS, "01000511 00 00000000 05 01020304", 0)
                     + message(TERMINUS, "01800512 00000000 01")
                     + message(TERMINUS, "01800513 05 0a00 0100 00 01000000 01 01 41")
                     + message(TERMINUS, "01800514 0a00 0100 00 01000000 20000000 00000000 01 01 41")
                     + time(5) + message(TERMINUS, "01010515 00" + "5a" * 32, 1) + time(6000)
                     + message(TERMINUS, "01020516 00", 2) + time(10) + message(TERMINUS, "0180051d"))
    yield "drive-health", drive(bytes.fromhex("080000010000000000000000000000")) + time(5)
    yield "drive-identify", admin(0x06, 4096, 1) + time(5)
    yield "drive-log", admin(0x02, 512, 0x007F0002) + time(5)
    yield "drive-download", admin(0x11, 64, 15, bytes(64)) + time(5)
    yield "drive-no-check", message(DRIVE, "84080000010000000000000000000000000000") + time(5)
