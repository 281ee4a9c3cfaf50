// SPDX-License-Identifier: Apache-2.0
// Names of what every room meets: message types, and the completion codes of MCTP control and PLDM.
#ifndef SIDEBAND_TOOLS_SHELL_CODES_H
#define SIDEBAND_TOOLS_SHELL_CODES_H

#include <cstdint>
#include <span>
#include <string>

namespace tool {

/// MCTP message types: DSP0239, table 1. Bit 7 of the type byte is left out of account.
std::string message_type_name(uint8_t type);
/// The names of several with spaces between them, "-" for none.
std::string message_types_text(std::span<const uint8_t> types);

/// MCTP control: DSP0236, tables 12 and 13.
std::string control_command_name(uint8_t command);
std::string control_code_name(uint8_t code);

/// A PLDM completion code: the base codes (DSP0240, table 5) and from 0x80 on those of the command
/// or, of FRU data and of firmware update, of the type.
std::string pldm_code_name(uint8_t type, uint8_t command, uint8_t code);

}  // namespace tool

#endif
