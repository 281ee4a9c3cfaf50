// SPDX-License-Identifier: Apache-2.0
// Names that the standards give to codes: completion codes, commands, types, states.
#include "tools/codes.h"

#include <fmt/format.h>

#include <sideband/pldm.h>

#include "tools/name_table.h"

namespace tool {
namespace {

/// A completion code that one command of one PLDM type has for itself.
struct CommandCode {
    uint8_t type;
    uint8_t command;
    uint8_t code;
    const char* text;
};

constexpr CommandCode command_codes[] = {
    {PLDM_TYPE_BASE, 0x03, 0x80, "INVALID_DATA_TRANSFER_HANDLE"},
    {PLDM_TYPE_BASE, 0x03, 0x81, "INVALID_TRANSFER_OPERATION_FLAG"},
    {PLDM_TYPE_BASE, 0x03, 0x83, "INVALID_PLDM_TYPE_IN_REQUEST_DATA"},
    {PLDM_TYPE_BASE, 0x03, 0x84, "INVALID_PLDM_VERSION_IN_REQUEST_DATA"},
    {PLDM_TYPE_BASE, 0x05, 0x80, "INVALID_DATA_TRANSFER_HANDLE"},
    {PLDM_TYPE_BASE, 0x05, 0x81, "INVALID_TRANSFER_OPERATION_FLAG"},
    {PLDM_TYPE_BASE, 0x05, 0x83, "INVALID_PLDM_TYPE_IN_REQUEST_DATA"},
    {PLDM_TYPE_BASE, 0x05, 0x84, "INVALID_PLDM_VERSION_IN_REQUEST_DATA"},
    {PLDM_TYPE_MONITOR, 0x10, 0x80, "INVALID_SENSOR_ID"},
    {PLDM_TYPE_MONITOR, 0x10, 0x81, "INVALID_SENSOR_OPERATIONAL_STATE"},
    {PLDM_TYPE_MONITOR, 0x10, 0x82, "EVENT_GENERATION_NOT_SUPPORTED"},
    {PLDM_TYPE_MONITOR, 0x11, 0x80, "INVALID_SENSOR_ID"},
    {PLDM_TYPE_MONITOR, 0x11, 0x81, "REARM_UNAVAILABLE_IN_PRESENT_STATE"},
    {PLDM_TYPE_MONITOR, 0x20, 0x80, "INVALID_SENSOR_ID"},
    {PLDM_TYPE_MONITOR, 0x20, 0x81, "INVALID_SENSOR_OPERATIONAL_STATE"},
    {PLDM_TYPE_MONITOR, 0x20, 0x82, "EVENT_GENERATION_NOT_SUPPORTED"},
    {PLDM_TYPE_MONITOR, 0x21, 0x80, "INVALID_SENSOR_ID"},
    {PLDM_TYPE_MONITOR, 0x51, 0x80, "INVALID_DATA_TRANSFER_HANDLE"},
    {PLDM_TYPE_MONITOR, 0x51, 0x81, "INVALID_TRANSFER_OPERATION_FLAG"},
    {PLDM_TYPE_MONITOR, 0x51, 0x82, "INVALID_RECORD_HANDLE"},
    {PLDM_TYPE_MONITOR, 0x51, 0x83, "INVALID_RECORD_CHANGE_NUMBER"},
    {PLDM_TYPE_MONITOR, 0x51, 0x84, "TRANSFER_TIMEOUT"},
    {PLDM_TYPE_MONITOR, 0x51, 0x85, "REPOSITORY_UPDATE_IN_PROGRESS"},
    {PLDM_TYPE_FRU, 0x01, 0x83, "NO_FRU_DATA_STRUCTURE_TABLE_METADATA"},
    {PLDM_TYPE_FRU, 0x02, 0x80, "INVALID_DATA_TRANSFER_HANDLE"},
    {PLDM_TYPE_FRU, 0x02, 0x81, "INVALID_TRANSFER_OPERATION_FLAG"},
    {PLDM_TYPE_FRU, 0x02, 0x85, "FRU_DATA_STRUCTURE_TABLE_UNAVAILABLE"},
};

}  // namespace

std::string control_command_name(uint8_t command) {
    static constexpr Name names[] = {
        {0x01, "Set Endpoint ID"},
        {0x02, "Get Endpoint ID"},
        {0x03, "Get Endpoint UUID"},
        {0x04, "Get MCTP Version Support"},
        {0x05, "Get Message Type Support"},
        {0x06, "Get Vendor Defined Message Support"},
        {0x07, "Resolve Endpoint ID"},
        {0x08, "Allocate Endpoint IDs"},
        {0x09, "Routing Information Update"},
        {0x0A, "Get Routing Table Entries"},
        {0x0B, "Prepare for Endpoint Discovery"},
        {0x0C, "Endpoint Discovery"},
        {0x0D, "Discovery Notify"},
    };
    return find_name(names, command, "MCTP control command");
}

std::string control_code_name(uint8_t code) {
    static constexpr Name names[] = {
        {0x00, "SUCCESS"},
        {0x01, "ERROR"},
        {0x02, "ERROR_INVALID_DATA"},
        {0x03, "ERROR_INVALID_LENGTH"},
        {0x04, "ERROR_NOT_READY"},
        {0x05, "ERROR_UNSUPPORTED_CMD"},
    };
    return find_name(names, code, code >= 0x80 ? "command specific" : "reserved");
}

std::string message_type_name(uint8_t type) {
    static constexpr Name names[] = {
        {0x00, "control"}, {0x01, "pldm"},       {0x02, "ncsi"},        {0x03, "ethernet"},
        {0x04, "nvme-mi"}, {0x05, "spdm"},       {0x06, "secured"},     {0x07, "cxl-fm-api"},
        {0x08, "cxl-cci"}, {0x7E, "vendor-pci"}, {0x7F, "vendor-iana"},
    };
    return find_name(names, type & 0x7F, "unknown");
}

std::string pldm_type_name(uint8_t type) {
    static constexpr Name names[] = {
        {0, "Messaging Control and Discovery"},
        {1, "SMBIOS"},
        {2, "Platform Monitoring and Control"},
        {3, "BIOS Control and Configuration"},
        {4, "FRU Data"},
        {5, "Firmware Update"},
        {6, "Redfish Device Enablement"},
        {7, "File Transfer"},
        {63, "OEM Specific"},
    };
    return find_name(names, type, "reserved");
}

std::string pldm_base_command_name(uint8_t command) {
    static constexpr Name names[] = {
        {0x01, "SetTID"},
        {0x02, "GetTID"},
        {0x03, "GetPLDMVersion"},
        {0x04, "GetPLDMTypes"},
        {0x05, "GetPLDMCommands"},
        {0x06, "SelectPLDMVersion"},
        {0x07, "NegotiateTransferParameters"},
        {0x08, "MultipartSend"},
        {0x09, "MultipartReceive"},
        {0x0A, "GetMultipartTransferSupport"},
    };
    return find_name(names, command, "unknown");
}

std::string pldm_code_name(uint8_t type, uint8_t command, uint8_t code) {
    static constexpr Name names[] = {
        {PLDM_CC_SUCCESS, "SUCCESS"},
        {PLDM_CC_ERROR, "ERROR"},
        {PLDM_CC_INVALID_DATA, "ERROR_INVALID_DATA"},
        {PLDM_CC_INVALID_LENGTH, "ERROR_INVALID_LENGTH"},
        {PLDM_CC_NOT_READY, "ERROR_NOT_READY"},
        {PLDM_CC_UNSUPPORTED_COMMAND, "ERROR_UNSUPPORTED_PLDM_CMD"},
        {0x20, "ERROR_INVALID_PLDM_TYPE"},
    };
    // Firmware update has codes for the type as a whole (DSP0267, completion codes).
    static constexpr Name firmware_names[] = {
        {0x80, "NOT_IN_UPDATE_MODE"},
        {0x81, "ALREADY_IN_UPDATE_MODE"},
        {0x82, "DATA_OUT_OF_RANGE"},
        {0x83, "INVALID_TRANSFER_LENGTH"},
        {0x84, "INVALID_STATE_FOR_COMMAND"},
        {0x85, "INCOMPLETE_UPDATE"},
        {0x86, "BUSY_IN_BACKGROUND"},
        {0x87, "CANCEL_PENDING"},
        {0x88, "COMMAND_NOT_EXPECTED"},
        {0x89, "RETRY_REQUEST_FW_DATA"},
        {0x8A, "UNABLE_TO_INITIATE_UPDATE"},
        {0x8B, "ACTIVATION_NOT_REQUIRED"},
        {0x8C, "SELF_CONTAINED_ACTIVATION_NOT_PERMITTED"},
        {0x8D, "NO_DEVICE_METADATA"},
        {0x8E, "RETRY_REQUEST_UPDATE"},
        {0x8F, "NO_PACKAGE_DATA"},
        {0x90, "INVALID_DATA_TRANSFER_HANDLE"},
        {0x91, "INVALID_TRANSFER_OPERATION_FLAG"},
    };
    if (type == PLDM_TYPE_FW_UPDATE && code >= 0x80) {
        return find_name(firmware_names, code, "command specific");
    }
    for (const CommandCode& own : command_codes) {
        if (own.type == type && own.command == command && own.code == code) {
            return own.text;
        }
    }
    return find_name(names, code, code >= 0x80 ? "command specific" : "reserved");
}

std::string pldm_firmware_command_name(uint8_t command) {
    static constexpr Name names[] = {
        {0x01, "QueryDeviceIdentifiers"}, {0x02, "GetFirmwareParameters"},
        {0x10, "RequestUpdate"},          {0x11, "GetPackageData"},
        {0x12, "GetDeviceMetaData"},      {0x13, "PassComponentTable"},
        {0x14, "UpdateComponent"},        {0x15, "RequestFirmwareData"},
        {0x16, "TransferComplete"},       {0x17, "VerifyComplete"},
        {0x18, "ApplyComplete"},          {0x19, "GetMetaData"},
        {0x1A, "ActivateFirmware"},       {0x1B, "GetStatus"},
        {0x1C, "CancelUpdateComponent"},  {0x1D, "CancelUpdate"},
    };
    return find_name(names, command, "unknown");
}

std::string operational_state_name(uint8_t state) {
    static constexpr Name names[] = {
        {0, "enabled"}, {1, "disabled"},     {2, "unavailable"},  {3, "statusUnknown"},
        {4, "failed"},  {5, "initializing"}, {6, "shuttingDown"}, {7, "inTest"},
    };
    return find_name(names, state, "reserved");
}

std::string numeric_state_name(uint8_t state) {
    static constexpr Name names[] = {
        {0, "Unknown"},      {1, "Normal"},        {2, "Warning"},       {3, "Critical"},
        {4, "Fatal"},        {5, "LowerWarning"},  {6, "LowerCritical"}, {7, "LowerFatal"},
        {8, "UpperWarning"}, {9, "UpperCritical"}, {10, "UpperFatal"},
    };
    return find_name(names, state, "reserved");
}

std::string state_name(uint16_t state_set, uint8_t state) {
    static constexpr Name health[] = {
        {1, "Normal"},         {2, "Non-Critical"},       {3, "Critical"},
        {4, "Fatal"},          {5, "Upper Non-Critical"}, {6, "Lower Non-Critical"},
        {7, "Upper Critical"}, {8, "Lower Critical"},     {9, "Upper Fatal"},
        {10, "Lower Fatal"},
    };
    static constexpr Name fault[] = {{1, "Normal"}, {2, "Error"}, {3, "Non Recoverable Error"}};
    static constexpr Name presence[] = {{1, "Present"}, {2, "Not Present"}};
    static constexpr Name performance[] = {{1, "Normal"}, {2, "Throttled"}, {3, "Degraded"}};
    static constexpr Name configuration[] = {{1, "Valid Configuration"},
                                             {2, "Invalid Configuration"},
                                             {3, "Not Configured"},
                                             {4, "Missing Configuration"}};
    static constexpr Name identify[] = {{1, "Unasserted"}, {2, "Asserted"}};
    static constexpr Name initialization[] = {{1, "Normal"},
                                              {2, "Initialization In Progress"},
                                              {3, "Initialization Hung"},
                                              {4, "Initialization Failed"}};
    static constexpr Name thermal_trip[] = {{1, "Normal"}, {2, "Over-temperature Shutdown"}};
    static constexpr Name link_state[] = {{1, "Connected"}, {2, "Disconnected"}};
    static constexpr struct {
        uint16_t id;
        std::span<const Name> states;
    } sets[] = {
        {1, health},          {10, fault},         {13, presence},
        {14, performance},    {15, configuration}, {17, identify},
        {20, initialization}, {21, thermal_trip},  {33, link_state},
    };
    for (const auto& set : sets) {
        if (set.id == state_set) {
            return find_name(set.states, state, "");
        }
    }
    return {};
}

std::string ncsi_response_name(uint16_t code) {
    static constexpr Name names[] = {
        {0x0000, "Command Completed"},   {0x0001, "Command Failed"},
        {0x0002, "Command Unavailable"}, {0x0003, "Command Unsupported"},
        {0x0004, "Delayed Response"},
    };
    return find_name(names, code, code >= 0x8000 ? "vendor specific" : "reserved");
}

std::string ncsi_reason_name(uint16_t code) {
    static constexpr Name names[] = {
        {0x0000, "No Error"},
        {0x0001, "Interface Initialization Required"},
        {0x0002, "Parameter Is Invalid, Unsupported, or Out-of-Range"},
        {0x0003, "Channel Not Ready"},
        {0x0004, "Package Not Ready"},
        {0x0005, "Invalid payload length"},
        {0x0006, "Information not available"},
        {0x0A06, "Link Command Failed-Hardware Access Error"},
        {0x7FFF, "Unknown / Unsupported Command Type"},
    };
    return find_name(names, code, code >= 0x8000 ? "vendor specific" : "command specific");
}

std::string ncsi_speed_name(uint8_t speed) {
    static constexpr Name names[] = {
        {0x00, "not known"},
        {0x01, "10BASE-T half-duplex"},
        {0x02, "10BASE-T full-duplex"},
        {0x03, "100BASE-TX half-duplex"},
        {0x04, "100BASE-T4"},
        {0x05, "100BASE-TX full-duplex"},
        {0x06, "1000BASE-T half-duplex"},
        {0x07, "1000BASE-T full-duplex"},
        {0x08, "10 Gbps"},
        {0x09, "20 Gbps"},
        {0x0A, "25 Gbps"},
        {0x0B, "40 Gbps"},
        {0x0C, "50 Gbps"},
        {0x0D, "100 Gbps"},
        {0x0E, "2.5 Gbps"},
    };
    // The table goes on in newer revisions of DSP0222.
    const std::string name = find_name(names, speed, "");
    return name.empty() ? fmt::format("speed 0x{:02x}", speed) : name;
}

}  // namespace tool
