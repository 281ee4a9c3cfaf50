// SPDX-License-Identifier: Apache-2.0
// The commands ncsi. Each brings up the channels of the controller first.
#ifndef SIDEBAND_TOOLS_NCSI_COMMANDS_H
#define SIDEBAND_TOOLS_NCSI_COMMANDS_H

#include <cstdint>
#include <optional>
#include <string>

#include "tools/shell/command.h"

namespace tool {

class Commands;

void add_ncsi_commands(const Commands& commands);

void run_ncsi_discover(Context& context, const std::string& endpoint);
/// @param channel  number of the one channel wanted; nothing for all of them
void run_ncsi_link(Context& context, const std::string& endpoint, std::optional<unsigned> channel);
/// @param select  false to deselect the package
void run_ncsi_package(Context& context, const std::string& endpoint, unsigned package, bool select);

/// A flag and a value that an OEM command reads and another one writes.
enum class OemSetting { kBrcmPreboot, kMlxTlv };

/// What an OEM command is to do, as far as the command has such an option.
struct OemWish {
    std::optional<unsigned> channel;  ///< number of the channel; nothing for the first
    std::optional<unsigned> flag;     ///< 0 or 1
    std::optional<unsigned> value;
    uint8_t sensor = 0;
};

void run_ncsi_oem_get(Context& context, const std::string& endpoint, OemSetting which,
                      const OemWish& wish);
/// Writes what is wished for and leaves the rest as it is.
void run_ncsi_oem_set(Context& context, const std::string& endpoint, OemSetting which,
                      const OemWish& wish);
void run_ncsi_oem_mac(Context& context, const std::string& endpoint, const OemWish& wish);
void run_ncsi_oem_temperature(Context& context, const std::string& endpoint, const OemWish& wish);

}  // namespace tool

#endif
