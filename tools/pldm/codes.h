// SPDX-License-Identifier: Apache-2.0
// Names that the PLDM standards give to codes: types, base commands, states, FRU fields.
#ifndef SIDEBAND_TOOLS_PLDM_CODES_H
#define SIDEBAND_TOOLS_PLDM_CODES_H

#include <cstdint>
#include <string>

namespace tool {

/// PLDM types: DSP0245, table 1.
std::string pldm_type_name(uint8_t type);

/// Base commands: DSP0240, table 11.
std::string pldm_base_command_name(uint8_t command);

/// sensorOperationalState and presentState of a numeric sensor: DSP0248, GetSensorReading.
std::string operational_state_name(uint8_t state);
std::string numeric_state_name(uint8_t state);

/// FRU records and their fields: DSP0257, general and OEM FRU record.
std::string fru_record_type_name(uint8_t type);
std::string fru_field_name(uint8_t record_type, uint8_t field_type);

}  // namespace tool

#endif
