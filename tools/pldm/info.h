// SPDX-License-Identifier: Apache-2.0
// What a PLDM terminus tells about itself with the base commands.
#ifndef SIDEBAND_TOOLS_PLDM_INFO_H
#define SIDEBAND_TOOLS_PLDM_INFO_H

#include <cstdint>
#include <vector>

#include "tools/shell/json.h"
#include "tools/shell/session.h"

namespace tool {

struct PldmType {
    uint8_t type = 0;
    uint32_t version = 0;  ///< ver32 as a little-endian number
};

struct PldmInfo {
    uint8_t tid = 0;
    std::vector<PldmType> types;
    std::vector<uint8_t> base_commands;  ///< command codes of type 0
};

/// GetTID, GetPLDMTypes, GetPLDMVersion of each type, GetPLDMCommands of type 0.
PldmInfo read_pldm_info(Session& session);

Json pldm_types_json(const PldmInfo& info);

}  // namespace tool

#endif
