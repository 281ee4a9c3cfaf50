// SPDX-License-Identifier: Apache-2.0
// Bring-ups of the MPIO by several threads at once, without the guard that lets in but one.
#include <algorithm>
#include <array>
#include <barrier>
#include <thread>
#include <vector>

#include "fixture.h"

namespace {

class MpioThreads : public board_test::BoardRun {};

TEST_F(MpioThreads, EightBringUpsAtOnceClearTheFlagThatAnotherServiceWatches) {
    open_with_mpio();
    constexpr size_t kThreads = 8;
    uint8_t& pending = at_p_St_GlobalVar->mpio_bringup_pending;
    ASSERT_EQ(pending, 1);
    std::array<int32_t, kThreads> results{};
    results.fill(-2);
    std::barrier start(kThreads + 1);
    std::vector<std::thread> threads;
    for (int32_t& result : results) {
        threads.emplace_back([&start, &result] {
            mctp_ctx mpio{};
            _init_amd_mpio_ctx(&mpio);
            start.arrive_and_wait();
            result = do_init_amd_mpio(&mpio);
        });
    }
    start.arrive_and_wait();
    for (int i = 0; i < 1000 && __atomic_load_n(&pending, __ATOMIC_ACQUIRE) != 0; ++i) {
        std::this_thread::yield();
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    // One Prepare undoes another's Endpoint Discovery, so that some may be refused; the last is
    // not.
    const auto done = std::count(results.begin(), results.end(), 0);
    EXPECT_GE(done, 1);
    EXPECT_EQ(done + std::count(results.begin(), results.end(), -1), 8);
    EXPECT_EQ(pending, 0);
}

}  // namespace
