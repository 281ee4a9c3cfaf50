// SPDX-License-Identifier: Apache-2.0
// The commands of the tool with their options, as data: what completion and manual pages go by.
#ifndef SIDEBAND_TOOLS_SHELL_COMMAND_TREE_H
#define SIDEBAND_TOOLS_SHELL_COMMAND_TREE_H

#include <span>
#include <string>
#include <vector>

#include "tools/shell/command_line.h"
#include "tools/shell/json.h"

namespace tool {

/// An option, or an argument of a command.
struct OptionNode {
    /// What a shell may offer for its value.
    enum class Offer {
        kNothing,
        kFiles,
        kEndpoints,
        kEndpointsBeforeEquals,  ///< an endpoint, and something behind an =
    };

    std::vector<std::string> names;  ///< with their hyphens; of an argument one, without
    bool argument = false;
    bool required = false;
    bool takes_value = false;
    bool many = false;               ///< values that follow one another
    bool again = false;              ///< may be given more than once
    std::string value;               ///< as help shows it
    std::string limits;              ///< what is checked of it: "INT in [0 - 255]"
    std::vector<std::string> words;  ///< that the value may be
    Offer offer = Offer::kNothing;
    std::string help;
};

/// A command, or a noun with the commands under it.
struct CommandNode {
    std::string name;
    std::string help;
    std::vector<OptionNode> options;
    std::vector<CommandNode> commands;
};

/// All of them under the name of the program. Options of a node go for what is under it too.
CommandNode command_tree(std::span<const AddCommands> rooms);

/// The same for programs.
Json tree_json(const CommandNode& node);

}  // namespace tool

#endif
