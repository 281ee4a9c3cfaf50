# SPDX-License-Identifier: Apache-2.0
"""A datagram socket of the kernel's MCTP, which Python's own module does not know."""
import ctypes
import os
import select
import struct

AF_MCTP, SOCK_DGRAM, SOCK_CLOEXEC = 45, 2, 0o2000000
SOL_SOCKET, SO_RCVBUF = 1, 8
MSG_TRUNC = 0x20
TAG_OWNER = 0x08
ANY = 0xFF
CONTROL, PLDM, NCSI, NVME_MI = 0, 1, 2, 4
INTEGRITY = 0x80
# struct sockaddr_mctp: family, network, address, type, tag
ADDRESS = struct.Struct("=HHIBBBB")

libc = ctypes.CDLL(None, use_errno=True)


def checked(result):
    """The result of a system call, or its error."""
    if result < 0:
        code = ctypes.get_errno()
        raise OSError(code, os.strerror(code))
    return result


class MctpSocket:
    """Requests and answers of one message type; the kernel picks and matches the tags."""

    def __init__(self, kind, net=1):
        self.kind, self.net = kind, net
        self.fd = checked(libc.socket(AF_MCTP, SOCK_DGRAM | SOCK_CLOEXEC, 0))
        self.room = ctypes.create_string_buffer(65536)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        os.close(self.fd)

    def address(self, eid, tag):
        """struct sockaddr_mctp."""
        return ADDRESS.pack(AF_MCTP, 0, self.net, eid, self.kind, tag, 0)

    def bind(self, eid=ANY):
        """What devices ask of their own accord comes here."""
        address = self.address(eid, 0)
        checked(libc.bind(self.fd, address, len(address)))

    def receive_room(self, size):
        """Bytes that the kernel keeps for this socket."""
        value = struct.pack("=i", size)
        checked(libc.setsockopt(self.fd, SOL_SOCKET, SO_RCVBUF, value, len(value)))

    def writable(self):
        """Whether a request would go out at once."""
        return bool(select.select([], [self.fd], [], 0)[1])

    def send(self, eid, body):
        """One request, without its type byte."""
        address = self.address(eid, TAG_OWNER)
        checked(libc.sendto(self.fd, body, len(body), 0, address, len(address)))

    def receive(self, seconds):
        """(EID, type, body) of one message, or None where none came in time."""
        if not select.select([self.fd], [], [], seconds)[0]:
            return None
        address = ctypes.create_string_buffer(ADDRESS.size)
        size = ctypes.c_uint32(ADDRESS.size)
        length = checked(libc.recvfrom(self.fd, self.room, len(self.room), MSG_TRUNC, address,
                                       ctypes.byref(size)))
        _, _, _, eid, kind, _, _ = ADDRESS.unpack(address.raw)
        return eid, kind, self.room.raw[:length]

    def ask(self, eid, body, seconds=5.0):
        """The body of the answer; TimeoutError where none came."""
        self.send(eid, body)
        answer = self.receive(seconds)
        if answer is None:
            raise TimeoutError(f"EID {eid} did not answer within {seconds} s")
        if answer[0] != eid or answer[1] != self.kind:
            raise ValueError(f"EID {answer[0]} answered with type {answer[1]:#x}, {eid} was asked")
        return answer[2]


def crc32c(data):
    """The integrity check of NVMe-MI: CRC-32C."""
    crc = 0xFFFFFFFF
    for byte in data:
        crc ^= byte
        for _ in range(8):
            crc = crc >> 1 ^ (0x82F63B78 if crc & 1 else 0)
    return crc ^ 0xFFFFFFFF


def sealed(body):
    """An NVMe-MI message with its integrity check, which covers the type byte too."""
    return body + struct.pack("<I", crc32c(bytes([NVME_MI | INTEGRITY]) + body))


def opened(body):
    """An NVMe-MI message without its integrity check, which must be right."""
    if len(body) < 4 or sealed(body[:-4]) != body:
        raise ValueError(f"the integrity check of an answer of {len(body)} bytes is wrong")
    return body[:-4]
