// SPDX-License-Identifier: Apache-2.0
// Names that the standards of PLDM give to codes: types, commands, completion codes, states, FRUs.
#include <fmt/format.h>
#include <sideband/pldm.h>

#include "tools/shell/codes.h"
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

// Where the values of vendors begin in the results that a firmware device reports.
constexpr uint8_t kFirstVendorTransferResult = 0x70;
constexpr uint8_t kFirstVendorVerifyResult = 0x90;
constexpr uint8_t kFirstVendorApplyResult = 0xB0;

/// Each report has 32 values for vendors.
const char* unnamed_result(uint8_t result, uint8_t first_of_vendors) {
    constexpr unsigned kVendorResults = 0x20;
    const bool vendor = result >= first_of_vendors && result < first_of_vendors + kVendorResults;
    return vendor ? "vendor defined" : "";
}

}  // namespace

std::string pldm_type_name(uint8_t type) {
    static constexpr Name kNames[] = {
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
    return find_name(kNames, type, "reserved");
}

std::string pldm_base_command_name(uint8_t command) {
    static constexpr Name kNames[] = {
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
    return find_name(kNames, command, "unknown");
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

std::string pldm_firmware_command_name(uint8_t command) {
    static constexpr Name kNames[] = {
        {0x01, "QueryDeviceIdentifiers"},
        {0x02, "GetFirmwareParameters"},
        {0x03, "QueryDownstreamDevices"},
        {0x04, "QueryDownstreamIdentifiers"},
        {0x05, "GetDownstreamFirmwareParameters"},
        {0x10, "RequestUpdate"},
        {0x11, "GetPackageData"},
        {0x12, "GetDeviceMetaData"},
        {0x13, "PassComponentTable"},
        {0x14, "UpdateComponent"},
        {0x15, "RequestFirmwareData"},
        {0x16, "TransferComplete"},
        {0x17, "VerifyComplete"},
        {0x18, "ApplyComplete"},
        {0x19, "GetMetaData"},
        {0x1A, "ActivateFirmware"},
        {0x1B, "GetStatus"},
        {0x1C, "CancelUpdateComponent"},
        {0x1D, "CancelUpdate"},
        {0x1E, "ActivatePendingComponentImageSet"},
        {0x1F, "ActivatePendingComponentImage"},
        {0x20, "RequestDownstreamDeviceUpdate"},
        {0x21, "GetComponentOpaqueData"},
        {0x22, "UpdateSecurityRevision"},
    };
    return find_name(kNames, command, "unknown");
}

std::string activation_method_name(uint8_t bit) {
    static constexpr Name kNames[] = {
        {0, "automatic"},
        {1, "self-contained"},
        {2, "medium-specific reset"},
        {3, "system reboot"},
        {4, "DC power cycle"},
        {5, "AC power cycle"},
        {6, "supports activate pending image"},
        {7, "supports activate pending component image set"},
    };
    return find_name(kNames, bit, "");
}

std::string component_refusal_text(uint8_t code) {
    static constexpr Name kNames[] = {
        {0x01, "its comparison stamp is that of the firmware in the device"},
        {0x02, "its comparison stamp is lower than that of the firmware in the device"},
        {0x03, "its comparison stamp or its version is invalid"},
        {0x04, "it conflicts with another component"},
        {0x05, "what it needs has not been met"},
        {0x06, "the device does not support it"},
        {0x07, "the device's security does not allow it"},
        {0x08, "the set of components is incomplete"},
        {0x09, "it is not what PassComponentTable announced"},
        {0x0A, "its version is that of the firmware in the device"},
        {0x0B, "its version is lower than that of the firmware in the device"},
    };
    const bool vendor = code >= 0xD0 && code <= 0xEF;
    return find_name(kNames, code, vendor ? "for a reason of its vendor's" : "");
}

std::string transfer_result_name(uint8_t result) {
    static constexpr Name kNames[] = {
        {0x00, "transfer completed without error"},
        {0x01, "image corrupt"},
        {0x02, "version mismatch"},
        {0x03, "FD aborted transfer"},
        {0x09, "time-out"},
        {0x0A, "generic error"},
        {0x0B, "FD aborted transfer: low power state"},
        {0x0C, "FD aborted transfer: reset needed"},
        {0x0D, "FD aborted transfer: storage issue"},
        {0x0E, "FD aborted transfer: invalid component opaque data"},
        {0x0F, "FD aborted transfer: downstream device failure"},
        {0x10, "FD aborted transfer: security revision error"},
    };
    return find_name(kNames, result, unnamed_result(result, kFirstVendorTransferResult));
}

std::string verify_result_name(uint8_t result) {
    static constexpr Name kNames[] = {
        {0x00, "verify completed without error"},
        {0x01, "verification failure"},
        {0x02, "version mismatch"},
        {0x03, "failed FD security checks"},
        {0x04, "image incomplete"},
        {0x09, "time-out"},
        {0x0A, "generic error"},
        {0x10, "security revision error"},
    };
    return find_name(kNames, result, unnamed_result(result, kFirstVendorVerifyResult));
}

std::string apply_result_name(uint8_t result) {
    static constexpr Name kNames[] = {
        {0x00, "apply completed without error"},
        {0x01, "apply completed, activation method modified"},
        {0x02, "memory write issue"},
        {0x09, "time-out"},
        {0x0A, "generic error"},
        {0x10, "security revision error"},
    };
    return find_name(kNames, result, unnamed_result(result, kFirstVendorApplyResult));
}

std::string operational_state_name(uint8_t state) {
    static constexpr Name kNames[] = {
        {0, "enabled"}, {1, "disabled"},     {2, "unavailable"},  {3, "statusUnknown"},
        {4, "failed"},  {5, "initializing"}, {6, "shuttingDown"}, {7, "inTest"},
    };
    return find_name(kNames, state, "reserved");
}

std::string numeric_state_name(uint8_t state) {
    static constexpr Name kNames[] = {
        {0, "Unknown"},      {1, "Normal"},        {2, "Warning"},       {3, "Critical"},
        {4, "Fatal"},        {5, "LowerWarning"},  {6, "LowerCritical"}, {7, "LowerFatal"},
        {8, "UpperWarning"}, {9, "UpperCritical"}, {10, "UpperFatal"},
    };
    return find_name(kNames, state, "reserved");
}

std::string fru_record_type_name(uint8_t type) {
    static constexpr Name kNames[] = {{1, "General"}, {254, "OEM"}};
    return find_name(kNames, type, "reserved");
}

std::string fru_field_name(uint8_t record_type, uint8_t field_type) {
    constexpr uint8_t kGeneralRecord = 1;
    constexpr uint8_t kOemRecord = 254;
    static constexpr Name kGeneral[] = {
        {1, "Chassis Type"},
        {2, "Model"},
        {3, "Part Number"},
        {4, "Serial Number"},
        {5, "Manufacturer"},
        {6, "Manufacture Date"},
        {7, "Vendor"},
        {8, "Name"},
        {9, "SKU"},
        {10, "Version"},
        {11, "Asset Tag"},
        {12, "Description"},
        {13, "Engineering Change Level"},
        {14, "Other Information"},
        {15, "Vendor IANA"},
    };
    static constexpr Name kOem[] = {{1, "Vendor IANA"}};
    const std::string otherwise = fmt::format("field {}", field_type);
    if (record_type == kGeneralRecord) {
        return find_name(kGeneral, field_type, otherwise.c_str());
    }
    return record_type == kOemRecord ? find_name(kOem, field_type, otherwise.c_str()) : otherwise;
}

}  // namespace tool
