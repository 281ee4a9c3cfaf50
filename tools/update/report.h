// SPDX-License-Identifier: Apache-2.0
// A firmware update from the versions before it to those behind it, and what is said of them.
#ifndef SIDEBAND_TOOLS_UPDATE_REPORT_H
#define SIDEBAND_TOOLS_UPDATE_REPORT_H

#include <cstdint>
#include <string>

#include "tools/shell/json.h"
#include "tools/shell/progress.h"
#include "tools/shell/session.h"
#include "tools/update/commands.h"
#include "tools/update/info.h"
#include "tools/update/package.h"
#include "tools/update/update.h"

namespace tool {

/// An update that succeeded.
struct UpdateReport {
    std::string endpoint;
    std::string package;  ///< its path
    std::string package_version;
    uint32_t transfer_size = 0;  ///< MaximumTransferSize
    FirmwareInfo before;
    FirmwareInfo after;
    uint64_t bytes = 0;        ///< of the images that the device has taken
    uint64_t duration_us = 0;  ///< by the board's clock
};

/// Updates a device and shows the progress. Throws Failure.
/// @param session  discovered
UpdateReport update_firmware(Port& port, Session& session, const ParsedPackage& package,
                             const UpdateWish& wish, Progress& progress);

/// Versions before and behind. @param indent  blanks before each line
std::string report_text(const UpdateReport& report, size_t indent = 0);
Json report_json(const UpdateReport& report);

/// Shows the versions in the device and in a package that is for it; changes nothing. Throws
/// Failure, also if the package is not for the device.
void query_firmware(Context& context, Session& session, const ParsedPackage& package);

}  // namespace tool

#endif
