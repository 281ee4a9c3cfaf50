// SPDX-License-Identifier: Apache-2.0
// The command line of the commands board.
#include "tools/board/commands.h"

#include "tools/shell/commands.h"

namespace tool {
namespace {

struct CheckArguments {
    std::string file;
};

}  // namespace

void add_board_commands(const Commands& commands) {
    if (!Port::is_simulated()) {
        return;
    }
    const Command board = commands.noun("board", "board files");
    const auto [check, arguments] = commands.add<CheckArguments>(
        board, "check", "whether a board file is right; no device is asked",
        [](Context& c, const CheckArguments& a) { run_board_check(c, a.file); });
    check.add_option("FILE", arguments.file, "a board file").required().file();
    commands.add(board, "dump", "the board as a board file", run_board_dump);
}

}  // namespace tool
