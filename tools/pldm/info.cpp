// SPDX-License-Identifier: Apache-2.0
// What a PLDM terminus tells about itself with the base commands.
#include "tools/pldm/info.h"

#include <fmt/format.h>

#include <span>

#include "tools/pldm/codes.h"
#include "tools/shell/json.h"
#include "tools/shell/text.h"

namespace tool {
namespace {

/// The numbers of the set bits: bit n of byte 0 is number n.
std::vector<uint8_t> set_bits(std::span<const uint8_t> bitmap) {
    std::vector<uint8_t> numbers;
    for (size_t i = 0; i < bitmap.size() * 8; ++i) {
        if ((bitmap[i / 8] >> (i % 8) & 1) != 0) {
            numbers.push_back(static_cast<uint8_t>(i));
        }
    }
    return numbers;
}

}  // namespace

PldmInfo read_pldm_info(Session& session) {
    PldmInfo info;
    pldm_ctx& pldm = session.pldm();
    session.check_pldm(pldm_get_tid(&pldm), "GetTID");
    info.tid = pldm.tid;
    session.check_pldm(pldm_get_type(&session.pldm()), "GetPLDMTypes");
    for (uint8_t type : set_bits(pldm.pldm_types)) {
        session.check_pldm(pldm_get_version(&session.pldm(), type),
                           fmt::format("GetPLDMVersion of type {}", type));
        info.types.push_back({type, pldm.pldm_version});
    }
    session.check_pldm(pldm_get_commands(&session.pldm()), "GetPLDMCommands");
    info.base_commands = set_bits(pldm.base_commands);
    return info;
}

Json pldm_types_json(const PldmInfo& info) {
    Json list = Json::array();
    for (const PldmType& type : info.types) {
        list.push_back({{"pldm_type", type.type},
                        {"name", pldm_type_name(type.type)},
                        {"version", version_text(type.version)}});
    }
    return list;
}

}  // namespace tool
