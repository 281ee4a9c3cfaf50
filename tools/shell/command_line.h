// SPDX-License-Identifier: Apache-2.0
// The command line: which command is wanted, with which options.
#ifndef SIDEBAND_TOOLS_SHELL_COMMAND_LINE_H
#define SIDEBAND_TOOLS_SHELL_COMMAND_LINE_H

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tools/shell/command.h"

namespace tool {

struct CommandLine {
    std::string board;                ///< --board; empty for the platform's own
    std::string capture;              ///< --capture; empty for none
    std::vector<std::string> faults;  ///< --fault: ENDPOINT=KIND, or a fault in JSON behind the =
    std::optional<double> timeout;    ///< --timeout: seconds
    uint8_t colours = 0;              ///< --color: an Output::Colours
    bool json = false;
    bool verbose = false;
    bool strict = false;  ///< --strict, or what the platform has without --lax

    std::string command;                ///< its words, as far as they were given
    std::function<void(Context&)> run;  ///< what it does; empty if help or version is wanted
    std::string text;                   ///< help or version, if one of them is wanted
};

class Commands;

/// Puts the commands of one room on the command line.
using AddCommands = void (*)(const Commands& commands);

/// Reads the command line into a record whose words are right even if it throws Failure for wrong
/// usage.
/// @param rooms  in the order in which help shows their commands
void parse_command_line(int argc, char** argv, std::span<const AddCommands> rooms,
                        CommandLine& line);

}  // namespace tool

#endif
