// SPDX-License-Identifier: Apache-2.0
// FRU records in memory: parsing the first one of a table, and its release (DSP0257, table 2).
#include <sideband/debug_log.h>
#include <sideband/platform.h>
#include <sideband/pldm_fru.h>

#include <cstdlib>
#include <cstring>

#include "common/memory.h"
#include "common/output.h"
#include "common/wire.h"
#include "pldm/fru_record.h"

using namespace sideband;

namespace {

/// Reads a field and copies its value.
/// @return SIDEBAND_CAUSE_...: why not
uint8_t parse_field(WireReader& table, pldm_fru_field& field) {
    const uint8_t type = table.u8();
    const uint8_t length = table.u8();
    if (!table.ok()) {
        return SIDEBAND_CAUSE_MALFORMED;
    }
    field.type = type;
    field.length = length;
    const std::span<const uint8_t> value = table.bytes(length);
    if (!table.ok()) {
        return SIDEBAND_CAUSE_MALFORMED;
    }
    auto copy = copy_bytes(value, 1);
    if (copy == nullptr) {
        print_formatted("Fail- memory alloc fial\n");
        return SIDEBAND_CAUSE_MEMORY;
    }
    field.value = reinterpret_cast<char*>(copy.release());
    return SIDEBAND_CAUSE_NONE;
}

}  // namespace

namespace sideband {

uint8_t parse_fru_record(std::span<const uint8_t> table, pldm_fru_record& record) {
    record = {};
    WireReader reader(table);
    pldm_fru_record header{};
    header.set_identifier = reader.le16();
    header.type = reader.u8();
    header.number_of_fields = reader.u8();
    header.encoding_type = reader.u8();
    if (!reader.ok()) {
        debug_log("[%s][%d] Fail- FRU length fail\n", "pldm_parse_record_table", 442);
        return SIDEBAND_CAUSE_MALFORMED;
    }
    record = header;
    if (record.number_of_fields == 0) {
        return SIDEBAND_CAUSE_MALFORMED;
    }
    record.fields =
        static_cast<pldm_fru_field*>(std::calloc(record.number_of_fields, sizeof(pldm_fru_field)));
    if (record.fields == nullptr) {
        print_formatted("Fail to alloc memory for FRU fields\n");
        return SIDEBAND_CAUSE_MEMORY;
    }
    uint8_t cause = SIDEBAND_CAUSE_NONE;
    for (unsigned i = 0; i < record.number_of_fields && cause == SIDEBAND_CAUSE_NONE; ++i) {
        cause = parse_field(reader, record.fields[i]);
    }
    return cause;  // what was allocated stays in the record
}

}  // namespace sideband

int32_t isBufOverFlow(uint32_t position, uint32_t length) {
    return position >= length ? 1 : 0;
}

int32_t pldm_parse_record_table(const uint8_t* table, pldm_fru_record* record, uint32_t length) {
    if (table == nullptr || record == nullptr) {
        return PLDM_ERROR_ARGUMENT;
    }
    const uint8_t cause = parse_fru_record({table, length}, *record);
    return cause == SIDEBAND_CAUSE_NONE ? 0 : PLDM_ERROR_ARGUMENT;
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
    print_on_console("majorver     = 0x%x\n", metadata.majorver);
    print_on_console("minorver     = 0x%x\n", metadata.minorver);
    print_on_console("maxsize      = 0x%x\n", metadata.maxsize);
    print_on_console("table_len    = 0x%x\n", metadata.table_len);
    print_on_console("setIdent_num = 0x%x\n", metadata.setIdent_num);
    print_on_console("record_num   = 0x%x\n", metadata.record_num);
    print_on_console("checksum     = 0x%x\n", metadata.checksum);
}
