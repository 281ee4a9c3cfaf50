// SPDX-License-Identifier: Apache-2.0
// Printing of decoded PDRs, member by member.
#include <sideband/debug_log.h>
#include <sideband/platform.h>
#include <sideband/pldm_monitor.h>

#include <algorithm>
#include <span>

#include "common/output.h"
#include "common/wire.h"

using namespace sideband;

namespace {

/// A member of a record and its label. Consoles and scripts know the labels as they stand here,
/// odd ones included.
struct Line {
    char label[25];
    uint8_t width;  ///< bytes
};

constexpr Line kNumericLines[] = {
    {"record_handle         4B", 4}, {"pdr_header_version    1B", 1},
    {"pdr_type              1B", 1}, {"record_change_number  2B", 2},
    {"data_length           2B", 2}, {"terminus_handle       2B", 2},
    {"sensor_id             2B", 2}, {"entity_type           2B", 2},
    {"entity_instance_number2B", 2}, {"container_id          2B", 2},
    {"sensor_init           1B", 1}, {"sensor_desc_pdr       1B", 1},
    {"base_unit             1B", 1}, {"unit_modifer          1B", 1},
    {"rate_unit             1B", 1}, {"base_oem_unit_handle  1B", 1},
    {"aux_unit              1B", 1}, {"aux_unit_modifier     1B", 1},
    {"aux_rate_unit         1B", 1}, {"rel                   1B", 1},
    {"aux_oem_unit_handle   1B", 1}, {"is_linear             1B", 1},
    {"sensor_date_size      1B", 1}, {"resolution            4B", 4},
    {"offset                4B", 4}, {"accuracy              2B", 2},
    {"plus_tolerance        1B", 1}, {"minus_tolerance       1B", 1},
    {"hysteresis       PLDM xB", 4}, {"supported_thresholds  1B", 1},
    {"threshold_and_hystere 1B", 1}, {"state_transition      4B", 4},
    {"update_interval       4B", 4}, {"max_readable          xB", 4},
    {"min_readable          xB", 4}, {"range_field_format    1B", 1},
    {"range_field_support;  1B", 1}, {"nominal_value         1B", 4},
    {"normal_max            xB", 4}, {"normal_min            xB", 4},
    {"warning_high          x8", 4}, {"warning_low           xB", 4},
    {"critical_high         xB", 4}, {"critical_low          xB", 4},
    {"fatal_high            xB", 4}, {"fatal_low             xB", 4},
};
/// The one that is printed in upper case.
constexpr const Line& kResolution = kNumericLines[23];
/// The lines that both types of record begin with: up to sensor_init.
constexpr std::span<const Line> kCommonLines = std::span(kNumericLines).first(11);

constexpr Line kStateLines[] = {
    {"sensor_auxiliar_name  1B", 1},
    {"composite_sensor_count1B", 1},
};

template <typename Record>
std::span<const uint8_t> bytes_of(const Record& record) {
    return {reinterpret_cast<const uint8_t*>(&record), sizeof record};
}

uint32_t read_member(WireReader& record, uint8_t width) {
    switch (width) {
        case 1:
            return record.u8();
        case 2:
            return record.le16();
        default:
            return record.le32();
    }
}

void print_members(WireReader& record, std::span<const Line> lines) {
    for (const Line& line : lines) {
        debug_log(&line == &kResolution ? "%s = 0x%X\n" : "%s = 0x%x\n", line.label,
                  read_member(record, line.width));
    }
}

/// Prints the composite sensor at which the reader stands, as far as the record goes.
/// @return false if the record ends before it does
bool print_composite_sensor(WireReader& record, int index) {
    const uint16_t id = record.le16();
    const uint8_t size = record.u8();
    if (!record.ok()) {
        return false;
    }
    char name[PLDM_STATE_SET_NAME_SIZE];
    lookup_state_set_string(id, name);
    debug_log("setID =0x%x, setSize =0x%x\n", id, size);
    debug_log("p_pdr->state_sets[%d].setID      = 0x%x(%s)\n", index, id, name);
    debug_log("p_pdr->state_sets[%d].state_size = 0x%x\n", index, size);
    debug_log("p_pdr->state_sets[%d].states =", index);
    const size_t there = std::min<size_t>(size, record.remaining());
    for (size_t i = 0; i < there; ++i) {
        debug_log("0x%x ", record.u8());
    }
    debug_log("\n");
    return there == size;
}

}  // namespace

void dump_numeric_sensor_pdr(const pldm_numeric_sensor_pdr* record) {
    constexpr size_t kBytesPerLine = 15;
    if (record == nullptr) {
        return;
    }
    size_t count = 0;
    for (const uint8_t byte : bytes_of(*record)) {
        print_on_console(" %02x", byte);
        if (++count % kBytesPerLine == 0) {
            print_on_console("\n");
        }
    }
    print_on_console("\n");
}

void pldm_print_numeric_PDR(const pldm_numeric_sensor_pdr* record) {
    if (record != nullptr) {
        WireReader reader(bytes_of(*record));
        print_members(reader, kNumericLines);
    }
}

void pldm_print_state_PDR(const pldm_state_sensor_pdr* record) {
    if (record == nullptr) {
        return;
    }
    WireReader reader(bytes_of(*record));
    print_members(reader, kCommonLines);
    print_members(reader, kStateLines);
    for (int i = 0; i < record->composite_sensor_count; ++i) {
        if (!print_composite_sensor(reader, i)) {
            debug_log("%s, composite sensor %d runs past the record\n", "pldm_print_state_PDR", i);
            return;
        }
    }
}
