// SPDX-License-Identifier: Apache-2.0
// One PDR, field by field: for people and for programs.
#ifndef SIDEBAND_TOOLS_PLDM_PDR_SHOW_H
#define SIDEBAND_TOOLS_PLDM_PDR_SHOW_H

#include <string>

#include "tools/pldm/pdr_walk.h"
#include "tools/shell/json.h"

namespace tool {

/// The fields of a whole record: those of numeric and state sensors in words, of other types the
/// header and the rest in hex. Both throw Failure for a sensor record that cannot be decoded.
std::string record_text(const Session& session, const PdrRecord& record);
Json record_fields(const Session& session, const PdrRecord& record);

}  // namespace tool

#endif
