// SPDX-License-Identifier: Apache-2.0
// The commands of PLDM firmware update: pldm fw-info, pldm fw-update and pkg.
#ifndef SIDEBAND_TOOLS_UPDATE_COMMANDS_H
#define SIDEBAND_TOOLS_UPDATE_COMMANDS_H

#include <cstdint>
#include <string>
#include <vector>

#include "tools/shell/command.h"

namespace tool {

class Commands;

void add_update_commands(const Commands& commands);

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

/// @param path  a firmware update package
void run_pkg_show(Context& context, const std::string& path);

/// What a package is made of, and where it goes.
struct PackageRecipe {
    std::string package;
    std::string metadata;             ///< a description in JSON
    std::vector<std::string> images;  ///< of the components, in their order
};

void run_pkg_create(Context& context, const PackageRecipe& recipe);

}  // namespace tool

#endif
