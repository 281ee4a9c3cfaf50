// SPDX-License-Identifier: Apache-2.0
// The global records of the platform interface, and the board that they belong to.
#include "platform/linux/state.h"

#include <sideband/platform.h>

#include <cstdlib>
#include <utility>

namespace {

// What the record pointers show while no board is in use.
plt_global_var idle_global_var;
plt_global_sec_var idle_global_sec_var;

std::unique_ptr<machine::State> state;

}  // namespace

plt_platform platform;
plt_global_var* at_p_St_GlobalVar = &idle_global_var;
plt_global_sec_var* at_p_St_GlobalSecVar = &idle_global_sec_var;

namespace machine {

namespace {

/// Cards and contexts that name no channel mean that of the first device on a bus.
uint8_t first_channel(const Board& board) {
    for (const Device& device : board.devices) {
        if (device.way == Device::Way::kI2c) {
            return device.bus;
        }
    }
    return 0;
}

}  // namespace

void use(Board board) {
    use_none();
    if (const char* const folder = std::getenv(kRunFolderVariable);
        folder != nullptr && *folder != '\0') {
        board.run_folder = folder;
    }
    state = std::make_unique<State>(std::move(board));
    const Board& now = state->board;
    platform = {.flags = now.standby_devices ? PLT_FLAG_STANDBY_DEVICES : 0,
                .identifier = now.identifier,
                .standby_option = now.standby_option,
                .default_i2c_channel = first_channel(now)};
    state->records.attach(now.run_folder, {now.mpio_state, now.standby_override});
    Records& records = state->records.get();
    at_p_St_GlobalVar = &records.global_var;
    at_p_St_GlobalSecVar = &records.global_sec_var;
}

void use_none() {
    platform = {};
    at_p_St_GlobalVar = &idle_global_var;
    at_p_St_GlobalSecVar = &idle_global_sec_var;
    state.reset();
}

State* in_use() {
    return state.get();
}

}  // namespace machine

int GlobalParaInit(plt_parameters* parameters) {
    if (parameters == nullptr) {
        return 0;
    }
    if (machine::in_use() == nullptr) {
        board_file::BoardError error;
        std::optional<machine::Board> own = machine::load_board("", error);
        if (!own) {
            console_log("%s\n", error.message(machine::kOwnBoardFile).c_str());
            return 0;
        }
        machine::use(std::move(*own));
    }
    parameters->i2c_channel = 0;
    parameters->bmc_eid = machine::in_use()->board.bmc_eid;
    return 1;
}
