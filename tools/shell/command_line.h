// SPDX-License-Identifier: Apache-2.0
// The command line: which command is wanted, with which options.
#ifndef SIDEBAND_TOOLS_SHELL_COMMAND_LINE_H
#define SIDEBAND_TOOLS_SHELL_COMMAND_LINE_H

#include <functional>
#include <string>

#include "tools/shell/command.h"

namespace tool {

struct CommandLine {
    std::string board;    ///< --board; empty for the platform's own
    std::string capture;  ///< --capture; empty for none
    bool json = false;
    bool verbose = false;

    std::string command;                ///< its words, as far as they were given
    std::function<void(Context&)> run;  ///< what it does; empty where help or version is wanted
    std::string text;                   ///< help or version, where one of them is wanted
};

/// Reads the command line into a record whose words are right even where it throws Failure for
/// wrong usage.
void parse_command_line(int argc, char** argv, CommandLine& line);

}  // namespace tool

#endif
