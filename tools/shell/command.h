// SPDX-License-Identifier: Apache-2.0
// What every command is given, and the commands themselves: command_line.cpp names them.
#ifndef SIDEBAND_TOOLS_SHELL_COMMAND_H
#define SIDEBAND_TOOLS_SHELL_COMMAND_H

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "tools/shell/failure.h"
#include "tools/shell/output.h"
#include "tools/shell/port.h"

namespace tool {

using Json = nlohmann::ordered_json;

/// What a command works with.
struct Context {
    Port& port;
    Output& output;
    std::string command;  ///< its words, e.g. "pldm info"
    ExitStatus status = ExitStatus::kDone;

    /// Reports a failure after which the command goes on.
    void report(const Failure& failure) {
        output.error(command, failure);
        status = failure.status();
    }
};

// Each throws Failure where it cannot go on. ENDPOINT arguments are read by find_endpoint().

void run_demo(Context& context);
void run_scan(Context& context);
void run_mctp_eid(Context& context, const std::string& endpoint);
void run_mctp_uuid(Context& context, const std::string& endpoint);
void run_mctp_routes(Context& context, const std::string& endpoint);

/// @param type    a message type by name or number
/// @param pieces  the message body in hex, in pieces
void run_raw(Context& context, const std::string& endpoint, const std::string& type,
             const std::vector<std::string>& pieces);

void run_pldm_info(Context& context, const std::string& endpoint);

/// How often sensors are read: once, or again and again.
struct Watch {
    double seconds = 0;  ///< pause between two readings; 0: read once
    uint32_t count = 0;  ///< readings; 0: until interrupted
};

/// @param ids  sensors such as "12" and "state:5"; empty for those in the PDR repository, or where
///             there is none those that the board describes
void run_pldm_sensors(Context& context, const std::string& endpoint,
                      const std::vector<std::string>& ids, const Watch& watch);

// PDRs. @param handle  of the one record wanted; empty for all of them.
void run_pldm_pdr_list(Context& context, const std::string& endpoint, const std::string& handle);
void run_pldm_pdr_show(Context& context, const std::string& endpoint, const std::string& handle);
void run_pldm_pdr_dump(Context& context, const std::string& endpoint, const std::string& handle);

/// @param fixed_parts  the device sends the FRU table in answers of one size
void run_pldm_fru(Context& context, const std::string& endpoint, bool fixed_parts);

void run_pldm_fw_info(Context& context, const std::string& endpoint);

/// How a firmware update is made.
struct UpdateWish {
    bool query = false;          ///< only show the versions
    bool force = false;          ///< ask for every component, whatever the device has
    uint32_t transfer_size = 0;  ///< MaximumTransferSize in bytes; 0: by the device tables
};

/// @param path  a firmware update package
void run_pldm_fw_update(Context& context, const std::string& endpoint, const std::string& path,
                        const UpdateWish& wish);

// NC-SI. Each command brings up the channels of the controller first.
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

/// @param path  a firmware update package
void run_pkg_show(Context& context, const std::string& path);

}  // namespace tool

#endif
