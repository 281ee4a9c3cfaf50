// SPDX-License-Identifier: Apache-2.0
// The FRU record table of a terminus (DSP0257): all of its records, as far as they can be read.
#ifndef SIDEBAND_TOOLS_PLDM_FRU_DATA_H
#define SIDEBAND_TOOLS_PLDM_FRU_DATA_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/shell/session.h"

namespace tool {

struct FruField {
    uint8_t type = 0;
    std::vector<uint8_t> value;
};

struct FruRecord {
    uint16_t set_identifier = 0;
    uint8_t type = 0;
    uint8_t encoding = 0;
    std::vector<FruField> fields;
};

struct FruData {
    uint8_t major_version = 0;
    uint8_t minor_version = 0;
    uint32_t length = 0;
    std::vector<FruRecord> records;
    std::optional<Failure> failure;  ///< what ended the records before the table's end
};

/// Reads the table. Throws Failure if it cannot be had.
/// @param fixed_parts  the device sends it in answers of one size
FruData read_fru(Session& session, bool fixed_parts);

/// A field's value for people: text as its record's encoding says, dates and numbers as such, and
/// bytes that are none of these in hex.
std::string fru_value_text(const FruRecord& record, const FruField& field);

/// A timestamp104 (DSP0240, data types) as "2024-03-05 14:07:09 +01:00"; empty for one that is no
/// date.
std::string timestamp_text(std::span<const uint8_t> bytes);

}  // namespace tool

#endif
