// SPDX-License-Identifier: Apache-2.0
// Fixture of the end-to-end tests: the library as shipped on a simulated board.
#include "fixture.h"

#include <algorithm>

namespace board_test {

std::string board_with(const std::string& keys, const std::string& devices) {
    return R"({"name": "test", "buses": [{"bus": 2, "clock_hz": 400000}], )" + keys +
           R"("devices": [)" + devices + "]}";
}

std::string mpio_and_functions(const std::string& mpio_keys) {
    const std::string sensors =
        R"("sensors": [{"kind": "numeric", "id": 1, "data_size": 2, "signed": true,
                        "waveform": {"shape": "constant", "value": -71}}])";
    return R"({"name": "mpio0", "type": "mpio", "transport": "pcie", "bdf": "00:00.0")" +
           mpio_keys +
           R"(},
        {"name": "gpu0", "type": "pldm", "transport": "pcie", "bdf": "47:00.0", "tid": 5, )" +
           sensors + R"(},
        {"name": "gpu1", "type": "pldm", "transport": "pcie", "bdf": "47:00.1", "tid": 6},
        {"name": "nic0", "type": "replay", "transport": "pcie", "bdf": "c1:1f.7",
         "exchanges": [{"message_type": 1, "request": "800002", "response": "0000020009"}]})";
}

int32_t bring_mpio_up(mctp_ctx& mpio) {
    mpio = {};
    _init_amd_mpio_ctx(&mpio);
    return init_amd_mpio_if_need(&mpio);
}

void BoardRun::open(const std::string& text) {
    sim::BoardError error;
    board = sim::Board::parse(text, error);
    ASSERT_NE(board, nullptr) << error.message("board");
    sim::Board::use(board.get());
}

void BoardRun::open_with_mpio(const std::string& mpio_keys) {
    open(board_with(R"("platform": {"mpio_state": "wanted"}, )", mpio_and_functions(mpio_keys)));
}

void BoardRun::TearDown() {
    if (board == nullptr) {
        return;
    }
    const sim::LockReport locks = board->lock_report();
    EXPECT_EQ(locks.held, std::vector<std::string>{});
    EXPECT_EQ(locks.violations, std::vector<std::string>{});
    sim::Board::use(nullptr);
}

mctp_ctx BoardRun::context_of(const std::string& name) const {
    mctp_ctx ctx{};
    for (const sim::EndpointInfo& info : board->endpoints()) {
        if (info.name != name) {
            continue;
        }
        ctx.src_eid = 8;
        ctx.binding_kind = info.binding_kind;
        ctx.bus = info.bus;
        ctx.slave_addr = info.address;
        std::copy(info.mux.begin(), info.mux.end(), ctx.mux);
        std::copy(info.bdf.begin(), info.bdf.end(), ctx.pcie_bdf);
        ctx.pcie_param = info.pcie_param;
        return ctx;
    }
    ADD_FAILURE() << "no device " << name;
    return ctx;
}

}  // namespace board_test
