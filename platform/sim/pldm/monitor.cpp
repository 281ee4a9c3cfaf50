// SPDX-License-Identifier: Apache-2.0
// A PLDM terminus: the commands of platform monitoring and control (DSP0248).
#include <algorithm>
#include <array>

#include "sim/pldm/device.h"

namespace sim {

namespace {

// Completion codes of the sensor commands, DSP0248, clauses 18 and 20.
constexpr uint8_t kInvalidSensorId = 0x80;
constexpr uint8_t kInvalidOperationalState = 0x81;
constexpr uint8_t kEventGenerationNotSupported = 0x82;

/// sensorEventMessageEnable in requests: noChange, disableEvents, enableEvents, enableOpEventsOnly,
/// enableStateEventsOnly.
constexpr uint8_t kDisableEvents = 1;
constexpr uint8_t kLastEventEnable = 4;

/// Whether a requester may set a state and event enable, and the completion code if not.
uint8_t check_enable(uint8_t state, uint8_t event_enable, bool generates_events) {
    if (state > kSensorUnavailable) {
        return kInvalidOperationalState;
    }
    if (event_enable > kLastEventEnable) {
        return kPldmInvalidData;
    }
    if (event_enable > kDisableEvents && !generates_events) {
        return kEventGenerationNotSupported;
    }
    return kPldmSuccess;
}

template <typename Sensor>
Sensor* find(std::vector<Sensor>& sensors, uint16_t id) {
    auto found =
        std::ranges::find_if(sensors, [&](const Sensor& sensor) { return sensor.info().id == id; });
    return found == sensors.end() ? nullptr : &*found;
}

}  // namespace

std::span<const PldmDevice::Command> PldmDevice::platform_commands() {
    static constexpr std::array<Command, 8> kCommands{{
        {0x10, 4, 4, &PldmDevice::set_numeric_sensor_enable},
        {0x11, 3, 3, &PldmDevice::get_sensor_reading},
        {0x12, 2, 2, &PldmDevice::get_sensor_thresholds},
        {0x20, 3, 19, &PldmDevice::set_state_sensor_enables},
        {0x21, 4, 4, &PldmDevice::get_state_sensor_readings},
        {0x50, 0, 0, &PldmDevice::get_pdr_repository_info},
        {0x51, 13, 13, &PldmDevice::get_pdr},
        {0x53, 0, 0, &PldmDevice::get_pdr_repository_signature},
    }};
    return kCommands;
}

NumericSensor* PldmDevice::find_numeric(uint16_t id) {
    return find(numeric_, id);
}

StateSensor* PldmDevice::find_state(uint16_t id) {
    return find(state_, id);
}

Bytes PldmDevice::set_numeric_sensor_enable(ByteView data) {
    NumericSensor* sensor = find_numeric(le16(data, 0));
    if (sensor == nullptr) {
        return pldm_reply(kInvalidSensorId);
    }
    const uint8_t code = check_enable(data[2], data[3], sensor->generates_events());
    if (code == kPldmSuccess) {
        sensor->set_enable(data[2], data[3]);
    }
    return pldm_reply(code);
}

Bytes PldmDevice::get_sensor_reading(ByteView data) {
    NumericSensor* sensor = find_numeric(le16(data, 0));
    if (sensor == nullptr) {
        return pldm_reply(kInvalidSensorId);
    }
    return pldm_reply(kPldmSuccess, sensor->reading(clock().now_s()));
}

Bytes PldmDevice::get_sensor_thresholds(ByteView data) {
    const NumericSensor* sensor = find_numeric(le16(data, 0));
    if (sensor == nullptr) {
        return pldm_reply(kInvalidSensorId);
    }
    return pldm_reply(kPldmSuccess, sensor->thresholds());
}

Bytes PldmDevice::set_state_sensor_enables(ByteView data) {
    const size_t count = data[2];
    if (data.size() != 3 + 2 * count) {
        return pldm_reply(kPldmInvalidLength);
    }
    StateSensor* sensor = find_state(le16(data, 0));
    if (sensor == nullptr) {
        return pldm_reply(kInvalidSensorId);
    }
    if (count != sensor->composites()) {
        return pldm_reply(kPldmInvalidData);
    }
    for (size_t i = 0; i < count; ++i) {
        const uint8_t code =
            check_enable(data[3 + 2 * i], data[4 + 2 * i], sensor->generates_events());
        if (code != kPldmSuccess) {
            return pldm_reply(code);
        }
    }
    for (size_t i = 0; i < count; ++i) {
        sensor->set_enable(i, data[3 + 2 * i]);
    }
    return pldm_reply(kPldmSuccess);
}

Bytes PldmDevice::get_state_sensor_readings(ByteView data) {
    const StateSensor* sensor = find_state(le16(data, 0));
    if (sensor == nullptr) {
        return pldm_reply(kInvalidSensorId);
    }
    return pldm_reply(kPldmSuccess, sensor->reading(clock().now_s()));
}

}  // namespace sim
