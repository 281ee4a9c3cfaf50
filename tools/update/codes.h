// SPDX-License-Identifier: Apache-2.0
// Names that the standard of PLDM firmware update gives to codes: commands, methods, results.
#ifndef SIDEBAND_TOOLS_UPDATE_CODES_H
#define SIDEBAND_TOOLS_UPDATE_CODES_H

#include <cstdint>
#include <string>

namespace tool {

/// Commands of firmware update: DSP0267, PLDM for firmware update commands.
std::string pldm_firmware_command_name(uint8_t command);

/// ComponentActivationMethods by their bits: DSP0267, GetFirmwareParameters. Empty for any other.
std::string activation_method_name(uint8_t bit);

/// Why a device does not take a component: DSP0267, UpdateComponent,
/// ComponentCompatibilityResponseCode. Empty for any other code.
std::string component_refusal_text(uint8_t code);

/// TransferResult, VerifyResult and ApplyResult: DSP0267. Empty for any other.
std::string transfer_result_name(uint8_t result);
std::string verify_result_name(uint8_t result);
std::string apply_result_name(uint8_t result);

}  // namespace tool

#endif
