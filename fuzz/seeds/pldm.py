# SPDX-License-Identifier: Apache-2.0
"""PLDM calls, and the seeds of fuzz-pldm."""
from seeds.control import GOOD, answer, call, with_code
from seeds.smbus import ECHO, ENDLESS, EOM, FIX_TAG, SOM, environment, packet

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
