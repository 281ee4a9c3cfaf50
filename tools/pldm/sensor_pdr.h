// SPDX-License-Identifier: Apache-2.0
// Sensors as their PDRs describe them (DSP0248): numeric and state sensors, auxiliary names.
#ifndef SIDEBAND_TOOLS_PLDM_SENSOR_PDR_H
#define SIDEBAND_TOOLS_PLDM_SENSOR_PDR_H

#include <sideband/pldm_monitor.h>

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/pldm/pdr_walk.h"

namespace tool {

struct CompositeSensor {
    uint16_t state_set = 0;
    std::vector<uint8_t> possible_states;  ///< bit n of byte 0 is state n
};

/// A numeric or state sensor record. Decoded by the library; the composite sensors are all of
/// them; the library's record has room for the first few.
struct SensorRecord {
    pldm_pdr pdr{};
    std::vector<CompositeSensor> composites;

    bool numeric() const { return pdr.header.type == PLDM_PDR_TYPE_NUMERIC_SENSOR; }
    // The members that both types have lie at the same places.
    uint16_t sensor_id() const { return pdr.state.sensor_id; }
    uint16_t entity_type() const { return pdr.state.entity_type; }
    uint16_t entity_instance() const { return pdr.state.entity_instance_number; }
    uint16_t container_id() const { return pdr.state.container_id; }
};

/// Whether a record is one that decode_sensor() is for.
bool is_sensor(const PdrRecord& record);

/// Decodes a whole record. Throws Failure if it is shorter than its type demands, or malformed.
SensorRecord decode_sensor(const Session& session, const PdrRecord& record);

/// The numbers of the possible states.
std::vector<uint16_t> possible_states(const CompositeSensor& composite);

/// A value of a numeric sensor record in a format of PLDM_DATA_SIZE_...
double slot_value(pldm_pdr_slot slot, uint8_t format);

/// Threshold values of a numeric sensor record that it says are meant, in its base unit and before
/// unitModifier: upper warning, critical, fatal, then the lower ones.
std::array<std::optional<double>, 6> record_thresholds(const pldm_numeric_sensor_pdr& record);

/// Sensor names by sensor ID, from all Sensor Auxiliary Names PDRs.
using SensorNames = std::map<uint16_t, std::vector<std::string>>;
SensorNames auxiliary_names(const std::vector<PdrRecord>& records);

/// What the tool shows of a sensor. Its unit and its factors have unitModifier in them.
Sensor described_by(const SensorRecord& record);

}  // namespace tool

#endif
