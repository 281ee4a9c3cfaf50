#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Asks one endpoint the same question many times: exchanges.py EID TYPE COUNT REQUEST ANSWER

REQUEST and ANSWER are hex, without the type byte; each answer must be ANSWER. Prints one JSON line: how many
were right, the seconds that it took, and memory and descriptors of this process behind the first tenth and
at the end.
"""
import json
import os
import sys
import time

from machine import footprint
from mctp_socket import MctpSocket


def main():
    eid, kind, count = (int(word) for word in sys.argv[1:4])
    request, answer = (bytes.fromhex(word) for word in sys.argv[4:6])
    right, started, early = 0, time.monotonic(), None
    with MctpSocket(kind) as socket:
        for number in range(count):
            right += socket.ask(eid, request) == answer
            if number == count // 10:
                early = footprint(os.getpid())
        late = footprint(os.getpid())
    print(json.dumps({"right": right, "seconds": round(time.monotonic() - started, 3), "early": early,
                      "late": late}))
    return 0 if right == count else 1


if __name__ == "__main__":
    sys.exit(main())
