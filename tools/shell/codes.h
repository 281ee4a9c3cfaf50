// SPDX-License-Identifier: Apache-2.0
// Names of the codes that every conversation may end with: MCTP control and PLDM completion codes.
#ifndef SIDEBAND_TOOLS_SHELL_CODES_H
#define SIDEBAND_TOOLS_SHELL_CODES_H

#include <cstdint>
#include <string>

namespace tool {

/// MCTP control: DSP0236, tables 12 and 13.
std::string control_command_name(uint8_t command);
std::string control_code_name(uint8_t code);

/// A PLDM completion code: the base codes (DSP0240, table 5) and from 0x80 on those of the command
/// or, of FRU data and of firmware update, of the type.
std::string pldm_code_name(uint8_t type, uint8_t command, uint8_t code);

}  // namespace tool

#endif
