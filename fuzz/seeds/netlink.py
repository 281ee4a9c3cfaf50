# SPDX-License-Identifier: Apache-2.0
"""Answers of rtnetlink about MCTP: the seeds of fuzz-netlink. They are in the byte order of the machine."""
import struct

AF_MCTP = 45
NLMSG_ERROR, NLMSG_DONE = 2, 3
NEW_LINK, NEW_ADDRESS, NEW_ROUTE, NEW_NEIGHBOUR = 16, 20, 24, 28
SEQUENCE = 1


def attribute(kind, value):
    return struct.pack("=HH", 4 + len(value), kind) + value + bytes(-len(value) % 4)


def message(kind, head, *attributes, sequence=SEQUENCE):
    body = head + b"".join(attributes)
    return struct.pack("=IHHII", 16 + len(body), kind, 2, sequence, 0) + body


def link(index, net):
    head = struct.pack("=BxHiII", 0, 290, index, 1, 0)
    return message(NEW_LINK, head, attribute(3, b"mctpi2c0\0"),
                   attribute(26 | 0x8000, attribute(AF_MCTP, attribute(1, struct.pack("=I", net)))))


def address(index, eid):
    return message(NEW_ADDRESS, struct.pack("=BBBBI", AF_MCTP, 0, 0, 0, index), attribute(2, bytes([eid])))


def route(index, first, extent, kind=1, *more):
    head = struct.pack("=BBBBBBBBI", AF_MCTP, extent, 0, 0, 253, 4, 253, kind, 0)
    return message(NEW_ROUTE, head, attribute(1, bytes([first])), attribute(4, struct.pack("=i", index)), *more)


def neighbour(index, eid):
    head = struct.pack("=BxHiHBB", AF_MCTP, 0, index, 0, 0, 0)
    return message(NEW_NEIGHBOUR, head, attribute(1, bytes([eid])), attribute(2, b"\x1d"))


def done():
    return message(NLMSG_DONE, struct.pack("=i", 0))


def datagrams(*each):
    return b"".join(struct.pack("<H", len(one)) + one for one in each)


def netlink_seeds():
    yield "machine", datagrams(link(3, 1) + done(), address(3, 8) + done(), route(3, 9, 4) + route(3, 8, 0, 2) + done(),
                               neighbour(3, 20) + done())
    yield "gateway", datagrams(route(0, 40, 7, 1, attribute(5, struct.pack("=IBxxx", 6, 9))))
    yield "refused", datagrams(message(NLMSG_ERROR, struct.pack("=i", -95)))
    yield "everything", datagrams(link(3, 1) + link(4, 2) + route(3, 0, 255) + route(4, 250, 255))
