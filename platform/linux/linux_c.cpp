// SPDX-License-Identifier: Apache-2.0
// C interface of the platform library for a Linux machine.
#include <sideband-linux/linux.h>

#include <cstdio>
#include <string>

#include "platform/linux/state.h"

int sideband_linux_open(const char* board_file) {
    const std::string path = board_file != nullptr ? board_file : "";
    board_file::BoardError error;
    std::optional<machine::Board> board = machine::load_board(path, error);
    if (!board) {
        const std::string lines =
            error.message(path.empty() ? machine::kOwnBoardFile : path.c_str());
        std::fprintf(stderr, "%s\n", lines.c_str());
        return -1;
    }
    machine::use(std::move(*board));
    return 0;
}

void sideband_linux_close(void) {
    machine::use_none();
}
