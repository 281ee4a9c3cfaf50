// SPDX-License-Identifier: Apache-2.0
// Sensors of a PLDM terminus: reading them, and showing what was read.
#include "tools/pldm/sensor_reading.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "tools/pldm/codes.h"
#include "tools/pldm/pdr_names.h"
#include "tools/shell/json.h"

namespace tool {
namespace {

/// Places of the answers' fields, from the PLDM header on.
constexpr size_t kNumericFields = 4;
constexpr size_t kNumericReading = 10;
constexpr size_t kCompositeCount = 4;
constexpr size_t kStateFields = 5;
constexpr size_t kStateFieldSize = 4;

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

/// Decimals that a multiple of a number needs: 0.125 needs three.
int decimals(double resolution) {
    constexpr int kMost = 6;
    constexpr double kNoise = 1e-12;  // of the multiplications, as a share
    int count = 0;
    for (double scale = resolution; count < kMost; scale *= 10.0, ++count) {
        if (std::fabs(scale - std::round(scale)) <= kNoise * std::fabs(scale)) {
            break;
        }
    }
    return count;
}

int decimals(const Sensor& sensor) {
    return std::max(decimals(sensor.resolution), decimals(sensor.offset));
}

/// A state by number and, if it has one, by name.
std::string numbered(uint8_t state, const std::string& name) {
    return name.empty() ? std::to_string(state) : fmt::format("{} ({})", state, name);
}

}  // namespace

NumericReading read_numeric(Session& session, uint16_t sensor_id) {
    uint32_t present_reading = 0;
    const int32_t result = pldm_get_sensor_reading(&session.pldm(), sensor_id, &present_reading);
    const std::span<const uint8_t> answer = session.last_answer();
    const bool answered =
        answer.size() > kNumericReading && answer[PLDM_HEADER_SIZE] == PLDM_CC_SUCCESS;
    const bool not_enabled = answered && answer[kNumericFields + 1] != PLDM_SENSOR_ENABLED;
    // From the eleventh such answer in a row on, the library fails a call for a sensor that is off.
    if (!answered || (result != 0 && !not_enabled)) {
        throw session.pldm_failure(fmt::format("GetSensorReading of sensor {}", sensor_id));
    }
    const std::span<const uint8_t> fields = answer.subspan(kNumericFields);
    return {.sensor_data_size = fields[0],
            .operational_state = fields[1],
            .event_message_enable = fields[2],
            .present_state = fields[3],
            .previous_state = fields[4],
            .event_state = fields[5],
            .present_reading = narrow(present_reading, fields[0]),
            .received_reading = present_reading};
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
        if (answer.size() <= kCompositeCount) {
            throw session.pldm_failure(operation);
        }
        count = std::min<size_t>(answer[kCompositeCount], PLDM_COMPOSITE_SENSORS_MAX);
        const size_t field = kStateFields + index * kStateFieldSize;
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
    const double unit = std::pow(10.0, decimals(sensor));
    const double value = static_cast<double>(present_reading) * sensor.resolution + sensor.offset;
    return std::round(value * unit) / unit;
}

std::string value_text(const Sensor& sensor, const NumericReading& reading) {
    if (!reading.enabled()) {
        return "-";
    }
    return fmt::format("{:.{}f}", scaled(sensor, reading.present_reading), decimals(sensor));
}

std::string numeric_state_text(const NumericReading& reading) {
    std::string text = operational_state_name(reading.operational_state);
    if (reading.enabled()) {
        text += ", " + numeric_state_name(reading.present_state);
    }
    return text;
}

std::optional<double> crossed_threshold(const Sensor& sensor, const NumericReading& reading) {
    // presentState in the order of Sensor::thresholds.
    constexpr std::array<uint8_t, 6> kStates{8, 9, 10, 5, 6, 7};
    const auto* const state = std::find(kStates.begin(), kStates.end(), reading.present_state);
    if (!reading.enabled() || state == kStates.end()) {
        return std::nullopt;
    }
    return sensor.thresholds[static_cast<size_t>(state - kStates.begin())];
}

std::string threshold_text(const Sensor& sensor, const NumericReading& reading) {
    constexpr uint8_t kFirstUpper = 8;
    if (!reading.enabled()) {
        return "-";
    }
    std::string name = numeric_state_name(reading.present_state);
    const std::optional<double> threshold = crossed_threshold(sensor, reading);
    if (!threshold) {
        return name;
    }
    return fmt::format("{}, {} {:.6g}", name,
                       reading.present_state >= kFirstUpper ? "over" : "under", *threshold);
}

std::string state_text(const Sensor& sensor, size_t position, const pldm_state_reading& state) {
    if (state.sensor_operational_state != PLDM_SENSOR_ENABLED) {
        return operational_state_name(state.sensor_operational_state);
    }
    const bool known = position < sensor.state_sets.size();
    return numbered(state.present_state,
                    known ? state_name(sensor.state_sets[position], state.present_state) : "");
}

std::string states_text(const Sensor& sensor, const std::vector<pldm_state_reading>& states) {
    std::string text;
    for (size_t i = 0; i < states.size(); ++i) {
        text += text.empty() ? "" : ", ";
        text += state_text(sensor, i, states[i]);
    }
    return text.empty() ? "-" : text;
}

Json numeric_json(const Sensor& sensor, const NumericReading& reading) {
    Json json{{"sensor_id", sensor.id},
              {"sensor_type", "numeric"},
              {"name", sensor.name},
              {"sensor_data_size", reading.sensor_data_size},
              {"sensor_operational_state", reading.operational_state},
              {"sensor_event_message_enable", reading.event_message_enable},
              {"present_state", reading.present_state},
              {"previous_state", reading.previous_state},
              {"event_state", reading.event_state}};
    json["present_reading"] = reading.enabled() ? Json(reading.present_reading) : Json();
    json["value"] = reading.enabled() ? Json(scaled(sensor, reading.present_reading)) : Json();
    json["unit"] = sensor.unit;
    const std::optional<double> crossed = crossed_threshold(sensor, reading);
    if (crossed) {
        json["threshold_crossed"] = *crossed;
    }
    return json;
}

Json state_json(const Sensor& sensor, const std::vector<pldm_state_reading>& states) {
    Json list = Json::array();
    for (size_t i = 0; i < states.size(); ++i) {
        const pldm_state_reading& state = states[i];
        Json field;
        if (i < sensor.state_sets.size()) {
            field["state_set_id"] = sensor.state_sets[i];
            field["state_set_name"] = state_set_name(sensor.state_sets[i]);
        }
        field["sensor_operational_state"] = state.sensor_operational_state;
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
            {"composite_sensor_count", states.size()},
            {"state_field", list}};
}

}  // namespace tool
