// SPDX-License-Identifier: Apache-2.0
// Names that the PLDM standards give to codes: types, base commands, states, FRU fields.
#include "tools/pldm/codes.h"

#include <fmt/format.h>

#include "tools/shell/name_table.h"

namespace tool {

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
