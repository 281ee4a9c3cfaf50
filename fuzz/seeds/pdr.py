# SPDX-License-Identifier: Apache-2.0
"""Platform descriptor records: the seeds of fuzz-pdr."""
import struct

from seeds.control import call, with_code
from seeds.pldm import OWN_TRANSFER, pldm, pldm_answer
from seeds.smbus import ENDLESS

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
    yield "never-the-answer", pldm(call(REPOSITORY_INFO), bytes([0, 0]), switches=ENDLESS)
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
