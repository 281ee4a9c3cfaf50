// SPDX-License-Identifier: Apache-2.0
// Rules on the sensors that the PDRs describe (DSP0248).
#include <fmt/format.h>

#include <algorithm>

#include "tools/check/repository.h"
#include "tools/check/rules.h"

namespace tool::check {
namespace {

// Completion codes of the sensor commands.
constexpr uint8_t kInvalidSensorId = 0x80;
constexpr uint8_t kInvalidOperationalState = 0x81;

enum PdrType : uint8_t { kNumericSensorPdr = 2, kStateSensorPdr = 4 };

constexpr uint8_t kLastDataSize = 5;          // sint32
constexpr uint8_t kLastOperationalState = 7;  // inTest
constexpr uint8_t kLastEventEnable = 4;       // stateEventsOnlyEnabled
constexpr uint8_t kLastPresentState = 10;     // upperFatal

/// So many sensors of each kind are looked at.
constexpr size_t kMostSensors = 64;

/// A sensor as its PDR describes it.
struct Sensor {
    uint16_t id = 0;
    uint8_t data_size = 0;   ///< numeric
    uint8_t composites = 0;  ///< state
};

size_t bytes_of(uint8_t data_size) {
    return size_t{1} << data_size / 2;
}

std::vector<Sensor> sensors_of(Device& device, PdrType type) {
    constexpr size_t kEntityToNames = 8;  // entity, sensorInit, auxiliary names
    constexpr size_t kUnitsToLinear = 10;
    std::vector<Sensor> sensors;
    for (const Record& record : whole_repository(device).records) {
        if (record.type() != type || sensors.size() == kMostSensors) {
            continue;
        }
        sideband::WireReader reader(record.bytes);
        reader.skip(kPdrHeader + 2);
        Sensor sensor;
        sensor.id = reader.le16();
        reader.skip(kEntityToNames);
        if (type == kStateSensorPdr) {
            sensor.composites = reader.u8();
        } else {
            reader.skip(kUnitsToLinear);
            sensor.data_size = reader.u8();
        }
        if (reader.ok()) {
            sensors.push_back(sensor);
        }
    }
    if (sensors.empty()) {
        not_applicable(fmt::format("the device has no PDR of a {} sensor",
                                   type == kStateSensorPdr ? "state" : "numeric"));
    }
    return sensors;
}

/// An identifier that no sensor of the kind has.
uint16_t unknown_sensor(Device& device, PdrType type) {
    const std::vector<Sensor> sensors = sensors_of(device, type);
    uint16_t id = 0xFFFE;
    while (std::ranges::any_of(sensors, [&](const Sensor& sensor) { return sensor.id == id; })) {
        --id;
    }
    return id;
}

// ---- Numeric sensors ----------------------------------------------------------------------------

void need_reading(Device& device) {
    need_pldm_command(device, kMonitoring, kGetSensorReading, "GetSensorReading");
}

Exchange ask_reading(Device& device, uint16_t id) {
    return recall_pldm(device, kMonitoring, kGetSensorReading, Bytes(Body().le16(id).u8(0)));
}

/// What is in front of a reading.
struct Reading {
    uint8_t data_size = 0;
    uint8_t operational_state = 0;
    uint8_t event_enable = 0;
    uint8_t states[3] = {};  ///< present, previous, event
};

/// Ends the rule unless something holds for the reading of each numeric sensor that has one.
template <typename Judge>
void each_reading(Device& device, const char* expected, Judge judge) {
    need_reading(device);
    for (const Sensor& sensor : sensors_of(device, kNumericSensorPdr)) {
        const Exchange exchange = ask_reading(device, sensor.id);
        sideband::WireReader reader(pldm_data(exchange, "GetSensorReading"));
        Reading reading;
        reading.data_size = reader.u8();
        reading.operational_state = reader.u8();
        reading.event_enable = reader.u8();
        for (uint8_t& state : reading.states) {
            state = reader.u8();
        }
        if (!reader.ok()) {
            not_applicable("a reading is too short");
        }
        expect(judge(reading, sensor), exchange, expected);
    }
}

void readings_have_their_length(Device& device) {
    need_reading(device);
    for (const Sensor& sensor : sensors_of(device, kNumericSensorPdr)) {
        const Exchange exchange = ask_reading(device, sensor.id);
        expect_pldm_code(exchange, kSuccess, "SUCCESS");
        const std::span<const uint8_t> data = pldm_data(exchange, "GetSensorReading");
        constexpr size_t kBeforeReading = 6;
        expect(!data.empty() && data[0] <= kLastDataSize, exchange, "a data size from 0 to 5");
        expect(data.size() == kBeforeReading + bytes_of(data[0]), exchange,
               "a reading as long as its data size says");
    }
}

void readings_have_the_data_size(Device& device) {
    each_reading(device, "the data size of the sensor's PDR",
                 [](const Reading& reading, const Sensor& sensor) {
                     return reading.data_size == sensor.data_size;
                 });
}

void readings_have_a_state(Device& device) {
    each_reading(device, "an operational state from 0 to 7",
                 [](const Reading& reading, const Sensor&) {
                     return reading.operational_state <= kLastOperationalState;
                 });
}

void readings_have_an_event_enable(Device& device) {
    each_reading(device, "an event message enable from 0 to 4",
                 [](const Reading& reading, const Sensor&) {
                     return reading.event_enable <= kLastEventEnable;
                 });
}

void readings_have_present_states(Device& device) {
    each_reading(device, "present, previous and event state from 0 to 10",
                 [](const Reading& reading, const Sensor&) {
                     return std::ranges::all_of(
                         reading.states, [](uint8_t state) { return state <= kLastPresentState; });
                 });
}

void reading_of_no_sensor_is_refused(Device& device) {
    need_reading(device);
    expect_pldm_code(ask_reading(device, unknown_sensor(device, kNumericSensorPdr)),
                     kInvalidSensorId, "INVALID_SENSOR_ID");
}

void short_reading_request_is_refused(Device& device) {
    need_reading(device);
    const Sensor sensor = sensors_of(device, kNumericSensorPdr).front();
    expect_pldm_code(
        ask_pldm(device, kMonitoring, kGetSensorReading, Bytes(Body().le16(sensor.id))),
        kInvalidLength, "ERROR_INVALID_LENGTH");
}

void thresholds_have_their_length(Device& device) {
    need_pldm_command(device, kMonitoring, kGetSensorThresholds, "GetSensorThresholds");
    for (const Sensor& sensor : sensors_of(device, kNumericSensorPdr)) {
        const Exchange exchange =
            ask_pldm(device, kMonitoring, kGetSensorThresholds, Bytes(Body().le16(sensor.id)));
        expect_pldm_code(exchange, kSuccess, "SUCCESS");
        const std::span<const uint8_t> data = pldm_data(exchange, "GetSensorThresholds");
        constexpr size_t kThresholds = 6;
        expect(!data.empty() && data[0] <= kLastDataSize &&
                   data.size() == 1 + kThresholds * bytes_of(data[0]),
               exchange, "six thresholds as long as their data size says");
    }
}

void thresholds_of_no_sensor_are_refused(Device& device) {
    need_pldm_command(device, kMonitoring, kGetSensorThresholds, "GetSensorThresholds");
    const uint16_t id = unknown_sensor(device, kNumericSensorPdr);
    expect_pldm_code(ask_pldm(device, kMonitoring, kGetSensorThresholds, Bytes(Body().le16(id))),
                     kInvalidSensorId, "INVALID_SENSOR_ID");
}

Exchange set_enable(Device& device, uint16_t id, uint8_t state) {
    need_pldm_command(device, kMonitoring, kSetNumericSensorEnable, "SetNumericSensorEnable");
    constexpr uint8_t kNoChange = 0;
    return ask_pldm(device, kMonitoring, kSetNumericSensorEnable,
                    Bytes(Body().le16(id).u8(state).u8(kNoChange)));
}

void enable_of_no_sensor_is_refused(Device& device) {
    expect_pldm_code(set_enable(device, unknown_sensor(device, kNumericSensorPdr), 0),
                     kInvalidSensorId, "INVALID_SENSOR_ID");
}

void unknown_state_is_refused(Device& device) {
    const Sensor sensor = sensors_of(device, kNumericSensorPdr).front();
    constexpr uint8_t kNoState = 0xF0;
    expect_pldm_code(set_enable(device, sensor.id, kNoState), kInvalidOperationalState,
                     "INVALID_SENSOR_OPERATIONAL_STATE");
}

// ---- State sensors ------------------------------------------------------------------------------

constexpr uint8_t kMostComposites = 8;
constexpr size_t kStateField = 4;

void need_states(Device& device) {
    need_pldm_command(device, kMonitoring, kGetStateSensorReadings, "GetStateSensorReadings");
}

Exchange ask_states(Device& device, uint16_t id) {
    return recall_pldm(device, kMonitoring, kGetStateSensorReadings,
                       Bytes(Body().le16(id).u8(0).u8(0)));
}

void states_have_their_length(Device& device) {
    need_states(device);
    for (const Sensor& sensor : sensors_of(device, kStateSensorPdr)) {
        const Exchange exchange = ask_states(device, sensor.id);
        expect_pldm_code(exchange, kSuccess, "SUCCESS");
        const std::span<const uint8_t> data = pldm_data(exchange, "GetStateSensorReadings");
        expect(!data.empty() && data[0] >= 1 && data[0] <= kMostComposites, exchange,
               "1 to 8 composite sensors");
        expect(data.size() == 1 + kStateField * data[0], exchange,
               "four bytes for each composite sensor");
    }
}

void states_are_as_many_as_described(Device& device) {
    need_states(device);
    for (const Sensor& sensor : sensors_of(device, kStateSensorPdr)) {
        const Exchange exchange = ask_states(device, sensor.id);
        const std::span<const uint8_t> data = pldm_data(exchange, "GetStateSensorReadings");
        expect(!data.empty() && data[0] == sensor.composites, exchange,
               "as many composite sensors as in the sensor's PDR");
    }
}

void states_are_operational(Device& device) {
    need_states(device);
    for (const Sensor& sensor : sensors_of(device, kStateSensorPdr)) {
        const Exchange exchange = ask_states(device, sensor.id);
        sideband::WireReader reader(pldm_data(exchange, "GetStateSensorReadings"));
        reader.skip(1);
        while (reader.remaining() >= kStateField) {
            expect(reader.u8() <= kLastOperationalState, exchange,
                   "operational states from 0 to 7");
            reader.skip(kStateField - 1);
        }
    }
}

void states_of_no_sensor_are_refused(Device& device) {
    need_states(device);
    expect_pldm_code(ask_states(device, unknown_sensor(device, kStateSensorPdr)), kInvalidSensorId,
                     "INVALID_SENSOR_ID");
}

constexpr Rule kRules[] = {
    {"monitor.reading.length", "DSP0248, GetSensorReading",
     "the sensor of each numeric PDR has a reading as long as its data size says",
     readings_have_their_length},
    {"monitor.reading.data-size", "DSP0248, GetSensorReading",
     "a reading has the data size of the PDR", readings_have_the_data_size},
    {"monitor.reading.operational-state", "DSP0248, GetSensorReading",
     "operational states are defined", readings_have_a_state},
    {"monitor.reading.event-enable", "DSP0248, GetSensorReading",
     "event message enables are defined", readings_have_an_event_enable},
    {"monitor.reading.present-state", "DSP0248, GetSensorReading",
     "present, previous and event states are defined", readings_have_present_states},
    {"monitor.reading.unknown-sensor", "DSP0248, GetSensorReading",
     "another sensor is refused with INVALID_SENSOR_ID", reading_of_no_sensor_is_refused},
    {"monitor.reading.request-too-short", "DSP0240, completion codes",
     "GetSensorReading with a byte too few is answered with ERROR_INVALID_LENGTH",
     short_reading_request_is_refused},
    {"monitor.thresholds.length", "DSP0248, GetSensorThresholds",
     "there are six thresholds, as long as their data size says", thresholds_have_their_length},
    {"monitor.thresholds.unknown-sensor", "DSP0248, GetSensorThresholds",
     "another sensor is refused with INVALID_SENSOR_ID", thresholds_of_no_sensor_are_refused},
    {"monitor.enable.unknown-sensor", "DSP0248, SetNumericSensorEnable",
     "another sensor is refused with INVALID_SENSOR_ID", enable_of_no_sensor_is_refused, true},
    {"monitor.enable.state", "DSP0248, SetNumericSensorEnable",
     "an unknown state is refused with INVALID_SENSOR_OPERATIONAL_STATE", unknown_state_is_refused,
     true},
    {"monitor.states.length", "DSP0248, GetStateSensorReadings",
     "the sensor of each state PDR has 1 to 8 states of four bytes", states_have_their_length},
    {"monitor.states.composites", "DSP0248, GetStateSensorReadings",
     "they are as many as the PDR says", states_are_as_many_as_described},
    {"monitor.states.operational-state", "DSP0248, GetStateSensorReadings",
     "operational states are defined", states_are_operational},
    {"monitor.states.unknown-sensor", "DSP0248, GetStateSensorReadings",
     "another sensor is refused with INVALID_SENSOR_ID", states_of_no_sensor_are_refused},
};

}  // namespace

std::span<const Rule> sensor_rules() {
    return kRules;
}

}  // namespace tool::check
