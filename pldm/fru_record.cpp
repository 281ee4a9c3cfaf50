// SPDX-License-Identifier: Apache-2.0
// FRU records in memory: parsing the first one of a table, and its release (DSP0257, table 2).
#include <sideband/debug_log.h>
#include <sideband/platform.h>
#include <sideband/pldm_fru.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/memory.h"
#include "common/wire.h"

using namespace sideband;

namespace {

constexpr uint32_t kRecordHeaderSize = 5;  // set identifier, type, number of fields, encoding
constexpr uint32_t kFieldHeaderSize = 2;   // type, length

/// Copies the field at a position.
/// @param position  advanced behind the field
/// @return false if the table ends before the field, or memory does
bool parse_field(const uint8_t* table, uint32_t length, uint32_t& position, pldm_fru_field& field) {
    if (isBufOverFlow(position, length) != 0 || isBufOverFlow(position + 1, length) != 0) {
        return false;
    }
    field.type = table[position];
    field.length = table[position + 1];
    const uint8_t* value = table + position + kFieldHeaderSize;
    position += kFieldHeaderSize + field.length;
    if (isBufOverFlow(position - 1, length) != 0) {
        return false;
    }
    auto copy = allocate_bytes(size_t{field.length} + 1);  // and a NUL
    if (copy == nullptr) {
        std::printf("Fail- memory alloc fial\n");
        return false;
    }
    std::memcpy(copy.get(), value, field.length);
    field.value = reinterpret_cast<char*>(copy.release());
    return true;
}

}  // namespace

int32_t isBufOverFlow(uint32_t position, uint32_t length) {
    return position >= length ? 1 : 0;
}

int32_t pldm_parse_record_table(const uint8_t* table, pldm_fru_record* record, uint32_t length) {
    if (table == nullptr || record == nullptr) {
        return PLDM_ERROR_ARGUMENT;
    }
    *record = {};
    if (length < kRecordHeaderSize) {
        debug_log("[%s][%d] Fail- FRU length fail\n", "pldm_parse_record_table", 442);
        return PLDM_ERROR_ARGUMENT;
    }
    WireReader reader({table, kRecordHeaderSize});
    record->set_identifier = reader.le16();
    record->type = reader.u8();
    record->number_of_fields = reader.u8();
    record->encoding_type = reader.u8();
    if (record->number_of_fields == 0) {
        return PLDM_ERROR_ARGUMENT;
    }
    record->fields =
        static_cast<pldm_fru_field*>(std::calloc(record->number_of_fields, sizeof(pldm_fru_field)));
    if (record->fields == nullptr) {
        std::printf("Fail to alloc memory for FRU fields\n");
        return PLDM_ERROR_ARGUMENT;
    }
    uint32_t position = kRecordHeaderSize;
    for (unsigned i = 0; i < record->number_of_fields; ++i) {
        if (!parse_field(table, length, position, record->fields[i])) {
            return PLDM_ERROR_ARGUMENT;  // what was allocated stays in the record
        }
    }
    return 0;
}

void freeFRUdata(pldm_fru_record* record) {
    if (record == nullptr || record->fields == nullptr) {
        return;
    }
    for (unsigned i = 0; i < record->number_of_fields; ++i) {
        std::free(record->fields[i].value);
        record->fields[i].value = nullptr;
    }
    std::free(record->fields);
    record->fields = nullptr;
}

void print_pldm_metadata(pldm_fru_metadata metadata) {
    console_log("majorver     = 0x%x\n", metadata.majorver);
    console_log("minorver     = 0x%x\n", metadata.minorver);
    console_log("maxsize      = 0x%x\n", metadata.maxsize);
    console_log("table_len    = 0x%x\n", metadata.table_len);
    console_log("setIdent_num = 0x%x\n", metadata.setIdent_num);
    console_log("record_num   = 0x%x\n", metadata.record_num);
    console_log("checksum     = 0x%x\n", metadata.checksum);
}
