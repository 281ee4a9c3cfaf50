// SPDX-License-Identifier: Apache-2.0
// Names that the standards of MCTP and NC-SI give to codes: commands, completion codes, types.
#include "tools/shell/codes.h"

#include <fmt/format.h>

#include "tools/shell/name_table.h"

namespace tool {

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

std::string message_type_name(uint8_t type) {
    static constexpr Name kNames[] = {
        {0x00, "control"}, {0x01, "pldm"},    {0x02, "ncsi"},       {0x03, "ethernet"},
        {0x04, "nvme-mi"}, {0x05, "spdm"},    {0x06, "secured"},    {0x07, "cxl-fm-api"},
        {0x08, "cxl-cci"}, {0x09, "pcie-mi"}, {0x7E, "vendor-pci"}, {0x7F, "vendor-iana"},
    };
    return find_name(kNames, type & 0x7F, "unknown");
}

std::string endpoint_type_name(uint8_t type) {
    static constexpr const char* kNames[] = {"simple endpoint", "bus owner or bridge", "reserved",
                                             "reserved"};
    return kNames[type & 3];
}

std::string eid_type_name(uint8_t type) {
    static constexpr const char* kNames[] = {"dynamic", "static", "static, at its own value",
                                             "static, at another value"};
    return kNames[type & 3];
}

std::string routing_entry_type_name(uint8_t type) {
    static constexpr const char* kNames[] = {"endpoint", "bridge and endpoints", "bridge",
                                             "endpoints behind a bridge"};
    return kNames[type & 3];
}

std::string binding_type_name(uint8_t type) {
    static constexpr Name kNames[] = {
        {0x01, "SMBus"},  {0x02, "PCIe VDM"},
        {0x03, "USB"},    {0x04, "KCS"},
        {0x05, "Serial"}, {0x06, "I3C"},
        {0x07, "MMBI"},   {0x08, "PCC"},
        {0x09, "UCIe"},   {0xFF, "vendor defined"},
    };
    const std::string name = find_name(kNames, type, "");
    return name.empty() ? fmt::format("0x{:02x}", type) : name;
}

std::string ncsi_response_name(uint16_t code) {
    static constexpr Name kNames[] = {
        {0x0000, "Command Completed"},   {0x0001, "Command Failed"},
        {0x0002, "Command Unavailable"}, {0x0003, "Command Unsupported"},
        {0x0004, "Delayed Response"},
    };
    return find_name(kNames, code, code >= 0x8000 ? "vendor specific" : "reserved");
}

std::string ncsi_reason_name(uint16_t code) {
    // From 0x0100 on the upper byte is the command.
    static constexpr Name kNames[] = {
        {0x0000, "No Error"},
        {0x0001, "Interface Initialization Required"},
        {0x0002, "Parameter Is Invalid, Unsupported, or Out-of-Range"},
        {0x0003, "Channel Not Ready"},
        {0x0004, "Package Not Ready"},
        {0x0005, "Invalid payload length"},
        {0x0006, "Information not available"},
        {0x0007, "Intervention Required"},
        {0x0008, "Link Command Failed-Hardware Access Error"},
        {0x0009, "Command Timeout"},
        {0x000A, "Secondary Device Not Powered"},
        {0x0901, "Set Link Host OS/Driver Conflict"},
        {0x0902, "Set Link Media Conflict"},
        {0x0903, "Set Link Parameter Conflict"},
        {0x0904, "Set Link Power Mode Conflict"},
        {0x0905, "Set Link Speed Conflict"},
        {0x0906, "Link Command Failed-Hardware Access Error"},
        {0x0907, "Set Link Serdes Conflict"},
        {0x0908, "Set Link FEC Conflict"},
        {0x0909, "Set Link EEE Conflict"},
        {0x090A, "Set Link LT Conflict"},
        {0x090B, "Set Link Parallel Detection Conflict"},
        {0x0A06, "Link Command Failed-Hardware Access Error"},
        {0x0B07, "VLAN Tag Is Invalid"},
        {0x0E08, "MAC Address Is Zero"},
        {0x1409, "Independent transmit and receive enable/disable control is not supported"},
        {0x7FFF, "Unknown / Unsupported Command Type"},
    };
    return find_name(kNames, code,
                     code >= 0x8000   ? "vendor specific"
                     : code >= 0x0100 ? "command specific"
                                      : "reserved");
}

std::string ncsi_speed_name(uint8_t speed) {
    static constexpr Name kNames[] = {
        {0x00, "Auto-negotiate not complete"},
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
        {0x0F, "5 Gbps"},
        {0x10, "1 Gbps (non BASE-T)"},
        {0x11, "200 Gbps"},
        {0x12, "400 Gbps"},
        {0x13, "800 Gbps"},
    };
    // The table goes on in newer revisions of DSP0222.
    const std::string name = find_name(kNames, speed, "");
    return name.empty() ? fmt::format("speed 0x{:02x}", speed) : name;
}

}  // namespace tool
