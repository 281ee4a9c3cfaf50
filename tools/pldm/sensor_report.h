// SPDX-License-Identifier: Apache-2.0
// The sensors of a terminus and what they read: a table for people, a list for programs.
#ifndef SIDEBAND_TOOLS_PLDM_SENSOR_REPORT_H
#define SIDEBAND_TOOLS_PLDM_SENSOR_REPORT_H

#include <optional>
#include <vector>

#include "tools/pldm/sensor_pdr.h"
#include "tools/shell/json.h"
#include "tools/shell/text.h"

namespace tool {

struct KnownSensor {
    Sensor sensor;
    std::optional<SensorRecord> record;  ///< empty if the board alone knows the sensor
    std::optional<Failure> undecodable;  ///< its record says no more than the sensor's ID
};

struct SensorList {
    std::vector<KnownSensor> sensors;
    std::vector<Failure> failures;  ///< what was wrong with the repository
};

/// The sensors that the terminus's PDRs describe; if it has no repository, those that the board
/// describes. Throws Failure if there is neither.
SensorList find_sensors(Session& session);

struct SensorReport {
    Table table;
    Json list;
    std::vector<Failure> failures;  ///< sensors that could not be read
};

/// Reads sensors. One that fails does not stop the others, unless nothing answers any more.
SensorReport read_sensors(Session& session, const std::vector<KnownSensor>& sensors);

}  // namespace tool

#endif
