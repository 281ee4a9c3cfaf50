// SPDX-License-Identifier: Apache-2.0
// What a shell offers behind the words that stand on the command line already.
#ifndef SIDEBAND_TOOLS_SHELL_COMPLETION_H
#define SIDEBAND_TOOLS_SHELL_COMPLETION_H

#include <functional>
#include <span>
#include <string>
#include <vector>

#include "tools/shell/command_tree.h"

namespace tool {

/// A word that is offered.
struct OfferedWord {
    std::string word;
    std::string help;
};

struct Completion {
    bool files = false;  ///< the shell is to offer files
    std::vector<OfferedWord> words;
};

/// The endpoints of a board by their names.
/// @param board  a board file; empty for the platform's own board
using EndpointWords = std::function<std::vector<OfferedWord>(const std::string& board)>;

/// @param words  those behind the program's name; the last one, which may be empty, is the one
/// that is being typed
Completion complete(const CommandNode& tree, std::span<const std::string> words,
                    const EndpointWords& endpoints);

/// Names of a board's endpoints, but for those with a character that means something to a shell.
/// A board that cannot be read has none.
std::vector<OfferedWord> endpoint_words(const std::string& board);

/// The commands that only scripts use, and help does not show: "__complete WORD...", a line for
/// each word that is offered, its help behind a tab, in front of them a line "words" or "files";
/// and
/// "__commands", the tree in JSON.
/// @return what to print; empty if the command line is for none of them
std::string hidden_command(int argc, char** argv, std::span<const AddCommands> rooms);

}  // namespace tool

#endif
