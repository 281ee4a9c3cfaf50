# SPDX-License-Identifier: Apache-2.0
"""Counts requests and answers on an interface of this kernel's, by packet sockets of which nobody reads anything."""
import ctypes
import socket
import struct

ETH_P_ALL = 3
SOL_PACKET, PACKET_STATISTICS = 263, 6
# SO_ATTACH_FILTER takes instructions of the classic BPF: code, jump if true, jump if false, operand.
SO_ATTACH_FILTER = 26
LOAD_BYTE, LOAD_WORD, AND, JUMP_EQUAL, RETURN = 0x30, 0x20, 0x54, 0x15, 0x06
PACKET_TYPE = 0xFFFFF000 + 4
OUTGOING = 4
# Last byte of the MCTP transport header (DSP0236): start and end of a message, and whose the tag is.
FLAGS_AT, START, END, TAG_OWNER = 3, 0x80, 0x40, 0x08


def counting_socket(interface, flag, outgoing):
    """A socket that takes the packets of messages with their own tag or, coming in, without it, which have a flag."""
    wanted = flag | (TAG_OWNER if outgoing else 0)
    direction = (1, 0) if outgoing else (0, 1)
    program = [(LOAD_WORD, 0, 0, PACKET_TYPE), (JUMP_EQUAL, direction[1] * 4, direction[0] * 4, OUTGOING),
               (LOAD_BYTE, 0, 0, FLAGS_AT), (AND, 0, 0, flag | TAG_OWNER), (JUMP_EQUAL, 0, 1, wanted),
               (RETURN, 0, 0, 1), (RETURN, 0, 0, 0)]
    code = ctypes.create_string_buffer(b"".join(struct.pack("=HBBI", *step) for step in program))
    counting = socket.socket(socket.AF_PACKET, socket.SOCK_DGRAM, 0)
    counting.setsockopt(socket.SOL_SOCKET, SO_ATTACH_FILTER,
                        struct.pack("@HP", len(program), ctypes.addressof(code)))
    counting.bind((interface, ETH_P_ALL))
    return counting


class ExchangeCounter:
    """What has passed since it was made. The kernel counts what a socket had no room for too."""

    def __init__(self, interface):
        self.requests = counting_socket(interface, START, True)
        self.answers = counting_socket(interface, END, False)

    def close(self):
        """Ends it."""
        self.requests.close()
        self.answers.close()

    @staticmethod
    def count(counting):
        """Packets since the last call."""
        return struct.unpack("=II", counting.getsockopt(SOL_PACKET, PACKET_STATISTICS, 8))[0]

    def counts(self):
        """(messages that this machine began with a tag of its own, messages for a tag of its own that came to their end)"""
        return self.count(self.requests), self.count(self.answers)
