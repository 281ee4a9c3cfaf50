// SPDX-License-Identifier: Apache-2.0
// The simulated board as programs in C open it.
#include <sideband-sim/sim.h>

#include <cstdio>
#include <fstream>
#include <string>

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

TEST(SimC, FileThatIsWrongIsALineForEachErrorOnStandardError) {
    const std::string path = testing::TempDir() + "sim-c-wrong.json";
    std::ofstream(path) << R"({"name": "x", "buses": [{"bus": 2}], "one": 1,
"two": 2})";
    testing::internal::CaptureStderr();
    EXPECT_EQ(sideband_sim_open(path.c_str()), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              path + ":1: one: no such key\n" + path + ":2: two: no such key\n");
    EXPECT_EQ(sim::Board::current(), nullptr);
    std::remove(path.c_str());
}

}  // namespace
