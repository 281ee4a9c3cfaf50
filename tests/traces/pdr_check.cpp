// SPDX-License-Identifier: Apache-2.0
// Recorded PDRs through the library: fetched, decoded, compared with the reading that came with
// them.
#include "traces/pdr_check.h"

#include <sideband/pldm_monitor.h>

#include <algorithm>

#include "support/numbers.h"
#include "traces/replay.h"

namespace test {

namespace {

using tool::Json;

constexpr size_t kRecordOffset = 15;
/// Seven parts of the size that the library asks for.
constexpr uint32_t kRoom = 7 * PLDM_PDR_PART_SIZE;

/// The request of the library for the recorded record's first part.
Bytes request_of(const Record& record) {
    const uint32_t handle = record.request_says.at("record_handle").get<uint32_t>();
    return hex("80 02 51") + le32(handle) + hex("00 00 00 00 01 80 00 00 00");
}

/// Fetches the record.
/// @return its bytes, which are those of the recorded answer
Bytes fetch(const Record& record) {
    ReplayTerminus terminus({{request_of(record), record.response}});
    const Bytes expected(record.response.begin() + kRecordOffset, record.response.end());
    Guarded room(kRoom, 0xEE);
    uint32_t handle = record.request_says.at("record_handle").get<uint32_t>();
    EXPECT_EQ(quietly([&] { return pldm_get_pdr(&terminus.ctx, &handle, room.data(), kRoom); }), 0);
    EXPECT_EQ(handle, record.response_says.at("next_record_handle").get<uint32_t>());
    EXPECT_EQ(record.response_says.at("response_count"), expected.size());
    EXPECT_EQ(room.head(expected.size()), expected);
    EXPECT_TRUE(room.untouched_from(expected.size()));
    EXPECT_TRUE(room.intact());
    EXPECT_TRUE(terminus.locks_in_order());
    return expected;
}

template <typename Number>
void expect_member(const Json& says, const char* name, Number member) {
    expect_number(says, name, wire_order(member));
}

void expect_header(const Json& says, const pldm_pdr_header& header) {
    expect_member(says, "record_handle", header.record_handle);
    expect_member(says, "header_version", header.header_version);
    expect_member(says, "type", header.type);
    expect_member(says, "record_change_number", header.record_change_number);
    expect_member(says, "data_length", header.data_length);
}

/// What numeric and state sensor records begin with.
template <typename Sensor>
void expect_sensor(const Json& says, const Sensor& sensor) {
    expect_header(says, sensor.header);
    expect_member(says, "terminus_handle", sensor.terminus_handle);
    expect_member(says, "sensor_id", sensor.sensor_id);
    expect_member(says, "entity_type", sensor.entity_type);
    expect_member(says, "entity_instance", sensor.entity_instance_number);
    expect_member(says, "container_id", sensor.container_id);
    expect_member(says, "sensor_init", sensor.sensor_init);
    expect_member(says, "aux_names", sensor.sensor_auxiliary_names_pdr);
}

void expect_units(const Json& says, const pldm_numeric_sensor_pdr& sensor) {
    expect_member(says, "base_unit", sensor.base_unit);
    EXPECT_EQ(says.at("unit_modifier"), +sensor.unit_modifier);
    expect_member(says, "rate_unit", sensor.rate_unit);
    expect_member(says, "base_oem_unit_handle", sensor.base_oem_unit_handle);
    expect_member(says, "aux_unit", sensor.aux_unit);
    EXPECT_EQ(says.at("aux_unit_modifier"), +sensor.aux_unit_modifier);
    expect_member(says, "aux_rate_unit", sensor.aux_rate_unit);
    expect_member(says, "rel", sensor.rel);
    expect_member(says, "aux_oem_unit_handle", sensor.aux_oem_unit_handle);
    expect_member(says, "is_linear", sensor.is_linear);
}

void expect_conversion(const Json& says, const pldm_numeric_sensor_pdr& sensor) {
    expect_member(says, "sensor_data_size", sensor.sensor_data_size);
    EXPECT_EQ(says.at("resolution").get<float>(), wire_order(sensor.resolution));
    EXPECT_EQ(says.at("offset").get<float>(), wire_order(sensor.offset));
    expect_member(says, "accuracy", sensor.accuracy);
    expect_member(says, "plus_tolerance", sensor.plus_tolerance);
    expect_member(says, "minus_tolerance", sensor.minus_tolerance);
    expect_member(says, "hysteresis", sensor.hysteresis);
    expect_member(says, "supported_thresholds", sensor.supported_thresholds);
    expect_member(says, "threshold_hysteresis_volatility",
                  sensor.threshold_and_hysteresis_volatility);
    EXPECT_EQ(says.at("state_transition_interval").get<float>(),
              wire_order(sensor.state_transition_interval));
    EXPECT_EQ(says.at("update_interval").get<float>(), wire_order(sensor.update_interval));
    expect_member(says, "max_readable", sensor.max_readable);
    expect_member(says, "min_readable", sensor.min_readable);
}

void expect_range(const Json& says, const pldm_numeric_sensor_pdr& sensor) {
    expect_member(says, "range_field_format", sensor.range_field_format);
    expect_member(says, "range_field_support", sensor.range_field_support);
    expect_member(says, "nominal", sensor.nominal_value);
    expect_member(says, "normal_max", sensor.normal_max);
    expect_member(says, "normal_min", sensor.normal_min);
    expect_member(says, "warning_high", sensor.warning_high);
    expect_member(says, "warning_low", sensor.warning_low);
    expect_member(says, "critical_high", sensor.critical_high);
    expect_member(says, "critical_low", sensor.critical_low);
    expect_member(says, "fatal_high", sensor.fatal_high);
    expect_member(says, "fatal_low", sensor.fatal_low);
}

void expect_composites(const Json& says, const pldm_state_sensor_pdr& sensor) {
    expect_member(says, "composite_count", sensor.composite_sensor_count);
    const Json& composites = says.at("sensors");
    ASSERT_EQ(composites.size(), sensor.composite_sensor_count);
    size_t at = 0;
    for (size_t i = 0; i < composites.size(); i++) {
        const uint16_t set = composites.at(i).at("state_set_id").get<uint16_t>();
        const Bytes states = hex(composites.at(i).at("possible_states_hex").get<std::string>());
        const Bytes entry = Bytes{static_cast<uint8_t>(set & 0xFF), static_cast<uint8_t>(set >> 8),
                                  static_cast<uint8_t>(states.size())} +
                            states;
        ASSERT_LE(at + entry.size(), sizeof sensor.entries);
        EXPECT_TRUE(std::equal(entry.begin(), entry.end(), sensor.entries + at)) << i;
        at += entry.size();
        uint32_t index = 0xEEEEEEEE;
        EXPECT_EQ(pldm_find_ctrl_state_set_idx(set, &sensor, &index), 0);
        EXPECT_EQ(index, i);
    }
}

}  // namespace

void check_repository_info(const Record& record) {
    ReplayTerminus terminus({{hex("80 02 50"), record.response}});
    uint32_t count = 0xEEEEEEEE;
    EXPECT_EQ(quietly([&] { return pldm_get_pdr_repository_info(&terminus.ctx, &count); }), 0);
    EXPECT_EQ(count, record.response_says.at("record_count").get<uint32_t>());
}

void check_pdr(const Record& record) {
    const Bytes bytes = fetch(record);
    const Json& says = record.response_says.at("record");
    expect_number(says, "record_bytes", static_cast<unsigned>(bytes.size()));

    ReplayTerminus terminus({{request_of(record), record.response}});
    pldm_pdr pdr{};
    const uint32_t handle = record.request_says.at("record_handle").get<uint32_t>();
    const int32_t result = quietly([&] { return pldm_get_full_pdr(&terminus.ctx, handle, &pdr); });
    switch (says.at("type").get<int>()) {
        case PLDM_PDR_TYPE_NUMERIC_SENSOR:
            EXPECT_EQ(result, 0);
            expect_sensor(says, pdr.numeric);
            expect_units(says, pdr.numeric);
            expect_conversion(says, pdr.numeric);
            expect_range(says, pdr.numeric);
            break;
        case PLDM_PDR_TYPE_STATE_SENSOR:
            EXPECT_EQ(result, 0);
            expect_sensor(says, pdr.state);
            expect_composites(says, pdr.state);
            break;
        default:
            EXPECT_EQ(result, -1) << "there is no decoder for this type";
            break;
    }
}

}  // namespace test
