# SPDX-License-Identifier: Apache-2.0
"""Blocks on the scripted SMBus, the environment of an input, and the seeds of fuzz-receive."""
import struct

ENDLESS, POWER_OFF, STANDBY_OPTION, OVERRIDE, STANDBY_OFF, STANDBY_DEVICES, MPIO_MARKER, TURIN = (
    1 << bit for bit in range(8))


def environment(switches=0, refuse_lock=0, fail_allocation=0, write_failures=0, next_eid=0,
                mpio_state=0, strict=0):
    return bytes([switches, refuse_lock | fail_allocation << 4, write_failures, next_eid,
                  mpio_state, strict])


def strictly(seed):
    """The same input with all strict bits in its environment."""
    return seed[:5] + b"\x3F" + seed[6:]


# ---- SMBus blocks -----------------------------------------------------------------------------

FAILS, RESULT, FIX_TAG, ECHO, WITH_ENDS, LARGE = 0x01, 0x02, 0x04, 0x08, 0x10, 0x80
SOM, EOM, TO = 0x80, 0x40, 0x08


def packet(flags, payload, fit=FIX_TAG):
    body = bytes([0x01, 0x08, 0x1D, flags]) + bytes(payload)
    return bytes([fit | WITH_ENDS, len(body)]) + body


def message(payload, unit):
    """An honest message; payload begins with the type byte."""
    chunks = [payload[i:i + unit] for i in range(0, len(payload), unit)]
    last = len(chunks) - 1
    return b"".join(packet((SOM if i == 0 else 0) | (EOM if i == last else 0) | (i & 3) << 4, chunk)
                    for i, chunk in enumerate(chunks))


def claims(result, stored=b""):
    return bytes([RESULT]) + struct.pack("<hB", result, len(stored)) + stored


def read_fails(how=0):
    return bytes([FAILS, how])


SL8, DELAYED, RECEIVE_ONLY, WITH_TYPE, PAUSE, INTEGRITY, PLDM, LONG_REQUEST = (
    1 << bit for bit in range(8))


def receive(blocks, mode=0, unit=64, capacity=64, request=6, tag=0, **env):
    return (environment(**env) + bytes([mode, unit]) + struct.pack("<H", capacity + 4) +
            bytes([request, tag]) + blocks)


def receive_seeds():
    body = bytes([0x01]) + bytes(range(1, 30))
    large = bytes([0x7E]) + bytes(i & 0xFF for i in range(300))
    first = packet(SOM, body)
    yield "one-packet", receive(message(body, 64))
    yield "one-packet-sl8", receive(message(body, 64), mode=SL8)
    yield "one-packet-delayed", receive(message(body, 64), mode=DELAYED | PAUSE)
    yield "one-packet-received", receive(message(body, 64), mode=RECEIVE_ONLY)
    yield "one-packet-received-sl8", receive(message(body, 64), mode=RECEIVE_ONLY | SL8)
    yield "with-type", receive(message(body, 64), mode=RECEIVE_ONLY | WITH_TYPE)
    yield "several-packets", receive(message(large, 64), capacity=400)
    yield "several-packets-96", receive(message(large, 96), unit=96, capacity=400)
    yield "one-byte-units", receive(message(body, 1), unit=1)
    yield "cut-to-capacity", receive(message(large, 64), capacity=100)
    yield "capacity-one", receive(message(body, 64), capacity=1)
    yield "capacity-none", receive(message(body, 64), capacity=0)
    yield "capacity-negative", receive(message(body, 64), capacity=-1)
    yield "integrity-check-sent", receive(message(body, 64), mode=INTEGRITY | LONG_REQUEST,
                                          request=200)
    yield "request-multiple-of-unit", receive(message(body, 64), request=127)
    yield "start-in-the-middle", receive(first + packet(SOM, body) + packet(0x50, b"\1\2"))
    yield "no-start", receive(packet(EOM, body) + message(body, 64))
    yield "wrong-sequence", receive(first + packet(0x30, b"\1") + packet(0x10, b"\2") +
                                    packet(EOM, b"\3"))
    yield "end-with-any-sequence", receive(first + packet(0x30 | EOM, b"\1"))
    yield "wrong-tag", receive(packet(SOM | EOM | 5, body, fit=0) + message(body, 64))
    yield "tag-owner-set", receive(packet(SOM | EOM | TO | 6, body, fit=0))
    yield "empty-payload", receive(packet(SOM, b"\1") + packet(0x10, b"") + packet(EOM, b"\1"))
    yield "short-packets", receive(b"".join(claims(4 + n, bytes(8)) for n in range(6)))
    yield "too-many-bytes", receive(packet(SOM, bytes(90)) + packet(0x10, bytes(70)) +
                                    packet(EOM, b"\1"))
    for result in (0, 1, 3, 4, 7, 8, 9, 255, 1023, 1024, 1025, 32767, -1, -32768):
        yield f"claims{result}", receive(claims(result, bytes(60)) + message(body, 64))
    yield "read-fails", receive(read_fails(3))
    yield "unit-120", receive(message(large, 120), unit=120, capacity=400)
    yield "unit-121", receive(message(body, 64), unit=121)
    yield "unit-huge", receive(message(body, 64), unit=255)
    yield "unit-default", receive(message(body, 64), unit=0)
    yield "lock-refused", receive(message(body, 64), refuse_lock=1)
    yield "writes-fail", receive(message(body, 64), write_failures=0xFF)
    yield "power-off", receive(message(body, 64), switches=POWER_OFF)
    yield "standby-off", receive(message(body, 64),
                                 switches=POWER_OFF | STANDBY_OPTION | STANDBY_OFF)
    yield "standby-on", receive(message(body, 64), switches=POWER_OFF | STANDBY_OPTION, mode=SL8)
    yield "endless-wrong-tag", receive(packet(SOM | EOM | 5, b"\1\2", fit=0), switches=ENDLESS)
    yield "endless-middle", receive(first + packet(0x10, b"\1"), switches=ENDLESS, capacity=4000)
