// SPDX-License-Identifier: Apache-2.0
// Names that the standards of NVMe and NVMe-MI give to codes: status values, commands, features.
#ifndef SIDEBAND_TOOLS_NVME_CODES_H
#define SIDEBAND_TOOLS_NVME_CODES_H

#include <cstdint>
#include <string>

namespace tool {

/// Response message status of NVMe-MI: NVMe-MI, response message status values.
std::string nvmemi_status_name(uint8_t status);

/// Status code type and status code of a completion: NVMe base specification, status field.
std::string nvme_status_type_name(uint8_t type);
std::string nvme_status_name(uint8_t type, uint8_t code);

/// SMBus/I2C Frequency: NVMe-MI, Configuration Get. "-" for 0: the port has none.
std::string nvmemi_frequency_name(uint8_t frequency);

/// Opcodes of the management interface command set (NVMe-MI) and of admin commands (NVMe base
/// specification).
std::string nvmemi_command_name(uint8_t opcode);
std::string nvme_admin_command_name(uint8_t opcode);

/// Feature identifiers: NVMe base specification, Get Features and Set Features.
std::string nvme_feature_name(uint8_t feature);

}  // namespace tool

#endif
