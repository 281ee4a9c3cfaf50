// SPDX-License-Identifier: Apache-2.0
// The commands of the tool with their options, as data: what completion and manual pages go by.
#include "tools/shell/command_tree.h"

namespace tool {

Json tree_json(const CommandNode& node) {
    Json options = Json::array();
    for (const OptionNode& option : node.options) {
        options.push_back(Json{{"names", option.names},
                               {"argument", option.argument},
                               {"required", option.required},
                               {"takes_value", option.takes_value},
                               {"many", option.many},
                               {"value", option.value},
                               {"limits", option.limits},
                               {"help", option.help}});
    }
    Json commands = Json::array();
    for (const CommandNode& command : node.commands) {
        commands.push_back(tree_json(command));
    }
    return {{"name", node.name}, {"help", node.help}, {"options", options}, {"commands", commands}};
}

}  // namespace tool
