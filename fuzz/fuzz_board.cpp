// SPDX-License-Identifier: Apache-2.0
// Fuzzes the board files of the simulated board.
#include <set>

#include "fuzz/board_text.h"
#include "fuzz/world.h"
#include "sim/board/board.h"

using fuzz::require;

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    const std::string text(bytes, bytes + size);
    board_file::BoardError error;
    const std::unique_ptr<sim::Board> board = sim::Board::parse(text, error);
    fuzz::require_verdict(board != nullptr, error, text);
    if (board == nullptr) {
        return 0;
    }
    std::set<std::string> names;
    for (const sim::EndpointInfo& endpoint : board->endpoints()) {
        require(names.insert(endpoint.name).second, "two devices of one name");
        require(endpoint.address % 2 == 0, "an address that is none");
    }
    return 0;
}
