// SPDX-License-Identifier: Apache-2.0
// A FRU record table as a table for people and as an object for programs.
#ifndef SIDEBAND_TOOLS_PLDM_FRU_REPORT_H
#define SIDEBAND_TOOLS_PLDM_FRU_REPORT_H

#include <string>

#include "tools/pldm/fru_data.h"
#include "tools/shell/json.h"

namespace tool {

/// @param indent  blanks before each line
std::string fru_text(const FruData& table, size_t indent = 0);

Json fru_json(const FruData& table);

}  // namespace tool

#endif
