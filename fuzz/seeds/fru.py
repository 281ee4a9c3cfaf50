# SPDX-License-Identifier: Apache-2.0
"""FRU record tables: the seeds of fuzz-fru."""
import struct

from seeds.control import call, with_code
from seeds.pldm import OWN_TRANSFER, pldm, pldm_answer

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
