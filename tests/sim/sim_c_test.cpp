// SPDX-License-Identifier: Apache-2.0
// The simulated board as programs in C open it.
#include <sideband-sim/sim.h>

#include "board/board_fixture.h"

namespace {

using namespace sim_test;

TEST(SimC, OpensTheBuiltInBoard) {
    ASSERT_EQ(sideband_sim_open(nullptr), 0);
    ASSERT_NE(sim::Board::current(), nullptr);
    EXPECT_EQ(sim::Board::current()->endpoints().size(), 11u);
    sideband_sim_advance(1234);
    EXPECT_EQ(sim::Board::current()->now_us(), 1234u);
    ASSERT_EQ(sideband_sim_open(nullptr), 0);  // a fresh one
    EXPECT_EQ(sim::Board::current()->now_us(), 0u);
    sideband_sim_close();
    EXPECT_EQ(sim::Board::current(), nullptr);
    sideband_sim_advance(1);
    sideband_sim_close();
}

TEST(SimC, FileThatCannotBeReadIsOneLineOnStandardError) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(sideband_sim_open("/nonexistent/board.json"), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "/nonexistent/board.json: No such file or directory\n");
    EXPECT_EQ(sim::Board::current(), nullptr);
}

}  // namespace
