# SPDX-License-Identifier: Apache-2.0
"""Reads the MCTP packets of a pcapng capture, apart from any other decoder (RFC draft pcapng)."""
import dataclasses
import struct

SECTION_HEADER, INTERFACE, ENHANCED_PACKET = 0x0A0D0D0A, 1, 6
OPT_COMMENT, OPT_IF_NAME = 1, 2
LINUX_SLL, LINUX_SLL2 = 113, 276
PROTOCOL_MCTP = 0x00FA
OUTGOING = 4


class Malformed(Exception):
    """The file is not what it should be."""


@dataclasses.dataclass
class Packet:
    number: int
    interface: str
    comment: str
    outgoing: bool
    mctp: bytes

    @property
    def dest(self):
        return self.mctp[1]

    @property
    def source(self):
        return self.mctp[2]

    @property
    def start(self):
        return bool(self.mctp[3] & 0x80)

    @property
    def end(self):
        return bool(self.mctp[3] & 0x40)

    @property
    def sequence(self):
        return self.mctp[3] >> 4 & 3

    @property
    def tag_owner(self):
        return bool(self.mctp[3] & 8)

    @property
    def tag(self):
        return self.mctp[3] & 7

    @property
    def payload(self):
        return self.mctp[4:]


def _options(data):
    found = {}
    while len(data) >= 4:
        code, length = struct.unpack_from("<HH", data)
        if code == 0:
            break
        found.setdefault(code, data[4:4 + length].decode())
        data = data[4 + length + -length % 4:]
    return found


def _blocks(data):
    position = 0
    while position < len(data):
        if len(data) - position < 12:
            raise Malformed(f"{len(data) - position} bytes after the last block")
        kind, length = struct.unpack_from("<II", data, position)
        if length % 4 or length < 12 or position + length > len(data):
            raise Malformed(f"block of length {length} at {position}")
        if struct.unpack_from("<I", data, position + length - 4)[0] != length:
            raise Malformed(f"the two lengths of the block at {position} differ")
        yield kind, data[position + 8:position + length - 4]
        position += length


def _link_header(link_type, frame):
    """(outgoing, payload) behind the cooked header."""
    if link_type == LINUX_SLL2:
        protocol, _, _, _, kind, _ = struct.unpack_from(">HHIHBB", frame)
        payload = frame[20:]
    elif link_type == LINUX_SLL:
        kind, _, _ = struct.unpack_from(">HHH", frame)
        protocol = struct.unpack_from(">H", frame, 14)[0]
        payload = frame[16:]
    else:
        raise Malformed(f"link type {link_type}")
    if protocol != PROTOCOL_MCTP:
        raise Malformed(f"protocol {protocol:#06x}")
    return kind == OUTGOING, payload


def read(path):
    """All packets of the capture."""
    with open(path, "rb") as file:
        data = file.read()
    interfaces, packets = [], []
    for index, (kind, body) in enumerate(_blocks(data)):
        if index == 0 and (kind != SECTION_HEADER or body[:4] != b"\x4d\x3c\x2b\x1a"):
            raise Malformed("does not begin with a little-endian section header")
        if kind == INTERFACE:
            interfaces.append((struct.unpack_from("<H", body)[0],
                               _options(body[8:]).get(OPT_IF_NAME, "")))
        elif kind == ENHANCED_PACKET:
            number, _, _, captured, original = struct.unpack_from("<IIIII", body)
            if captured != original:
                raise Malformed(f"packet {len(packets) + 1} is cut")
            link_type, name = interfaces[number]
            outgoing, mctp = _link_header(link_type, body[20:20 + captured])
            comment = _options(body[20 + captured + -captured % 4:]).get(OPT_COMMENT, "")
            packets.append(Packet(len(packets) + 1, name, comment, outgoing, mctp))
    return packets
