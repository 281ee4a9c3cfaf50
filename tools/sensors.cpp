// SPDX-License-Identifier: Apache-2.0
// Sensors of a PLDM terminus: reading them, and showing what was read.
#include "tools/sensors.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "tools/codes.h"

namespace tool {
namespace {

/// Places of the answers' fields, from the PLDM header on.
constexpr size_t numeric_fields = 4;
constexpr size_t numeric_reading = 10;
constexpr size_t composite_count = 4;
constexpr size_t state_fields = 5;
constexpr size_t state_field_size = 4;

/// The reading as received, narrowed and signed as sensorDataSize says.
int64_t narrow(uint32_t reading, uint8_t sensor_data_size) {
    switch (sensor_data_size) {
        case 0:
            return static_cast<uint8_t>(reading);
        case 1:
            return static_cast<int8_t>(reading);
        case 2:
            return static_cast<uint16_t>(reading);
        case 3:
            return static_cast<int16_t>(reading);
        case 5:
            return static_cast<int32_t>(reading);
        default:
            return reading;
    }
}

/// Decimals that a multiple of the resolution needs: 0.125 needs three.
int decimals(double resolution) {
    constexpr int most = 6;
    int count = 0;
    for (double scale = resolution; count < most; scale *= 10.0, ++count) {
        if (std::fabs(scale - std::round(scale)) < 1e-6) {
            break;
        }
    }
    return count;
}

std::string present_state_text(const Sensor& sensor, uint8_t state) {
    const std::string name = state_name(sensor.state_set, state);
    return name.empty() ? std::to_string(state) : fmt::format("{} ({})", state, name);
}

}  // namespace

NumericReading read_numeric(Session& session, uint16_t sensor_id) {
    uint32_t present_reading = 0;
    const int32_t result = pldm_get_sensor_reading(&session.pldm(), sensor_id, &present_reading);
    const std::span<const uint8_t> answer = session.last_answer();
    const bool answered =
        answer.size() > numeric_reading && answer[PLDM_HEADER_SIZE] == PLDM_CC_SUCCESS;
    const bool not_enabled = answered && answer[numeric_fields + 1] != PLDM_SENSOR_ENABLED;
    // From the eleventh such answer in a row on, the library fails a call for a sensor that is off.
    if (!answered || (result != 0 && !not_enabled)) {
        throw session.pldm_failure(fmt::format("GetSensorReading of sensor {}", sensor_id));
    }
    const std::span<const uint8_t> fields = answer.subspan(numeric_fields);
    return {.sensor_data_size = fields[0],
            .operational_state = fields[1],
            .event_message_enable = fields[2],
            .present_state = fields[3],
            .previous_state = fields[4],
            .event_state = fields[5],
            .present_reading = narrow(present_reading, fields[0])};
}

std::vector<pldm_state_reading> read_state(Session& session, uint16_t sensor_id) {
    const std::string operation = fmt::format("GetStateSensorReadings of sensor {}", sensor_id);
    std::vector<pldm_state_reading> states;
    size_t count = 1;
    for (size_t index = 0; index < count; ++index) {
        pldm_state_reading state{};
        const int32_t result = pldm_get_state_sensor_reading_from_HEALTH(
            &session.pldm(), sensor_id, &state, static_cast<uint8_t>(index));
        if (result != 0 && result != PLDM_SENSOR_NOT_FOUND) {
            throw session.pldm_failure(operation);
        }
        const std::span<const uint8_t> answer = session.last_answer();
        if (answer.size() <= composite_count) {
            throw session.pldm_failure(operation);
        }
        count = std::min<size_t>(answer[composite_count], PLDM_COMPOSITE_SENSORS_MAX);
        const size_t field = state_fields + index * state_field_size;
        if (result == PLDM_SENSOR_NOT_FOUND && index < count) {
            if (field >= answer.size()) {
                throw session.pldm_failure(operation);
            }
            // Not enabled: only the operational state means anything.
            state = {};
            state.sensor_operational_state = answer[field];
        }
        if (index < count) {
            states.push_back(state);
        }
    }
    return states;
}

double scaled(const Sensor& sensor, int64_t present_reading) {
    const double unit = std::pow(10.0, decimals(sensor.resolution));
    return std::round(static_cast<double>(present_reading) * sensor.resolution * unit) / unit;
}

std::string value_text(const Sensor& sensor, const NumericReading& reading) {
    if (reading.operational_state != PLDM_SENSOR_ENABLED) {
        return "-";
    }
    return fmt::format("{:.{}f}", scaled(sensor, reading.present_reading),
                       decimals(sensor.resolution));
}

std::string numeric_state_text(const NumericReading& reading) {
    std::string text = operational_state_name(reading.operational_state);
    if (reading.operational_state == PLDM_SENSOR_ENABLED) {
        text += ", " + numeric_state_name(reading.present_state);
    }
    return text;
}

std::string states_text(const Sensor& sensor, const std::vector<pldm_state_reading>& states) {
    std::string text;
    for (size_t i = 0; i < states.size(); ++i) {
        const pldm_state_reading& state = states[i];
        // The board names the state set of the first composite sensor only.
        const Sensor unnamed;
        text += text.empty() ? "" : ", ";
        text += state.sensor_operational_state == PLDM_SENSOR_ENABLED
                    ? present_state_text(i == 0 ? sensor : unnamed, state.present_state)
                    : operational_state_name(state.sensor_operational_state);
    }
    return text.empty() ? "-" : text;
}

nlohmann::ordered_json numeric_json(const Sensor& sensor, const NumericReading& reading) {
    nlohmann::ordered_json json{{"sensor_id", sensor.id},
                                {"sensor_type", "numeric"},
                                {"name", sensor.name},
                                {"sensor_data_size", reading.sensor_data_size},
                                {"sensor_operational_state", reading.operational_state},
                                {"sensor_event_message_enable", reading.event_message_enable},
                                {"present_state", reading.present_state},
                                {"previous_state", reading.previous_state},
                                {"event_state", reading.event_state}};
    if (reading.operational_state == PLDM_SENSOR_ENABLED) {
        json["present_reading"] = reading.present_reading;
        json["value"] = scaled(sensor, reading.present_reading);
    } else {
        json["present_reading"] = nullptr;
        json["value"] = nullptr;
    }
    json["unit"] = sensor.unit;
    return json;
}

nlohmann::ordered_json state_json(const Sensor& sensor,
                                  const std::vector<pldm_state_reading>& states) {
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const pldm_state_reading& state : states) {
        nlohmann::ordered_json field{{"sensor_operational_state", state.sensor_operational_state}};
        if (state.sensor_operational_state == PLDM_SENSOR_ENABLED) {
            field["present_state"] = state.present_state;
            field["previous_state"] = state.previous_state;
            field["event_state"] = state.event_state;
        }
        list.push_back(field);
    }
    return {{"sensor_id", sensor.id},
            {"sensor_type", "state"},
            {"name", sensor.name},
            {"state_set_id", sensor.state_set},
            {"composite_sensor_count", states.size()},
            {"state_field", list}};
}

}  // namespace tool
