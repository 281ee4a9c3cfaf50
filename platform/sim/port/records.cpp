// SPDX-License-Identifier: Apache-2.0
// Platform interface: the global records, and which board they belong to.
#include <sideband/platform.h>

#include <atomic>

#include "sim/board/in_use.h"

namespace {

// What the record pointers show while no board is in use.
plt_global_var idle_global_var;
plt_global_sec_var idle_global_sec_var;

std::atomic<sim::Board*> board_in_use{nullptr};

}  // namespace

plt_platform platform;
plt_global_var* at_p_St_GlobalVar = &idle_global_var;
plt_global_sec_var* at_p_St_GlobalSecVar = &idle_global_sec_var;

namespace sim {

void Board::use(Board* board) {
    board_in_use = board;
    platform = board != nullptr ? board->state().platform_record : plt_platform{};
    at_p_St_GlobalVar = board != nullptr ? &board->state().global_var : &idle_global_var;
    at_p_St_GlobalSecVar = board != nullptr ? &board->state().global_sec_var : &idle_global_sec_var;
}

Board* Board::current() {
    return board_in_use;
}

BoardState* in_use() {
    Board* board = board_in_use;
    return board != nullptr ? &board->state() : nullptr;
}

void publish_records(const Board& board) {
    if (Board::current() == &board) {
        platform = Board::current()->state().platform_record;
    }
}

}  // namespace sim

int GlobalParaInit(plt_parameters* parameters) {
    const sim::BoardState* board = sim::in_use();
    if (board == nullptr || parameters == nullptr) {
        return 0;
    }
    parameters->i2c_channel = 0;
    parameters->bmc_eid = board->bmc_eid;
    return 1;
}
