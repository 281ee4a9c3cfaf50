#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Writes the seed inputs of the fuzz targets to corpus/, one file a scenario.

usage: make_seeds.py [--check]

The inputs are scripts in the targets' own encoding; here they are spelt out. With --check nothing is
written: the exit status tells whether every file is there and as this script would write it.
"""
import pathlib
import struct
import sys

CORPUS = pathlib.Path(__file__).parent / "corpus"
ENDLESS, POWER_OFF, STANDBY_OPTION, OVERRIDE, STANDBY_OFF, STANDBY_DEVICES, MPIO_MARKER, TURIN = (
    1 << bit for bit in range(8))


def environment(switches=0, refuse_lock=0, fail_allocation=0, write_failures=0, next_eid=0,
                mpio_state=0):
    return bytes([switches, refuse_lock | fail_allocation << 4, write_failures, next_eid,
                  mpio_state])


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


# ---- Answers of a scripted endpoint -------------------------------------------------------------

ECHO_INSTANCE, ECHO_COMMAND, SUCCESS = 0x02, 0x04, 0x08
GOOD = ECHO_INSTANCE | ECHO_COMMAND | SUCCESS


def answer(tail, command_offset, flags=GOOD):
    """tail: what follows the completion code."""
    body = bytes(command_offset + 2) + bytes(tail)
    return bytes([flags, len(body)]) + body


def with_code(code, command_offset):
    body = bytes(command_offset + 1) + bytes([code])
    return bytes([ECHO_INSTANCE | ECHO_COMMAND, len(body)]) + body


def control_answer(tail, flags=GOOD):
    return answer(tail, 1, flags)


def route(eid, address, binding=2, size=None):
    return bytes([1, eid, 0, binding, 0, len(address) if size is None else size]) + bytes(address)


def table(next_handle, count, *entries):
    return control_answer(bytes([next_handle, count]) + b"".join(entries))


(SET_EID, GET_EID, UUID, ALLOCATE, ROUTES, DISCOVER, ASSIGN, LOOK_UP, ENDPOINT) = range(9)


def control(*calls, instance=0, **env):
    return environment(**env) + bytes([instance]) + b"".join(calls)


def call(operation, *arguments):
    return bytes([operation, *arguments])


def owner_request(command, *data):
    body = bytes([0x00, 0x80, command, *data])
    return bytes([0, len(body)]) + body


def control_seeds():
    not_ready = with_code(4, 1)
    yield "set-eid", control(call(SET_EID, 0x20), control_answer([0, 0x20, 0]))
    yield "get-eid", control(call(GET_EID), control_answer([0x1D, 0, 0]), instance=31)
    yield "get-eid-truncated", control(call(GET_EID), control_answer([]))
    yield "uuid", control(call(UUID), control_answer(range(16)))
    yield "uuid-truncated", control(call(UUID), control_answer(range(15)))
    yield "allocate", control(call(ALLOCATE, 0, 32, 64), control_answer([0, 32, 64]))
    yield "not-ready-thrice", control(call(GET_EID), not_ready * 3)
    yield "not-ready-then-ready", control(call(GET_EID), not_ready, control_answer([9, 0, 0]))
    yield "not-ready-for-ever", control(call(GET_EID), not_ready, switches=ENDLESS)
    yield "error-code", control(call(SET_EID, 9), with_code(2, 1))
    yield "wrong-instance", control(call(GET_EID), control_answer([9], ECHO_COMMAND | SUCCESS))
    yield "wrong-command", control(call(GET_EID), control_answer([9], ECHO_INSTANCE | SUCCESS))
    yield "transport-failure", control(call(GET_EID), bytes([1, 0]))
    yield "routing-table", control(call(ROUTES, 0), table(0xFF, 1, route(9, [1, 8])))
    yield "prepare", control(call(DISCOVER, 0), control_answer([]))
    yield "endpoint-discovery", control(call(DISCOVER, 1), control_answer([]))
    yield "discovery-has-eid", control(call(DISCOVER, 2), control_answer([8, 0, 0]))
    yield "discovery-assigns", control(call(DISCOVER, 2), control_answer([7, 0, 0]),
                                       control_answer([0, 16, 0]))
    yield "assign", control(call(ASSIGN), control_answer([0, 16, 0]))
    yield "assign-wraps", control(call(ASSIGN), control_answer([0, 255, 0]), call(ASSIGN),
                                  control_answer([0, 16, 0]), next_eid=255)
    yield "assign-refused-lock", control(call(ASSIGN), refuse_lock=1)
    yield "look-up", control(call(LOOK_UP, 1, 1, 0), table(0xFF, 1, route(9, [1, 8])))
    yield "look-up-second-answer", control(call(LOOK_UP, 1, 1, 2),
                                           table(1, 2, route(9, [1, 8]), route(10, [5], 1)),
                                           table(0xFF, 1, route(11, [1, 10])))
    yield "look-up-overrun", control(call(LOOK_UP, 1, 1, 0), table(0xFF, 7, route(9, [1], 2, 200)))
    yield "look-up-count-lies", control(call(LOOK_UP, 1, 1, 0), table(0xFF, 255, route(9, [2, 8])))
    yield "look-up-no-address", control(call(LOOK_UP, 0, 0, 0), table(0xFF, 2, route(9, []) * 2))
    yield "look-up-circle", control(call(LOOK_UP, 1, 1, 0), table(3, 1, route(9, [2, 8])),
                                    switches=ENDLESS)
    yield "endpoint-assigned", control(call(ENDPOINT), control_answer([]), owner_request(0x0B),
                                       owner_request(0x0C), owner_request(0x0C),
                                       owner_request(0x02), owner_request(0x06, 0),
                                       owner_request(0x06, 1), owner_request(0x0D),
                                       owner_request(0x77), owner_request(0x01, 0, 0),
                                       owner_request(0x01, 0, 255), owner_request(0x01, 0, 0x33))
    yield "endpoint-cannot-answer", control(call(ENDPOINT), control_answer([]), owner_request(2),
                                            write_failures=0xFF)
    yield "endpoint-ignores-five", control(call(ENDPOINT), bytes([1, 0]),
                                           bytes([0, 2, 1, 1]) * 5)


# ---- PLDM --------------------------------------------------------------------------------------

(BASE, ENABLE_NUMERIC, READ_NUMERIC, ENABLE_STATE, READ_STATE, READ_STATE_AT, RAW,
 TERMINUS) = range(8)
OWN_TRANSFER = 1


def pldm(*calls, how=0, **env):
    return environment(**env) + bytes([how]) + b"".join(calls)


def pldm_answer(tail, flags=GOOD):
    return answer(tail, 2, flags)


def pldm_seeds():
    reading = pldm_answer([4, 0, 0, 1, 1, 1, 0x34, 0x12, 0, 0])
    disabled = pldm_answer([0, 1, 0, 1, 1, 1, 0x34, 0, 0, 0])
    version = [0, 0, 0, 0, 5, 0xF1, 0xF0, 0, 0, 1, 2, 3, 4]
    yield "tid", pldm(call(BASE, 0), pldm_answer([1]))
    yield "tid-truncated", pldm(call(BASE, 0), pldm_answer([]))
    yield "tid-code-handed-through", pldm(call(BASE, 0), with_code(1, 2), how=OWN_TRANSFER)
    yield "types", pldm(call(BASE, 1), pldm_answer([0xFD, 0, 0, 0, 0, 0, 0, 0]))
    yield "version", pldm(call(BASE, 2, 2), pldm_answer(version))
    yield "version-never-ends", pldm(call(BASE, 2, 2), pldm_answer([1, 0, 0, 0, 2] + version[5:]),
                                     switches=ENDLESS)
    yield "version-no-memory", pldm(call(BASE, 2, 2), fail_allocation=1)
    yield "commands", pldm(call(BASE, 3), pldm_answer(range(32)))
    yield "discovery", pldm(call(BASE, 4), pldm_answer([1]), pldm_answer([0x3D] + [0] * 7))
    yield "enable-numeric", pldm(call(ENABLE_NUMERIC, 1, 0, 0), pldm_answer([]))
    yield "read-numeric", pldm(call(READ_NUMERIC, 1, 0), reading)
    yield "read-numeric-short", pldm(call(READ_NUMERIC, 1, 0), pldm_answer([0, 0, 0, 1, 1, 1, 9]))
    yield "read-numeric-cut", pldm(call(READ_NUMERIC, 1, 0), pldm_answer([4, 0, 0, 1, 1, 1, 9]))
    yield "read-numeric-disabled", pldm(*[call(READ_NUMERIC, 1, 0) + disabled] * 12)
    yield "not-ready", pldm(call(READ_NUMERIC, 1, 0), with_code(4, 2), how=31)
    yield "error-code", pldm(call(READ_NUMERIC, 1, 0), with_code(0x80, 2))
    yield "state-error-code", pldm(call(READ_STATE, 1, 0), with_code(0x80, 2),
                                   call(READ_STATE_AT, 1, 0, 0), with_code(0x80, 2))
    yield "enable-state", pldm(call(ENABLE_STATE, 1, 0, 8, 0), pldm_answer([]))
    yield "enable-state-nine", pldm(call(ENABLE_STATE, 1, 0, 9, 0))
    yield "enable-state-code", pldm(call(ENABLE_STATE, 1, 0, 1, 0), with_code(0x80, 2),
                                    call(ENABLE_STATE, 1, 0, 1, 0), with_code(0x82, 2),
                                    how=OWN_TRANSFER)
    yield "enable-state-no-memory", pldm(call(ENABLE_STATE, 1, 0, 1, 0), fail_allocation=1)
    yield "read-state", pldm(call(READ_STATE, 1, 0), pldm_answer([2, 1, 1, 1, 1, 0, 2, 3, 4]))
    yield "read-state-none", pldm(call(READ_STATE, 1, 0), pldm_answer([1, 1, 2, 3, 4]))
    yield "read-state-count-lies", pldm(call(READ_STATE, 1, 0), pldm_answer([255, 1, 2, 3, 4]))
    yield "read-state-no-memory", pldm(call(READ_STATE, 1, 0), fail_allocation=1)
    yield "read-state-at", pldm(call(READ_STATE_AT, 1, 0, 1),
                                pldm_answer([2, 1, 1, 1, 1, 0, 2, 3, 4]))
    yield "read-state-at-count", pldm(call(READ_STATE_AT, 1, 0, 1), pldm_answer([1, 0, 2, 3, 4]))
    yield "read-state-at-lies", pldm(call(READ_STATE_AT, 1, 0, 200), pldm_answer([255, 0, 2, 3]))
    yield "raw-send", pldm(call(RAW, 0x80, 0x11, 8), write_failures=0)
    yield "raw-send-patient", pldm(call(RAW, 0x12, 8), write_failures=0xFF)
    yield "raw-send-fails", pldm(call(RAW, 0, 0x11, 8), write_failures=0xFF)
    yield "raw-receive", pldm(call(RAW, 1, 0x11, 40), pldm_answer(range(20)))
    yield "raw-transfer-short", pldm(call(RAW, 2, 0x11, 40), bytes([0, 3, 0, 2, 0x11]))
    yield "raw-transfer-patient", pldm(call(RAW, 0x14, 8), with_code(4, 2) * 9 + pldm_answer([]))
    yield "raw-transfer-tiny-room", pldm(call(RAW, 2, 0x11, 2), pldm_answer([]))
    get_eid = packet(SOM | EOM, bytes([0, 0, 2, 0, 0x1D, 0, 0]), FIX_TAG | ECHO)
    get_tid = packet(SOM | EOM, bytes([1, 0, 0, 2, 0, 7]), FIX_TAG | ECHO)
    yield "terminus", pldm(call(TERMINUS, 0), get_eid + get_tid)
    yield "terminus-sl8", pldm(call(TERMINUS, 1), get_eid + get_tid)
    yield "terminus-discovered", pldm(call(TERMINUS, 4), get_eid + get_tid)
    yield "terminus-no-memory", pldm(call(TERMINUS, 0), fail_allocation=1)
    reading = packet(SOM | EOM, bytes([1, 0, 2, 0x11, 0, 4, 0, 0, 1, 1, 1, 9, 0, 0, 0]),
                     FIX_TAG | ECHO)
    types = packet(SOM | EOM, bytes([1, 0, 0, 4, 0, 0x3D] + [0] * 7), FIX_TAG | ECHO)
    yield "terminus-reads", pldm(call(TERMINUS, 0), get_eid + get_tid + reading)
    yield "terminus-known-eids", pldm(call(TERMINUS, 2), get_tid + reading)
    yield "terminus-discovered-whole", pldm(call(TERMINUS, 4), get_eid + get_tid + types)
    yield "terminus-silent", pldm(call(TERMINUS, 0))


# ---- PDRs --------------------------------------------------------------------------------------

REPOSITORY_INFO, GET_RECORD, GET_DECODED, TRAVERSE, DECODE = range(5)
START, MIDDLE, END, START_AND_END = 1, 2, 4, 5


def numeric_pdr(data_size=0, range_format=0, pdr_type=2):
    """A Numeric Sensor PDR: resolution 0.5, offset 10, all values counted up."""
    width, range_width = ((1, 1, 2, 2, 4, 4, 4, 1)[code] for code in (data_size, range_format))
    behind = (bytes([1, 0, 2, 0xFE] + [0] * 7 + [1, data_size]) +
              struct.pack("<ffHBB", 0.5, 10, 3, 1, 2) + bytes(range(width)) +
              bytes([0x3F, 0]) + struct.pack("<ff", 1, 2) + bytes(range(2 * width)) +
              bytes([range_format, 0x7F]) + bytes(range(9 * range_width)))
    return pdr_header(pdr_type, behind) + behind


def state_pdr(count, entries):
    behind = bytes([1, 0, count]) + b"".join(
        struct.pack("<HB", state_set, len(states)) + bytes(states) for state_set, states in entries)
    return pdr_header(4, behind) + behind


def pdr_header(pdr_type, behind):
    return struct.pack("<IBBHH5H", 1, 1, pdr_type, 0x1234, len(behind) + 10, 1, 5, 0x8044, 2, 3)


def part(data, flag=START_AND_END, next_record=0, next_transfer=0, count=None):
    body = struct.pack("<IIBH", next_record, next_transfer, flag,
                       len(data) if count is None else count) + bytes(data)
    return pldm_answer(body)


def get(capacity, *parts, handle=0):
    return bytes([GET_RECORD]) + struct.pack("<IH", handle, capacity) + b"".join(parts)


def decoded(*parts, reading=100, state_set=18):
    return (bytes([GET_DECODED]) + struct.pack("<I", 1) + b"".join(parts) +
            struct.pack("<IH", reading, state_set))


def raw(record, reading=100, state_set=18):
    return bytes([DECODE]) + record.ljust(105, b"\0") + struct.pack("<IH", reading, state_set)


def pdr_seeds():
    two = state_pdr(2, [(1, [3]), (18, [1, 2, 3])])
    yield "repository-info", pldm(call(REPOSITORY_INFO), pldm_answer(range(40)))
    yield "repository-info-cut", pldm(call(REPOSITORY_INFO), pldm_answer(range(30)))
    yield "repository-info-code", pldm(call(REPOSITORY_INFO), with_code(1, 2), how=OWN_TRANSFER)
    yield "one-part", pldm(get(128, part(two, next_record=7)))
    yield "three-parts", pldm(get(128, part(two[:10], START, 0, 1), part(two[10:20], MIDDLE, 0, 2),
                                  part(two[20:], END, 9)))
    yield "exactly-128", pldm(get(128, part(bytes(128))))
    yield "part-too-long", pldm(get(999, part(bytes(129))))
    yield "record-too-long", pldm(get(128, part(bytes(128), START), part(bytes(72), END)))
    yield "seven-parts", pldm(get(999, *[part(bytes(128), MIDDLE)] * 7))
    yield "parts-never-end", pldm(get(128, part(b"", MIDDLE)), switches=ENDLESS)
    yield "count-lies", pldm(get(128, part(two, count=100)), get(128, part(two, count=65535)))
    yield "no-room", pldm(get(0))
    yield "no-memory", pldm(get(128), fail_allocation=1)
    for code in (0x01, 0x80, 0x85, 0x86):
        yield f"code-{code:02x}", pldm(get(128, with_code(code, 2)), how=OWN_TRANSFER)
    yield "error-code", pldm(get(128, with_code(0x82, 2)))
    yield "transport-failure", pldm(get(128, bytes([1, 56])))
    yield "decoded-numeric", pldm(decoded(part(numeric_pdr(3, 4))))
    yield "decoded-numeric-short", pldm(decoded(part(numeric_pdr(3, 4)[:80])))
    yield "decoded-state", pldm(decoded(part(two)))
    yield "decoded-state-long", pldm(decoded(part(two + bytes(60), START), part(bytes(60), END)))
    yield "decoded-other-type", pldm(decoded(part(numeric_pdr(pdr_type=9))))
    yield "decoded-nothing", pldm(decoded(part(bytes(129))))
    yield "decoded-no-memory", pldm(decoded(), fail_allocation=2)
    yield "traversal", pldm(call(TRAVERSE), part(two, next_record=2),
                            part(numeric_pdr(), next_record=3), part(two))
    yield "traversal-asks-again", pldm(call(TRAVERSE), part(two, next_record=2),
                                       part(bytes(129)), part(bytes(129)), part(two))
    yield "traversal-always-answered", pldm(call(TRAVERSE), part(two, next_record=2),
                                            switches=ENDLESS)
    yield "traversal-no-memory", pldm(call(TRAVERSE), fail_allocation=1)
    for data_size in range(8):
        yield f"raw-numeric-{data_size}", pldm(raw(numeric_pdr(data_size, 7 - data_size), 0xFFFE))
    yield "raw-state", pldm(raw(two))
    yield "raw-state-count-lies", pldm(raw(state_pdr(255, [(1, [3])])))
    yield "raw-state-size-lies", pldm(raw(state_pdr(2, [(1, [0xFF] * 45)])))
    yield "raw-effecter", pldm(raw(numeric_pdr(pdr_type=9)))


# ---- PCIe VDM ------------------------------------------------------------------------------------

(EXCHANGE, RECEIVE, SEND, BINDING_READ, BRING_UP, PCIE_DISCOVER, PCIE_PLDM,
 PCIE_ENDPOINT) = range(8)
LENGTH, ADDRESSING, OTHER_RESULT = 1, 2, 4


def record(body, how=0, fields=b""):
    return bytes([how]) + body + fields


def room(capacity):
    return struct.pack("<H", capacity + 4)


def pcie(*calls, **env):
    return environment(**env) + b"".join(calls)


def pcall(operation, *arguments, tag=0):
    return bytes([tag, operation, *arguments])


def pcie_seeds():
    good = control_answer([0x1D, 0, 0])
    six = struct.pack("<H", 6)
    routes = table(0xFF, 2, route(9, [1, 8]), route(10, [2, 8]))
    yield "exchange", pcie(pcall(EXCHANGE), room(64), six, record(good))
    yield "exchange-cut", pcie(pcall(EXCHANGE), room(3), six, record(good))
    yield "exchange-no-room", pcie(pcall(EXCHANGE), room(0), six, record(good))
    yield "exchange-negative-room", pcie(pcall(EXCHANGE), room(-1), six, record(good))
    yield "exchange-fails", pcie(pcall(EXCHANGE), room(64), six, record(bytes([1, 0])))
    yield "exchange-large-request", pcie(pcall(EXCHANGE), room(64), struct.pack("<H", 1036))
    yield "exchange-pinned-tag", pcie(pcall(EXCHANGE, tag=0x80), room(64), six, record(good))
    for length in (0, 1, 2, 1036, 1037, 0x7FFFFFFF, 0xFFFFFFFF):
        claimed = struct.pack("<I", length)
        yield f"claims-{length}", pcie(pcall(EXCHANGE), room(1199), six,
                                       record(good, LENGTH, claimed),
                                       pcall(BINDING_READ, 9), record(good, LENGTH, claimed),
                                       pcall(RECEIVE, 0), room(1199), record(good, LENGTH, claimed),
                                       pcall(RECEIVE, 1), room(1199), record(good, LENGTH, claimed))
    yield "addressing", pcie(pcall(EXCHANGE), room(64), six,
                             record(good, ADDRESSING, struct.pack("<I", 0x1FF) + bytes(range(5))))
    yield "other-result", pcie(pcall(EXCHANGE), room(64), six, record(good, OTHER_RESULT, b"\2"))
    yield "receive", pcie(pcall(RECEIVE, 0), room(64), record(good))
    yield "receive-small-room", pcie(pcall(RECEIVE, 0), room(2), record(good))
    yield "receive-with-type", pcie(pcall(RECEIVE, 1), room(64), record(good))
    yield "send", pcie(pcall(SEND), six)
    yield "send-large", pcie(pcall(SEND), struct.pack("<H", 1050))
    yield "bring-up", pcie(pcall(BRING_UP, 1), record(control_answer([])) * 2, record(good) * 2)
    yield "bring-up-fails", pcie(pcall(BRING_UP, 3), record(control_answer([])))
    yield "discover-ready", pcie(pcall(PCIE_DISCOVER, 1, 1, 0, 1), record(routes), mpio_state=20)
    yield "discover-not-ready", pcie(pcall(PCIE_DISCOVER, 1, 1, 0, 0), switches=TURIN)
    yield "discover-marker", pcie(pcall(PCIE_DISCOVER, 1, 1, 0, 1), record(good), record(routes),
                                  switches=MPIO_MARKER)
    yield "discover-unknown", pcie(pcall(PCIE_DISCOVER, 9, 9, 0, 1), record(routes),
                                   record(good), mpio_state=20)
    yield "pldm", pcie(pcall(PCIE_PLDM), record(pldm_answer([1])),
                       record(pldm_answer([0x3D] + [0] * 7)))
    yield "endpoint", pcie(pcall(PCIE_ENDPOINT), record(control_answer([])),
                           record(bytes([0, 4, 0x80, 0x01, 0, 0x33])))


# ---- fuzz-fru ---------------------------------------------------------------------------------

METADATA, TABLE, ANY_TABLE, FIXED_TABLE, FIELDS, PARSE = range(6)
FRU_TABLE = bytes.fromhex("0100010301" "0203534231" "0300" "050178")


def fru_metadata(length):
    return pldm_answer(struct.pack("<BBIIHHI", 1, 0, 0, length, 1, 1, 0xEFBEADDE))


def fru_part(flag, data, next_handle=0):
    return pldm_answer(struct.pack("<IB", next_handle, flag) + bytes(data))


def fru_seeds():
    whole = fru_metadata(len(FRU_TABLE)) + fru_part(5, FRU_TABLE)
    parts = fru_part(0, range(54), 54) + fru_part(4, range(54))
    size = struct.pack("<H", 63)
    yield "metadata", pldm(call(METADATA), fru_metadata(20))
    yield "metadata-code-handed-through", pldm(call(METADATA), with_code(0x85, 2), how=OWN_TRANSFER)
    yield "table", pldm(call(TABLE) + size, fru_metadata(64) + parts)
    yield "table-other-length", pldm(call(TABLE) + size, fru_metadata(65))
    yield "table-shorter-than-told", pldm(call(TABLE) + size, fru_metadata(64), fru_part(5, b"ab"))
    for length in (0, 1, 54, 55, 0x100000, 0x100001, 0xFFFFFFFF):
        yield f"claims-{length}", pldm(call(ANY_TABLE), fru_metadata(length), parts, parts)
    for code in (0x80, 0x81, 0x85, 0x82):
        yield f"code-{code:02x}", pldm(call(TABLE) + size, fru_metadata(64), with_code(code, 2),
                                       call(FIXED_TABLE) + size, with_code(code, 2),
                                       how=OWN_TRANSFER)
    yield "fixed", pldm(call(FIXED_TABLE) + size, parts)
    yield "fixed-never-ends", pldm(call(FIXED_TABLE) + size, fru_part(1, range(54)) * 3)
    yield "fields", pldm(call(FIELDS, 2), whole)
    yield "fields-no-memory", pldm(call(FIELDS, 2), whole, fail_allocation=3)
    yield "fields-too-many", pldm(call(FIELDS, 2), fru_metadata(8),
                                  fru_part(5, [1, 0, 1, 17, 1, 2, 1, 0x61]))
    yield "parse", pldm(call(PARSE), struct.pack("<H", len(FRU_TABLE)), FRU_TABLE)
    yield "parse-runs-over", pldm(call(PARSE), struct.pack("<H", len(FRU_TABLE) - 1), FRU_TABLE)
    yield "parse-no-memory", pldm(call(PARSE), struct.pack("<H", len(FRU_TABLE)), FRU_TABLE,
                                  fail_allocation=2)


# ---- Firmware update packages -------------------------------------------------------------------

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


# ---- fuzz-ncsi ----------------------------------------------------------------------------------

(NCSI_DISCOVER, NCSI_DISCOVER_OEM, NCSI_LINK, NCSI_PACKAGE, NCSI_BROADCOM, NCSI_MELLANOX,
 NCSI_EXCHANGE, NCSI_CONFIGURE, NCSI_LIFE) = range(9)
FROM_CHANNEL = 0x20
UNSUPPORTED = (0x0003, 0x7FFF)


def ncsi_packet(command, channel, payload, codes=(0, 0)):
    return (struct.pack(">BBBBBBHQ", FROM_CHANNEL, 1, 0, 1, command, channel, 4 + len(payload), 0) +
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


# ---- fuzz-nvme ----------------------------------------------------------------------------------

(MI_GET, MI_SET, MI_SUBSYSTEM, MI_CONTROLLERS, MI_STRUCTURE, MI_RESET, MI_VPD_READ, MI_VPD_WRITE,
 MI_EXCHANGE, MI_LIFE) = range(10)
WITH_CHECK, LIES = 0x40, 0x20
MI_NAMES = ("get-frequency", "get-unit", "get-health", "set-frequency", "set-unit", "set-health",
            "subsystem", "controllers", "structure", "list", "commands", "reset", "vpd-read",
            "vpd-write")


def mi_body(management=bytes(3), data=b"", status=0, how=0):
    return bytes([0x08 | how, 0, 0, status]) + bytes(management) + bytes(data)


def mi_answer(management=bytes(3), data=b"", status=0, how=WITH_CHECK, cut=None):
    body = mi_body(management, data, status, how)[:cut]
    if len(body) <= 255:
        return bytes([0, len(body)]) + body
    body += bytes(-len(body) % 5)
    return bytes([LARGE, len(body) // 5]) + body


def mi_lie(result, status=0):
    return bytes([0, 7, 0x08 | LIES]) + struct.pack("<hB3x", result, status)


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
DRIVE_LIES, DRIVE_CHECKS = 0x20, 0x40
OWN_REQUEST = 1


def drive_body(status=0, dword3=0, data=b"", how=DRIVE_CHECKS, dword0=1):
    completion = struct.pack("<III", dword0, 0, dword3)
    return bytes([how, 0, 0, status, 5, 11, 0]) + completion + bytes(data)


def drive_answer(status=0, dword3=0, data=b"", how=DRIVE_CHECKS, cut=None):
    body = drive_body(status, dword3, data, how)[:cut]
    return bytes([0, len(body)]) + body


def drive_claims(result):
    return bytes([0, 19, DRIVE_LIES]) + struct.pack("<h", result) + bytes(16)


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


SEEDS = {"fuzz-receive": receive_seeds, "fuzz-control": control_seeds, "fuzz-pldm": pldm_seeds,
         "fuzz-pcie": pcie_seeds, "fuzz-pdr": pdr_seeds, "fuzz-fru": fru_seeds,
         "fuzz-package": package_seeds, "fuzz-fw-update": fw_update_seeds,
         "fuzz-ncsi": ncsi_seeds, "fuzz-nvme": nvme_seeds,
         "fuzz-nvme-admin": nvme_admin_seeds}


def main():
    check = sys.argv[1:] == ["--check"]
    if sys.argv[1:] and not check:
        sys.exit(__doc__)
    differ = []
    for target, seeds in SEEDS.items():
        for name, content in seeds():
            file = CORPUS / target / name
            if check:
                if not file.is_file() or file.read_bytes() != content:
                    differ.append(file)
                continue
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_bytes(content)
    for file in differ:
        print(f"make_seeds.py: {file} is not what this script writes")
    return 1 if differ else 0


if __name__ == "__main__":
    sys.exit(main())
