# SPDX-License-Identifier: Apache-2.0
"""Answers of a scripted endpoint, and the seeds of fuzz-control."""
from seeds.smbus import ENDLESS, environment

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
