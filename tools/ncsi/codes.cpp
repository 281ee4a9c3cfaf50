// SPDX-License-Identifier: Apache-2.0
// Names that the standard of NC-SI gives to codes: responses, reasons, link speeds.
#include "tools/ncsi/codes.h"

#include <fmt/format.h>

#include <iterator>

#include "tools/shell/name_table.h"

namespace tool {

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

uint64_t ncsi_bits_per_second(uint8_t speed) {
    // In Mbps, by the codes of ncsi_speed_name().
    static constexpr uint64_t kMegabits[] = {0,    10,    10,    100,    100,    100,   1000,
                                             1000, 10000, 20000, 25000,  40000,  50000, 100000,
                                             2500, 5000,  1000,  200000, 400000, 800000};
    constexpr uint64_t kMega = 1000000;
    return speed < std::size(kMegabits) ? kMegabits[speed] * kMega : 0;
}

}  // namespace tool
