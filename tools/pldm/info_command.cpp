// SPDX-License-Identifier: Apache-2.0
// The command pldm info.
#include <fmt/format.h>

#include "tools/pldm/codes.h"
#include "tools/pldm/commands.h"
#include "tools/pldm/info.h"
#include "tools/shell/endpoint_name.h"
#include "tools/shell/json.h"
#include "tools/shell/session.h"
#include "tools/shell/text.h"

namespace tool {
namespace {

void show_info(Context& context, const std::string& endpoint, const PldmInfo& info) {
    Table types({{"TYPE", true}, {"VERSION"}, {"NAME"}});
    for (const PldmType& type : info.types) {
        types.add(
            {std::to_string(type.type), version_text(type.version), pldm_type_name(type.type)});
    }
    Table commands({{"COMMAND"}, {"NAME"}});
    Json command_list = Json::array();
    for (uint8_t command : info.base_commands) {
        commands.add({fmt::format("0x{:02x}", command), pldm_base_command_name(command)});
        command_list.push_back(command);
    }
    context.output.text(fmt::format("TID {}\n\n{}\nCommands of type 0\n{}", info.tid, types.text(),
                                    commands.text()));
    context.output.document({{"endpoint", endpoint},
                             {"tid", info.tid},
                             {"pldm_types", pldm_types_json(info)},
                             {"pldm_commands", command_list}});
}

}  // namespace

void run_pldm_info(Context& context, const std::string& endpoint) {
    Session session(find_endpoint(context.port, endpoint));
    session.discover();
    show_info(context, endpoint, read_pldm_info(session));
}

}  // namespace tool
