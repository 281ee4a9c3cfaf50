// SPDX-License-Identifier: Apache-2.0
// Decoding of PDRs and conversion of readings (DSP0248, PDR formats).
#include <sideband/debug_log.h>
#include <sideband/platform.h>
#include <sideband/pldm_monitor.h>

#include <array>
#include <bit>
#include <cmath>
#include <cstring>

#include "common/output.h"
#include "common/wire.h"
#include "pldm/pdr.h"

using namespace sideband;

namespace {

constexpr size_t kSlot = sizeof(pldm_pdr_slot);
constexpr size_t kRangeSlots = 9;

/// Where the parts of a decoded numeric sensor record begin.
constexpr size_t kType = offsetof(pldm_pdr_header, type);
constexpr size_t kDataSize = offsetof(pldm_numeric_sensor_pdr, sensor_data_size);
constexpr size_t kHysteresis = offsetof(pldm_numeric_sensor_pdr, hysteresis);
constexpr size_t kThresholds = offsetof(pldm_numeric_sensor_pdr, supported_thresholds);
constexpr size_t kReadable = offsetof(pldm_numeric_sensor_pdr, max_readable);
constexpr size_t kRangeFormat = offsetof(pldm_numeric_sensor_pdr, range_field_format);
constexpr size_t kRange = offsetof(pldm_numeric_sensor_pdr, nominal_value);

constexpr size_t kStateEntries = offsetof(pldm_state_sensor_pdr, entries);
/// A state set ID and the size of its states.
constexpr size_t kStateEntryHeader = 3;

size_t width_of(uint8_t code) {
    constexpr uint8_t kWidths[] = {1, 1, 2, 2, 4, 4, 4};
    return code < std::size(kWidths) ? kWidths[code] : 0;
}

/// The number in a real32 member of a decoded record, which has its bytes as they came over the
/// wire: little-endian.
float real32_of(float member) {
    if constexpr (std::endian::native == std::endian::little) {
        return member;
    } else {
        return std::bit_cast<float>(
            le32(std::bit_cast<std::array<uint8_t, sizeof member>>(member)));
    }
}

/// Copies values of this width into slots, of which the rest is left alone.
void copy_slots(WireReader& raw, std::span<uint8_t> slots, size_t width) {
    for (size_t at = 0; at < slots.size(); at += kSlot) {
        raw.copy(slots.subspan(at, width));
    }
}

/// The reading in single precision.
float widen(uint32_t raw_reading, uint8_t data_size) {
    switch (data_size) {
        case PLDM_DATA_SIZE_UINT8:
        case PLDM_DATA_SIZE_SINT8:
            // Deliberately not sign-extended: services rely on a byte from 0 to 255.
            return static_cast<float>(static_cast<uint8_t>(raw_reading));
        case PLDM_DATA_SIZE_UINT16:
            return static_cast<float>(static_cast<uint16_t>(raw_reading));
        case PLDM_DATA_SIZE_SINT16:
            return static_cast<float>(static_cast<int16_t>(raw_reading));
        case PLDM_DATA_SIZE_UINT32:
            return static_cast<float>(raw_reading);
        default:
            return static_cast<float>(static_cast<int32_t>(raw_reading));
    }
}

uint32_t saturate(float value) {
    constexpr float kLimit = 4294967296.0F;
    if (!(value > 0)) {  // NaN as well
        return 0;
    }
    return value >= kLimit ? UINT32_MAX : static_cast<uint32_t>(value);
}

}  // namespace

namespace sideband {

size_t pdr_size_demanded(std::span<const uint8_t> raw) {
    if (raw[kType] == PLDM_PDR_TYPE_STATE_SENSOR) {
        return kStateEntries;
    }
    if (raw[kType] != PLDM_PDR_TYPE_NUMERIC_SENSOR) {
        return 0;
    }
    // The slots of the decoded record are as wide in the raw one as the two formats say.
    const size_t width = width_of(raw[kDataSize]);
    const size_t range_format = kRangeFormat - 3 * (kSlot - width);
    const size_t range_width = width_of(raw[range_format]);
    return range_format + (kRange - kRangeFormat) + kRangeSlots * range_width;
}

}  // namespace sideband

int32_t pldm_get_data_size(uint8_t code) {
    return static_cast<int32_t>(width_of(code));
}

