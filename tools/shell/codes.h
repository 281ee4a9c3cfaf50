// SPDX-License-Identifier: Apache-2.0
// Names that the standards give to codes: completion codes, commands, types, states.
#ifndef SIDEBAND_TOOLS_SHELL_CODES_H
#define SIDEBAND_TOOLS_SHELL_CODES_H

#include <cstdint>
#include <string>

namespace tool {

/// MCTP control: DSP0236, tables 12 and 13.
std::string control_command_name(uint8_t command);
std::string control_code_name(uint8_t code);

/// MCTP message types: DSP0239, table 1. Bit 7 of the type byte is left out of account.
std::string message_type_name(uint8_t type);

/// Get Endpoint ID and Get Routing Table Entries: DSP0236. The upper bits of a type are left out of
/// account.
std::string endpoint_type_name(uint8_t type);
std::string eid_type_name(uint8_t type);
std::string routing_entry_type_name(uint8_t type);

/// Physical transport binding identifiers: DSP0239. The number where there is no name.
std::string binding_type_name(uint8_t type);

/// PLDM types: DSP0245, table 1.
std::string pldm_type_name(uint8_t type);

/// Base commands: DSP0240, table 11.
std::string pldm_base_command_name(uint8_t command);

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

/// A PLDM completion code: the base codes (DSP0240, table 5) and from 0x80 on those of the command
/// or, of FRU data and of firmware update, of the type.
std::string pldm_code_name(uint8_t type, uint8_t command, uint8_t code);

/// sensorOperationalState and presentState of a numeric sensor: DSP0248, GetSensorReading.
std::string operational_state_name(uint8_t state);
std::string numeric_state_name(uint8_t state);

/// FRU records and their fields: DSP0257, general and OEM FRU record.
std::string fru_record_type_name(uint8_t type);
std::string fru_field_name(uint8_t record_type, uint8_t field_type);

/// Response and reason codes of NC-SI: DSP0222, standard and command-specific codes.
std::string ncsi_response_name(uint16_t code);
std::string ncsi_reason_name(uint16_t code);

/// Speed and duplex of a link: DSP0222, Get Link Status. The extended values go on behind the ones
/// of the link status's bits 4 to 1.
std::string ncsi_speed_name(uint8_t speed);

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

/// A state of one of the state sets (DSP0249) whose states have been published; empty for any
/// other.
std::string state_name(uint16_t state_set, uint8_t state);

}  // namespace tool

#endif
