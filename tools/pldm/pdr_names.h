// SPDX-License-Identifier: Apache-2.0
// Names that the standards give to what stands in PDRs: record types, units, entities, state sets.
#ifndef SIDEBAND_TOOLS_PLDM_PDR_NAMES_H
#define SIDEBAND_TOOLS_PLDM_PDR_NAMES_H

#include <cstdint>
#include <string>

namespace tool {

/// PDRType: DSP0248, PDR type values.
std::string pdr_type_name(uint8_t type);

/// sensorUnits: DSP0248. The first is short, for tables ("degC"), the second the standard's word.
std::string unit_symbol(uint8_t unit);
std::string unit_name(uint8_t unit);
/// Whether prefixes such as "milli" go with a unit: they do with volts, not with degrees.
bool takes_prefix(uint8_t unit);
/// "m" for -3; empty for 0 and if there is no prefix.
std::string si_prefix(int8_t unit_modifier);

/// rateUnit: DSP0248. "/s" for per second; empty for none.
std::string rate_symbol(uint8_t rate_unit);

/// sensorDataSize and rangeFieldFormat: "uint8".
std::string data_size_name(uint8_t code);

/// sensorInit: DSP0248.
std::string sensor_init_name(uint8_t init);

/// entityType: DSP0249, entity IDs.
std::string entity_type_name(uint16_t type);
/// An entity and its instance number, "fan 2".
std::string entity_text(uint16_t type, uint16_t instance);

/// stateSetID: the library's name if it has one, else that of DSP0249.
std::string state_set_name(uint16_t id);

/// A state of one of the state sets (DSP0249) whose states have been published; empty for any
/// other.
std::string state_name(uint16_t state_set, uint8_t state);

}  // namespace tool

#endif
