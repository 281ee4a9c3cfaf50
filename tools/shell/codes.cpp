// SPDX-License-Identifier: Apache-2.0
// Names of what every room meets: message types, and the completion codes of MCTP control and PLDM.
#include "tools/shell/codes.h"

#include <sideband/pldm.h>

#include "tools/shell/name_table.h"

namespace tool {
namespace {

/// A completion code that one command of one PLDM type has for itself.
struct CommandCode {
    uint8_t type;
    uint8_t command;
    uint8_t code;
    const char* text;
};

constexpr CommandCode kCommandCodes[] = {
    {PLDM_TYPE_BASE, 0x03, 0x80, "INVALID_DATA_TRANSFER_HANDLE"},
    {PLDM_TYPE_BASE, 0x03, 0x81, "INVALID_TRANSFER_OPERATION_FLAG"},
    {PLDM_TYPE_BASE, 0x03, 0x83, "INVALID_PLDM_TYPE_IN_REQUEST_DATA"},
    {PLDM_TYPE_BASE, 0x05, 0x83, "INVALID_PLDM_TYPE_IN_REQUEST_DATA"},
    {PLDM_TYPE_BASE, 0x05, 0x84, "INVALID_PLDM_VERSION_IN_REQUEST_DATA"},
    {PLDM_TYPE_BASE, 0x06, 0x83, "INVALID_PLDM_TYPE_IN_REQUEST_DATA"},
    {PLDM_TYPE_BASE, 0x06, 0x84, "INVALID_PLDM_VERSION_IN_REQUEST_DATA"},
    {PLDM_TYPE_BASE, 0x08, 0x83, "NEGOTIATION_INCOMPLETE"},
    {PLDM_TYPE_BASE, 0x09, 0x83, "NEGOTIATION_INCOMPLETE"},
    {PLDM_TYPE_BASE, 0x0A, 0x83, "INVALID_PLDM_TYPE_IN_REQUEST_DATA"},
    {PLDM_TYPE_BASE, 0x0A, 0x84, "INVALID_PLDM_VERSION_IN_REQUEST_DATA"},
    {PLDM_TYPE_MONITOR, 0x04, 0x80, "INVALID_PROTOCOL_TYPE"},
    {PLDM_TYPE_MONITOR, 0x04, 0x81, "ENABLE_METHOD_NOT_SUPPORTED"},
    {PLDM_TYPE_MONITOR, 0x04, 0x82, "HEARTBEAT_FREQUENCY_TOO_HIGH"},
    {PLDM_TYPE_MONITOR, 0x0A, 0x81, "UNSUPPORTED_EVENT_FORMAT_VERSION"},
    {PLDM_TYPE_MONITOR, 0x0B, 0x81, "UNSUPPORTED_EVENT_FORMAT_VERSION"},
    {PLDM_TYPE_MONITOR, 0x0B, 0x82, "EVENT_ID_NOT_VALID"},
    {PLDM_TYPE_MONITOR, 0x0C, 0x81, "UNSUPPORTED_EVENT_FORMAT_VERSION"},
    {PLDM_TYPE_MONITOR, 0x10, 0x80, "INVALID_SENSOR_ID"},
    {PLDM_TYPE_MONITOR, 0x10, 0x81, "INVALID_SENSOR_OPERATIONAL_STATE"},
    {PLDM_TYPE_MONITOR, 0x10, 0x82, "EVENT_GENERATION_NOT_SUPPORTED"},
    {PLDM_TYPE_MONITOR, 0x11, 0x80, "INVALID_SENSOR_ID"},
    {PLDM_TYPE_MONITOR, 0x11, 0x81, "REARM_UNAVAILABLE_IN_PRESENT_STATE"},
    {PLDM_TYPE_MONITOR, 0x13, 0x80, "INVALID_SENSOR_ID"},
    {PLDM_TYPE_MONITOR, 0x14, 0x80, "INVALID_SENSOR_ID"},
    {PLDM_TYPE_MONITOR, 0x15, 0x80, "INVALID_SENSOR_ID"},
    {PLDM_TYPE_MONITOR, 0x16, 0x80, "INVALID_SENSOR_ID"},
    {PLDM_TYPE_MONITOR, 0x17, 0x80, "INVALID_SENSOR_ID"},
    {PLDM_TYPE_MONITOR, 0x20, 0x80, "INVALID_SENSOR_ID"},
    {PLDM_TYPE_MONITOR, 0x20, 0x81, "INVALID_SENSOR_OPERATIONAL_STATE"},
    {PLDM_TYPE_MONITOR, 0x20, 0x82, "EVENT_GENERATION_NOT_SUPPORTED"},
    {PLDM_TYPE_MONITOR, 0x21, 0x80, "INVALID_SENSOR_ID"},
    {PLDM_TYPE_MONITOR, 0x22, 0x80, "INVALID_SENSOR_ID"},
    {PLDM_TYPE_MONITOR, 0x22, 0x81, "UNSUPPORTED_SENSOR_STATE"},
    {PLDM_TYPE_MONITOR, 0x30, 0x80, "INVALID_EFFECTER_ID"},
    {PLDM_TYPE_MONITOR, 0x31, 0x80, "INVALID_EFFECTER_ID"},
    {PLDM_TYPE_MONITOR, 0x32, 0x80, "INVALID_EFFECTER_ID"},
    {PLDM_TYPE_MONITOR, 0x38, 0x80, "INVALID_EFFECTER_ID"},
    {PLDM_TYPE_MONITOR, 0x39, 0x80, "INVALID_EFFECTER_ID"},
    {PLDM_TYPE_MONITOR, 0x39, 0x81, "INVALID_STATE_VALUE"},
    {PLDM_TYPE_MONITOR, 0x39, 0x82, "UNSUPPORTED_EFFECTERSTATE"},
    {PLDM_TYPE_MONITOR, 0x3A, 0x80, "INVALID_EFFECTER_ID"},
    {PLDM_TYPE_MONITOR, 0x45, 0x81, "INVALID_TRANSFER_OPERATION_FLAG"},
    {PLDM_TYPE_MONITOR, 0x45, 0x82, "INVALID_ENTRY_ID"},
    {PLDM_TYPE_MONITOR, 0x48, 0x80, "INVALID_SEARCH_TYPE"},
    {PLDM_TYPE_MONITOR, 0x51, 0x80, "INVALID_DATA_TRANSFER_HANDLE"},
    {PLDM_TYPE_MONITOR, 0x51, 0x81, "INVALID_TRANSFER_OPERATION_FLAG"},
    {PLDM_TYPE_MONITOR, 0x51, 0x82, "INVALID_RECORD_HANDLE"},
    {PLDM_TYPE_MONITOR, 0x51, 0x83, "INVALID_RECORD_CHANGE_NUMBER"},
    {PLDM_TYPE_MONITOR, 0x51, 0x84, "TRANSFER_TIMEOUT"},
    {PLDM_TYPE_MONITOR, 0x51, 0x85, "REPOSITORY_UPDATE_IN_PROGRESS"},
    {PLDM_TYPE_MONITOR, 0x52, 0x80, "INVALID_FIND_HANDLE"},
    {PLDM_TYPE_MONITOR, 0x52, 0x81, "INVALID_FIND_OPERATION_FLAG"},
    {PLDM_TYPE_MONITOR, 0x52, 0x82, "INVALID_PDR_TYPE"},
    {PLDM_TYPE_MONITOR, 0x52, 0x83, "INVALID_PARAMETER_FORMAT_NUMBER"},
    {PLDM_TYPE_MONITOR, 0x52, 0x84, "INVALID_FIND_PARAMETERS"},
    {PLDM_TYPE_MONITOR, 0x52, 0x85, "REPOSITORY_UPDATE_IN_PROGRESS"},
};

constexpr Name kBaseCodes[] = {
    {PLDM_CC_SUCCESS, "SUCCESS"},
    {PLDM_CC_ERROR, "ERROR"},
    {PLDM_CC_INVALID_DATA, "ERROR_INVALID_DATA"},
    {PLDM_CC_INVALID_LENGTH, "ERROR_INVALID_LENGTH"},
    {PLDM_CC_NOT_READY, "ERROR_NOT_READY"},
    {PLDM_CC_UNSUPPORTED_COMMAND, "ERROR_UNSUPPORTED_PLDM_CMD"},
    {0x20, "ERROR_INVALID_PLDM_TYPE"},
    {0x21, "ERROR_INVALID_TRANSFER_CONTEXT"},
    {0x22, "ERROR_INVALID_DATA_TRANSFER_HANDLE"},
    {0x23, "ERROR_UNEXPECTED_TRANSFER_FLAG_OPERATION"},
    {0x24, "ERROR_INVALID_REQUESTED_SECTION_OFFSET"},
};

// FRU data and firmware update number their codes for the type as a whole (DSP0257 and DSP0267,
// completion codes).
constexpr Name kFruCodes[] = {
    {0x80, "INVALID_DATA_TRANSFER_HANDLE"}, {0x81, "INVALID_TRANSFER_OPERATION_FLAG"},
    {0x82, "INVALID_TRANSFER_FLAG"},        {0x83, "NO_FRU_DATA_STRUCTURE_TABLE_METADATA"},
    {0x84, "INVALID_DATA_INTEGRITY_CHECK"}, {0x85, "FRU_DATA_STRUCTURE_TABLE_UNAVAILABLE"},
};

constexpr Name kFirmwareCodes[] = {
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
    {0x90, "INVALID_TRANSFER_HANDLE"},
    {0x91, "INVALID_TRANSFER_OPERATION_FLAG"},
    {0x92, "ACTIVATE_PENDING_IMAGE_NOT_PERMITTED"},
    {0x93, "PACKAGE_DATA_ERROR"},
    {0x94, "NO_OPAQUE_DATA"},
    {0x95, "UPDATE_SECURITY_REVISION_NOT_PERMITTED"},
    {0x96, "DOWNSTREAM_DEVICE_LIST_CHANGED"},
};

}  // namespace

std::string message_type_name(uint8_t type) {
    static constexpr Name kNames[] = {
        {0x00, "control"}, {0x01, "pldm"},    {0x02, "ncsi"},       {0x03, "ethernet"},
        {0x04, "nvme-mi"}, {0x05, "spdm"},    {0x06, "secured"},    {0x07, "cxl-fm-api"},
        {0x08, "cxl-cci"}, {0x09, "pcie-mi"}, {0x7E, "vendor-pci"}, {0x7F, "vendor-iana"},
    };
    return find_name(kNames, type & 0x7F, "unknown");
}

std::string message_types_text(std::span<const uint8_t> types) {
    std::string text;
    for (const uint8_t type : types) {
        text += (text.empty() ? "" : " ") + message_type_name(type);
    }
    return text.empty() ? "-" : text;
}

std::string control_command_name(uint8_t command) {
    static constexpr Name kNames[] = {
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
        {0x0E, "Get Network ID"},
        {0x0F, "Query Hop"},
        {0x10, "Resolve UUID"},
        {0x11, "Query Rate Limit"},
        {0x12, "Request TX Rate Limit"},
        {0x13, "Update Rate Limit"},
        {0x14, "Query Supported Interfaces"},
    };
    return find_name(kNames, command, "MCTP control command");
}

std::string control_code_name(uint8_t code) {
    static constexpr Name kNames[] = {
        {0x00, "SUCCESS"},
        {0x01, "ERROR"},
        {0x02, "ERROR_INVALID_DATA"},
        {0x03, "ERROR_INVALID_LENGTH"},
        {0x04, "ERROR_NOT_READY"},
        {0x05, "ERROR_UNSUPPORTED_CMD"},
    };
    return find_name(kNames, code, code >= 0x80 ? "command specific" : "reserved");
}

std::string pldm_code_name(uint8_t type, uint8_t command, uint8_t code) {
    constexpr const char* kOwn = "command specific";
    if (code < 0x80) {
        return find_name(kBaseCodes, code, "reserved");
    }
    if (type == PLDM_TYPE_FRU) {
        return find_name(kFruCodes, code, kOwn);
    }
    if (type == PLDM_TYPE_FW_UPDATE) {
        return find_name(kFirmwareCodes, code, kOwn);
    }
    for (const CommandCode& one : kCommandCodes) {
        if (one.type == type && one.command == command && one.code == code) {
            return one.text;
        }
    }
    return kOwn;
}

}  // namespace tool
