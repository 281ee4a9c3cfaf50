// SPDX-License-Identifier: Apache-2.0
// Sensors of a PLDM terminus: reading them, and showing what was read.
#ifndef SIDEBAND_TOOLS_PLDM_SENSOR_READING_H
#define SIDEBAND_TOOLS_PLDM_SENSOR_READING_H

#include <sideband/pldm_monitor.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/shell/json.h"
#include "tools/shell/session.h"

namespace tool {

/// The answer to GetSensorReading (DSP0248).
struct NumericReading {
    uint8_t sensor_data_size = 0;  ///< 0 uint8, 1 sint8, 2 uint16, 3 sint16, 4 uint32, 5 sint32
    uint8_t operational_state = 0;
    uint8_t event_message_enable = 0;
    uint8_t present_state = 0;
    uint8_t previous_state = 0;
    uint8_t event_state = 0;
    int64_t present_reading = 0;    ///< meaningful while the sensor is enabled
    uint32_t received_reading = 0;  ///< the same as the library delivers it

    bool enabled() const { return operational_state == PLDM_SENSOR_ENABLED; }
};

/// Reads a numeric sensor. A sensor that is not enabled is an answer, not a failure.
NumericReading read_numeric(Session& session, uint16_t sensor_id);

/// Reads all composite sensors of a state sensor.
std::vector<pldm_state_reading> read_state(Session& session, uint16_t sensor_id);

/// The reading in the sensor's unit, rounded to what its resolution and offset can tell.
double scaled(const Sensor& sensor, int64_t present_reading);

/// "42.5 degC", or "-" if the sensor is not enabled.
std::string value_text(const Sensor& sensor, const NumericReading& reading);

/// "enabled Normal": operational state, then present state if the reading is valid.
std::string numeric_state_text(const NumericReading& reading);

/// "UpperWarning, over 85": the present state, and the threshold that it tells to be crossed.
std::string threshold_text(const Sensor& sensor, const NumericReading& reading);

/// The threshold that the present state tells to be crossed, if it has a value.
std::optional<double> crossed_threshold(const Sensor& sensor, const NumericReading& reading);

/// "2 (Non-Critical)": the present state of the composite sensor at a position.
std::string state_text(const Sensor& sensor, size_t position, const pldm_state_reading& state);

/// "2 (Non-Critical), disabled": the present state of each composite sensor.
std::string states_text(const Sensor& sensor, const std::vector<pldm_state_reading>& states);

Json numeric_json(const Sensor& sensor, const NumericReading& reading);
Json state_json(const Sensor& sensor, const std::vector<pldm_state_reading>& states);

}  // namespace tool

#endif
