// SPDX-License-Identifier: Apache-2.0
// C interface of the simulated board.
#include <sideband-sim/sim.h>

#include <cstdio>
#include <memory>
#include <string>

#include "sim/board/board.h"

namespace {
std::unique_ptr<sim::Board> opened;
}

int sideband_sim_open(const char* board_file) {
    sim::BoardError error;
    std::unique_ptr<sim::Board> board = board_file != nullptr
                                            ? sim::Board::load(board_file, error)
                                            : sim::Board::parse(sim::Board::built_in_file(), error);
    if (!board) {
        const std::string line =
            error.message(board_file != nullptr ? board_file : "built-in board");
        std::fprintf(stderr, "%s\n", line.c_str());
        return -1;
    }
    sim::Board::use(board.get());
    opened = std::move(board);
    return 0;
}

void sideband_sim_close(void) {
    opened.reset();
}

void sideband_sim_advance(uint64_t microseconds) {
    if (opened) {
        opened->advance_us(microseconds);
    }
}
