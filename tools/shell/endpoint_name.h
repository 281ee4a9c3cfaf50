// SPDX-License-Identifier: Apache-2.0
// Endpoints by name: the board's device names, i2c:BUS:ADDRESS, pcie:BB:DD.F, mctp:NET,EID.
#ifndef SIDEBAND_TOOLS_SHELL_ENDPOINT_NAME_H
#define SIDEBAND_TOOLS_SHELL_ENDPOINT_NAME_H

#include <string>
#include <string_view>

#include "tools/shell/port.h"

namespace tool {

/// How every ENDPOINT argument is explained.
inline constexpr const char* kEndpointHelp =
    "a device of the board by its name, or i2c:BUS:ADDRESS (8-bit address), or pcie:BB:DD.F, or "
    "mctp:NET,EID";

/// The endpoint that an argument names, under that name. If the board describes what is at an
/// address, its settings are used; else the address is tried plainly. Throws Failure: usage for a
/// malformed name, failed for a device that the board does not have and for a way that the platform
/// does not go.
Endpoint find_endpoint(const Port& port, std::string_view name);

/// Where an endpoint is, in the form that find_endpoint() reads.
std::string endpoint_location(const Endpoint& endpoint);

}  // namespace tool

#endif