int32_t pldm_parse_pdr(const uint8_t* raw, pldm_pdr* out) {
    if (raw == nullptr || out == nullptr) {
        return -1;
    }
    switch (raw[kType]) {
        case PLDM_PDR_TYPE_NUMERIC_SENSOR:
            return pldm_parse_numeric_sensor_pdr(raw, &out->numeric);
        case PLDM_PDR_TYPE_STATE_SENSOR:
            return pldm_parse_state_sensor_pdr(raw, &out->state);
        default:
            print_on_console("[%s] unknow the PDR type\n", "pldm_parse_pdr");
            return -1;
    }
}

int32_t pldm_parse_numeric_sensor_pdr(const uint8_t* raw, pldm_numeric_sensor_pdr* out) {
    if (raw == nullptr || out == nullptr) {
        return -1;
    }
    // No record is longer than the decoded one; of a shorter one no more is read than it has.
    WireReader reader({raw, sizeof *out});
    const std::span<uint8_t> record(reinterpret_cast<uint8_t*>(out), sizeof *out);
    reader.copy(record.first(kHysteresis));
    const size_t width = width_of(record[kDataSize]);
    if (width == 0) {
        return -1;
    }
    copy_slots(reader, record.subspan(kHysteresis, kSlot), width);
    reader.copy(record.subspan(kThresholds, kReadable - kThresholds));
    copy_slots(reader, record.subspan(kReadable, 2 * kSlot), width);
    reader.copy(record.subspan(kRangeFormat, kRange - kRangeFormat));
    const size_t range_width = width_of(record[kRangeFormat]);
    if (range_width == 0) {
        return -1;
    }
    copy_slots(reader, record.subspan(kRange, kRangeSlots * kSlot), range_width);
    return 0;
}

int32_t pldm_parse_state_sensor_pdr(const uint8_t* raw, pldm_state_sensor_pdr* out) {
    if (raw != nullptr && out != nullptr) {
        std::memcpy(out, raw, sizeof *out);
    }
    return 0;
}

int32_t pldm_find_ctrl_state_set_idx(uint16_t state_set_id, const pldm_state_sensor_pdr* state_pdr,
                                     uint32_t* index) {
    constexpr const char* kFunction = "pldm_find_ctrl_state_set_idx";
    if (state_pdr == nullptr || index == nullptr) {
        debug_log("%s, invalid parameter\n", kFunction);
        return PLDM_PDR_NOT_FOUND;
    }
    const std::span<const uint8_t> entries(state_pdr->entries);
    size_t position = 0;
    for (uint32_t i = 0; i < state_pdr->composite_sensor_count; ++i) {
        if (position + kStateEntryHeader > entries.size()) {
            debug_log("%s, offset %d out of bound\n", kFunction, static_cast<int>(position));
            return PLDM_PDR_NOT_FOUND;
        }
        WireReader entry(entries.subspan(position, kStateEntryHeader));
        if (entry.le16() == state_set_id) {
            *index = i;
            return 0;
        }
        position += kStateEntryHeader + entry.u8();
    }
    return PLDM_PDR_NOT_FOUND;
}

uint8_t pldm_numeric_reading_conversion(uint32_t raw_reading,
                                        const pldm_numeric_sensor_pdr* numeric_pdr) {
    if (numeric_pdr == nullptr || numeric_pdr->sensor_data_size > PLDM_DATA_SIZE_SINT32) {
        return PLDM_PDR_NOT_USABLE;
    }
    const float reading = widen(raw_reading, numeric_pdr->sensor_data_size);
    const float value =
        std::fma(reading, real32_of(numeric_pdr->resolution), real32_of(numeric_pdr->offset));
    return static_cast<uint8_t>(saturate(value));
}

uint8_t pldm_reading_conversion(uint32_t raw_reading, const pldm_pdr* pdr, uint8_t convert) {
    if (pdr == nullptr) {
        return PLDM_PDR_NOT_USABLE;
    }
    if (convert != 0) {
        switch (pdr->header.type) {
            case PLDM_PDR_TYPE_NUMERIC_SENSOR:
                return pldm_numeric_reading_conversion(raw_reading, &pdr->numeric);
            case PLDM_PDR_TYPE_NUMERIC_EFFECTER:
                return PLDM_PDR_NOT_USABLE;
            default:
                break;
        }
    }
    return static_cast<uint8_t>(raw_reading);
}
