// SPDX-License-Identifier: Apache-2.0
// Locks of the platform interface: order, double take, foreign release, real waits.
#include <atomic>
#include <chrono>
#include <thread>

#include "board_fixture.h"

namespace {

using namespace sim_test;
using Texts = std::vector<std::string>;

class Locks : public BoardTest {
protected:
    void SetUp() override { open(board_with("")); }

    lx_mutex* bus(int number) { return &at_p_St_GlobalVar->bus_mutex[number]; }
    lx_mutex* global() { return &at_p_St_GlobalVar->global_lock; }
    lx_mutex* ncsi() { return &at_p_St_GlobalVar->ncsi_lock; }
    lx_mutex* eid() { return &at_p_St_GlobalSecVar->eid_mutex; }
    lx_mutex* mpio() { return &at_p_St_GlobalSecVar->mpio_mutex; }
    Texts violations() { return board->lock_report().violations; }
};

int take(lx_mutex* mutex) {
    return lx_mutex_get(mutex, LX_MUTEX_WAIT_FOREVER);
}

TEST_F(Locks, TheWholeOrderIsNoViolation) {
    EXPECT_EQ(i2c_chnl_mutex_get(2, LX_MUTEX_WAIT_FOREVER), 0);
    EXPECT_EQ(take(global()), 0);
    EXPECT_EQ(take(mpio()), 0);
    EXPECT_EQ(take(eid()), 0);
    EXPECT_EQ(take(bus(2)), 0);
    EXPECT_EQ(board->lock_report().held, (Texts{"I2C channel mutex 2", "global lock", "MPIO mutex",
                                                "EID pool mutex", "bus mutex 2"}));
    EXPECT_EQ(lx_mutex_put(bus(2)), 0);
    EXPECT_EQ(lx_mutex_put(eid()), 0);
    EXPECT_EQ(lx_mutex_put(mpio()), 0);
    EXPECT_EQ(lx_mutex_put(global()), 0);
    EXPECT_EQ(i2c_chnl_mutex_put(2), 0);
    EXPECT_EQ(violations(), Texts{});
}

TEST_F(Locks, WrongOrderIsReported) {
    EXPECT_EQ(take(bus(2)), 0);
    EXPECT_EQ(take(eid()), 0);
    EXPECT_EQ(violations(), Texts{"EID pool mutex taken while bus mutex 2 is held"});
    EXPECT_EQ(lx_mutex_put(eid()), 0);
    EXPECT_EQ(lx_mutex_put(bus(2)), 0);
}

TEST_F(Locks, TwoOfOneRankAreReported) {
    EXPECT_EQ(take(bus(2)), 0);
    EXPECT_EQ(take(bus(3)), 0);
    EXPECT_EQ(lx_mutex_put(bus(3)), 0);
    EXPECT_EQ(lx_mutex_put(bus(2)), 0);
    EXPECT_EQ(take(global()), 0);
    EXPECT_EQ(take(ncsi()), 0);
    EXPECT_EQ(lx_mutex_put(ncsi()), 0);
    EXPECT_EQ(lx_mutex_put(global()), 0);
    EXPECT_EQ(violations(), (Texts{"bus mutex 3 taken while bus mutex 2 is held",
                                   "NC-SI lock taken while global lock is held"}));
}

TEST_F(Locks, DoubleTakeFailsInsteadOfHanging) {
    EXPECT_EQ(take(bus(2)), 0);
    EXPECT_NE(take(bus(2)), 0);
    EXPECT_EQ(violations(), Texts{"bus mutex 2 taken twice by one thread"});
    EXPECT_EQ(lx_mutex_put(bus(2)), 0);
}

TEST_F(Locks, ReleaseByAStrangerIsReported) {
    EXPECT_NE(lx_mutex_put(bus(2)), 0);
    EXPECT_NE(i2c_chnl_mutex_put(7), 0);
    EXPECT_EQ(take(eid()), 0);
    std::thread([&] { EXPECT_NE(lx_mutex_put(eid()), 0); }).join();
    EXPECT_EQ(board->lock_report().held, Texts{"EID pool mutex"});
    EXPECT_EQ(lx_mutex_put(eid()), 0);
    EXPECT_EQ(violations(), (Texts{"bus mutex 2 released by a thread that does not hold it",
                                   "I2C channel mutex 7 released by a thread that does not hold it",
                                   "EID pool mutex released by a thread that does not hold it"}));
}

TEST_F(Locks, ReleaseOutOfOrderIsReported) {
    EXPECT_EQ(take(eid()), 0);
    EXPECT_EQ(take(bus(2)), 0);
    EXPECT_EQ(lx_mutex_put(eid()), 0);
    EXPECT_EQ(lx_mutex_put(bus(2)), 0);
    EXPECT_EQ(violations(), Texts{"EID pool mutex released before bus mutex 2"});
}

TEST_F(Locks, UnknownMutexIsALockToo) {
    lx_mutex own{};
    EXPECT_EQ(take(&own), 0);
    EXPECT_EQ(board->lock_report().held, Texts{"unknown mutex"});
    EXPECT_EQ(lx_mutex_put(&own), 0);
    EXPECT_NE(lx_mutex_get(nullptr, 0), 0);
    EXPECT_NE(lx_mutex_put(nullptr), 0);
}

TEST_F(Locks, AnotherThreadWaits) {
    EXPECT_EQ(take(bus(2)), 0);
    std::atomic<bool> taken{false};
    std::thread other([&] {
        EXPECT_NE(lx_mutex_get(bus(2), 1), 0);  // gives up after a millisecond
        EXPECT_EQ(take(bus(2)), 0);
        taken = true;
        EXPECT_EQ(lx_mutex_put(bus(2)), 0);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(taken);
    EXPECT_EQ(lx_mutex_put(bus(2)), 0);
    other.join();
    EXPECT_TRUE(taken);
    EXPECT_EQ(violations(), Texts{});
}

TEST_F(Locks, OrderIsEachThreadsOwn) {
    EXPECT_EQ(take(bus(2)), 0);
    std::thread([&] {
        EXPECT_EQ(take(eid()), 0);
        EXPECT_EQ(lx_mutex_put(eid()), 0);
    }).join();
    EXPECT_EQ(lx_mutex_put(bus(2)), 0);
    EXPECT_EQ(violations(), Texts{});
}

TEST_F(Locks, ManyThreadsShareABoard) {
    open(board_with(R"(
        {"name": "a", "type": "pldm", "bus": 2, "address": "0x64", "eid": 9},
        {"name": "b", "type": "pldm", "bus": 3, "address": "0x64", "eid": 10})"));
    auto work = [&](uint8_t number, const std::string& answer) {
        for (int i = 0; i < 200; ++i) {
            ASSERT_EQ(take(bus(number)), 0);
            EXPECT_EQ(exchange(number, 0x64, "01 00 08 c9 00 80 02"), answer);
            ASSERT_EQ(lx_mutex_put(bus(number)), 0);
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back(work, 2, "01 08 09 c1 00 00 02 00 09 02 00");
        threads.emplace_back(work, 3, "01 08 0a c1 00 00 02 00 0a 02 00");
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(violations(), Texts{});
    EXPECT_EQ(statistics(2).packets, 800u);
    EXPECT_EQ(statistics(3).packets, 800u);
}

}  // namespace
