// SPDX-License-Identifier: Apache-2.0
// The commands pldm, but for those of firmware.
#ifndef SIDEBAND_TOOLS_PLDM_COMMANDS_H
#define SIDEBAND_TOOLS_PLDM_COMMANDS_H

#include <cstdint>
#include <string>
#include <vector>

#include "tools/shell/command.h"

namespace tool {

class Commands;

void add_pldm_commands(const Commands& commands);

void run_pldm_info(Context& context, const std::string& endpoint);

/// How often sensors are read: once, or again and again.
struct Watch {
    double seconds = 0;  ///< pause between two readings; 0: read once
    uint32_t count = 0;  ///< readings; 0: until interrupted
};

/// @param ids  sensors such as "12" and "state:5"; empty for those in the PDR repository, or if
///             there is none for those that the board describes
void run_pldm_sensors(Context& context, const std::string& endpoint,
                      const std::vector<std::string>& ids, const Watch& watch);

// PDRs. @param handle  of the one record wanted; empty for all of them.
void run_pldm_pdr_list(Context& context, const std::string& endpoint, const std::string& handle);
void run_pldm_pdr_show(Context& context, const std::string& endpoint, const std::string& handle);
void run_pldm_pdr_dump(Context& context, const std::string& endpoint, const std::string& handle);

/// @param fixed_parts  the device sends the FRU table in answers of one size
void run_pldm_fru(Context& context, const std::string& endpoint, bool fixed_parts);

}  // namespace tool

#endif
