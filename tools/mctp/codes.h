// SPDX-License-Identifier: Apache-2.0
// Names that the MCTP standards give to types: of endpoints, routing entries, bindings.
#ifndef SIDEBAND_TOOLS_MCTP_CODES_H
#define SIDEBAND_TOOLS_MCTP_CODES_H

#include <cstdint>
#include <string>

namespace tool {

/// Get Endpoint ID and Get Routing Table Entries: DSP0236. The upper bits of a type are left out of
/// account.
std::string endpoint_type_name(uint8_t type);
std::string eid_type_name(uint8_t type);
std::string routing_entry_type_name(uint8_t type);

/// Physical transport binding identifiers: DSP0239. The number if there is no name.
std::string binding_type_name(uint8_t type);

}  // namespace tool

#endif
