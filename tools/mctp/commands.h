// SPDX-License-Identifier: Apache-2.0
// The commands of MCTP: scan, mctp and raw.
#ifndef SIDEBAND_TOOLS_MCTP_COMMANDS_H
#define SIDEBAND_TOOLS_MCTP_COMMANDS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/shell/command.h"

namespace tool {

class Commands;

void add_mctp_commands(const Commands& commands);

/// @param bus  the I2C bus whose endpoints are looked at; nothing for all endpoints
void run_scan(Context& context, std::optional<uint32_t> bus);
void run_mctp_eid(Context& context, const std::string& endpoint);
void run_mctp_uuid(Context& context, const std::string& endpoint);
void run_mctp_routes(Context& context, const std::string& endpoint);

/// @param type    a message type by name or number
/// @param pieces  the message body in hex, in pieces
void run_raw(Context& context, const std::string& endpoint, const std::string& type,
             const std::vector<std::string>& pieces);

}  // namespace tool

#endif
