// SPDX-License-Identifier: Apache-2.0
// Names that the MCTP standards give to types: of endpoints, routing entries, bindings.
#include "tools/mctp/codes.h"

#include <fmt/format.h>

#include "tools/shell/name_table.h"

namespace tool {

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

}  // namespace tool
