// SPDX-License-Identifier: Apache-2.0
// What the board answers in libc's place: time, sleep, files; and libc itself without a board.
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <ctime>

#include "port_fixture.h"

namespace {

using namespace sim_test;

TEST_F(Port, SleepPassesInVirtualTimeOnly) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(usleep(30'000'000), 0);
    EXPECT_EQ(board->now_us(), 30'000'000u);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

TEST_F(Port, TimeOfDayIsVirtual) {
    constexpr time_t kStart = 1'735'689'600;  // 2025-01-01 00:00:00 UTC
    EXPECT_EQ(time(nullptr), kStart);
    board->advance_us(61'900'000);
    time_t now = 0;
    EXPECT_EQ(time(&now), kStart + 61);
    EXPECT_EQ(now, kStart + 61);
    sim::Board::use(nullptr);
    const auto real = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    EXPECT_LE(real - 5, time(nullptr));
    EXPECT_GE(real + 5, time(nullptr));
}

TEST_F(Port, FilesBelowNvAreTheBoards) {
    EXPECT_NE(access("/nv/mpio.ready", F_OK), 0);
    run_shellcmd("touch /nv/mpio.ready");
    EXPECT_EQ(access("/nv/mpio.ready", F_OK), 0);
    EXPECT_TRUE(board->has_file("/nv/mpio.ready"));
    open(board_with(""));
    EXPECT_NE(access("/nv/mpio.ready", F_OK), 0) << "each board has its own";
}

TEST(NoBoard, LibcIsItselfAgain) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(usleep(2'000), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(2));
    EXPECT_NE(access("/sys/bus/i2c/devices/2-0010/mctp-slave-mqueue", F_OK), 0);
    EXPECT_EQ(system("exit 0"), 0);
}

}  // namespace
