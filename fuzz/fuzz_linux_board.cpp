// SPDX-License-Identifier: Apache-2.0
// Fuzzes the board files of a Linux machine, and what is made of the places in them.
#include <set>

#include "fuzz/board_text.h"
#include "fuzz/world.h"
#include "platform/linux/board.h"

using fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    const std::string text(bytes, bytes + size);
    board_file::BoardError error;
    const std::optional<machine::Board> board = machine::parse_board(text, error);
    fuzz::require_verdict(board.has_value(), error, text);
    if (!board) {
        return 0;
    }
    require(board->described, "a board that no file describes");
    std::set<std::string> names;
    for (const machine::Device& device : board->devices) {
        require(names.insert(device.name).second, "two devices of one name");
        require(device.mux[0] == 0 || !machine::decode_mux(device.mux).empty(),
                "a way that nobody can read");
        const machine::I2cPaths& paths = board->paths_of(device.bus);
        require(!machine::fill_in(paths.device, device.bus, board->bmc_address).empty(),
                "a bus without a path");
        machine::queue_paths(paths, device.bus, board->bmc_address);
    }
    return 0;
}
