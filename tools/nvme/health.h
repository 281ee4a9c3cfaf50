// SPDX-License-Identifier: Apache-2.0
// The health of an NVMe drive as its management endpoint tells it.
#ifndef SIDEBAND_TOOLS_NVME_HEALTH_H
#define SIDEBAND_TOOLS_NVME_HEALTH_H

#include <string>
#include <vector>

#include "tools/nvme/client.h"
#include "tools/shell/json.h"

namespace tool {

/// What the two health status polls answer.
struct NvmeHealth {
    nvme_subsystem_health subsystem{};
    std::vector<nvme_controller_health> controllers;
};

NvmeHealth read_health(NvmeClient& client);

/// @param indent  blanks before each line
std::string health_text(const NvmeHealth& health, size_t indent = 0);
Json health_json(const NvmeHealth& health);

}  // namespace tool

#endif
