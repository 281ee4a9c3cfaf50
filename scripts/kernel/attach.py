#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Attaches a serial MCTP line (DSP0253) to the kernel and gives every endpoint behind it a route.

usage: attach.py [--address EID] [--net NET] [--baud RATE] (--board FILE | --tty PATH EID...)

FILE is the document that `sideband-sim serve --json` prints first, "-" for standard input. Needs
CAP_NET_ADMIN, and a kernel with CONFIG_MCTP_SERIAL. Prints one JSON line with the interface, its address and
the routes, then holds the line until SIGINT or SIGTERM; the interface is gone behind that.
"""
import argparse
import fcntl
import json
import os
import signal
import socket
import struct
import sys
import termios
import tty

AF_MCTP = 45
N_TTY, N_MCTP = 0, 28
RTM_NEWLINK, RTM_NEWADDR, RTM_NEWROUTE = 16, 20, 24
NLM_F_REQUEST, NLM_F_ACK, NLM_F_CREATE, NLM_F_EXCL = 1, 4, 0x400, 0x200
NLMSG_ERROR = 2
IFF_UP = 1
IFA_LOCAL = 2
IFLA_AF_SPEC, IFLA_MCTP_NET = 26, 1
RTA_DST, RTA_OIF = 1, 4
RTN_UNICAST = 1


class AttachError(Exception):
    """What could not be done, in one line for whoever called."""


def attribute(kind, payload):
    """One rtnetlink attribute, padded to four bytes."""
    return struct.pack("=HH", 4 + len(payload), kind) + payload + bytes(-len(payload) % 4)


def ask_kernel(what, kind, body):
    """Sends one rtnetlink request and raises what the kernel refuses."""
    flags = NLM_F_REQUEST | NLM_F_ACK
    if kind != RTM_NEWLINK:
        flags |= NLM_F_CREATE | NLM_F_EXCL
    with socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, socket.NETLINK_ROUTE) as link:
        link.send(struct.pack("=IHHII", 16 + len(body), kind, flags, 1, 0) + body)
        answer = link.recv(65536)
    _, answered = struct.unpack_from("=IH", answer)
    code, = struct.unpack_from("=i", answer, 16)
    if answered != NLMSG_ERROR or code:
        raise AttachError(f"{what}: {os.strerror(-code)}")


def link_up(index, net):
    """The interface in the network that was asked for, and up."""
    body = struct.pack("=BBHiII", 0, 0, 0, index, IFF_UP, IFF_UP)
    if net is not None:
        in_family = attribute(IFLA_MCTP_NET, struct.pack("=I", net))
        body += attribute(IFLA_AF_SPEC, attribute(AF_MCTP, in_family))
    ask_kernel("the interface does not come up", RTM_NEWLINK, body)


def add_address(index, eid):
    """The EID of this machine on the line."""
    body = struct.pack("=BBBBI", AF_MCTP, 8, 0, 0, index) + attribute(IFA_LOCAL, bytes([eid]))
    ask_kernel(f"address {eid}", RTM_NEWADDR, body)


def add_route(index, eid):
    """A route to one endpoint behind the line."""
    body = struct.pack("=BBBBBBBBI", AF_MCTP, 0, 0, 0, 0, 0, 0, RTN_UNICAST, 0)
    body += attribute(RTA_DST, bytes([eid])) + attribute(RTA_OIF, struct.pack("=I", index))
    ask_kernel(f"route to {eid}", RTM_NEWROUTE, body)


def set_discipline(line, discipline):
    """What the kernel does with the bytes of a tty."""
    fcntl.ioctl(line, termios.TIOCSETD, struct.pack("=i", discipline))


def open_line(path, baud):
    """The tty, raw and at its rate, with the kernel's MCTP on it."""
    line = os.open(path, os.O_RDWR | os.O_NOCTTY)
    try:
        # A pseudo-terminal keeps what somebody left on it who was killed.
        set_discipline(line, N_TTY)
        tty.setraw(line)
        if baud:
            settings = termios.tcgetattr(line)
            rate = getattr(termios, f"B{baud}", None)
            if rate is None:
                raise AttachError(f"{baud} is no rate of a serial line")
            settings[4] = settings[5] = rate
            termios.tcsetattr(line, termios.TCSANOW, settings)
        set_discipline(line, N_MCTP)
    except OSError as error:
        os.close(line)
        raise AttachError(f"{path} does not take line discipline {N_MCTP}: {error.strerror}"
                          " (it needs CAP_NET_ADMIN and CONFIG_MCTP_SERIAL)") from error
    return line


def interfaces():
    """Name -> index of the serial MCTP interfaces."""
    return {name: index for index, name in socket.if_nameindex() if name.startswith("mctpserial")}


def attach(path, address, eids, net=None, baud=None):
    """(descriptor, interface name); the line lasts until detach()."""
    before = interfaces()
    line = open_line(path, baud)
    try:
        (name, index), = set(interfaces().items()) - set(before.items())
        link_up(index, net)
        add_address(index, address)
        for eid in eids:
            add_route(index, eid)
    except BaseException:
        detach(line)
        raise
    return line, name


def detach(line):
    """Takes the line from the kernel. Closing a pseudo-terminal does not, as long as its other end is open."""
    try:
        set_discipline(line, N_TTY)
    except OSError:
        # The line has been pulled, and the interface went with it.
        pass
    os.close(line)


def arguments():
    """The command line."""
    parser = argparse.ArgumentParser(description="attach a serial MCTP line to the kernel")
    parser.add_argument("--board", metavar="FILE", help="what sideband-sim serve --json printed")
    parser.add_argument("--tty", metavar="PATH")
    parser.add_argument("--address", type=int, default=100, metavar="EID", help="of this machine (100)")
    parser.add_argument("--net", type=int, help="the kernel's default network where not given")
    parser.add_argument("--baud", type=int, help="of a real serial line")
    parser.add_argument("eids", nargs="*", type=int, metavar="EID", help="an endpoint behind the line")
    given = parser.parse_args()
    if (given.board is None) == (given.tty is None):
        parser.error("either --board or --tty is needed")
    return given


def main():
    given = arguments()
    path, eids = given.tty, given.eids
    try:
        if given.board:
            with sys.stdin if given.board == "-" else open(given.board, encoding="utf-8") as file:
                path, eids = table_of(json.load(file))
        if given.address in eids:
            raise AttachError(f"EID {given.address} is behind the line; --address must be another one")
        line, name = attach(path, given.address, eids, given.net, given.baud)
    except (AttachError, OSError, ValueError, KeyError) as error:
        print(f"attach.py: {error}", file=sys.stderr)
        return 1
    print(json.dumps({"interface": name, "address": given.address, "routes": eids}), flush=True)
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    try:
        signal.pause()
    except KeyboardInterrupt:
        pass
    detach(line)
    return 0


def table_of(document):
    """(path of the tty, EIDs) of what sideband-sim serve prints."""
    eids = [endpoint["eid"] for endpoint in document["endpoints"]]
    if document["eid"] not in eids:
        eids.insert(0, document["eid"])
    return document["tty"], eids


if __name__ == "__main__":
    sys.exit(main())
