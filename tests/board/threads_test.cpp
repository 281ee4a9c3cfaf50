// SPDX-License-Identifier: Apache-2.0
// Several threads of a service on one board.
#include <sideband/pldm.h>

#include <barrier>
#include <thread>

#include "fixture.h"

namespace {

using board_test::board_with;
using board_test::BoardRun;

class Threads : public BoardRun {
protected:
    void SetUp() override { open_with_mpio(R"(, "entries_per_part": 1)"); }
};

TEST_F(Threads, OneOfTwoBringUpsDoesTheWorkAndTheOtherFindsItDone) {
    std::barrier start(2);
    int32_t results[2] = {-2, -2};
    mctp_ctx contexts[2] = {};
    auto bring_up = [&](size_t i) {
        _init_amd_mpio_ctx(&contexts[i]);
        start.arrive_and_wait();
        results[i] = init_amd_mpio_if_need(&contexts[i]);
    };
    std::thread first(bring_up, 0);
    std::thread second(bring_up, 1);
    first.join();
    second.join();
    EXPECT_EQ(results[0], 0);
    EXPECT_EQ(results[1], 0);
    EXPECT_EQ(contexts[0].dest_eid + contexts[1].dest_eid, 16) << "only one asked the MPIO";
    EXPECT_EQ(board->pcie_statistics().messages, 8U) << "four requests, four answers";
    EXPECT_EQ(board->mpio_state(), 16U);
    EXPECT_TRUE(has_marker());
    EXPECT_EQ(at_p_St_GlobalVar->next_eid, 17);
}

TEST_F(Threads, FunctionsAreAskedAtOnceWithoutMixingTheirAnswers) {
    mctp_ctx mpio;
    ASSERT_EQ(board_test::bring_mpio_up(mpio), 0);
    const char* const names[] = {"gpu0", "gpu1", "nic0"};
    const uint8_t tids[] = {5, 6, 9};
    std::barrier start(3);
    int wrong[3] = {};
    auto ask = [&](size_t i) {
        mctp_ctx mctp = context_of(names[i]);
        pldm_ctx terminus{};
        start.arrive_and_wait();
        wrong[i] = mctp_init2(&mctp) != 0 || mctp_pldm_register(&mctp, &terminus) != 0;
        for (int round = 0; round < 20; ++round) {
            wrong[i] += pldm_get_tid(&terminus) != 0 || terminus.tid != tids[i];
        }
    };
    std::thread first(ask, 0);
    std::thread second(ask, 1);
    std::thread third(ask, 2);
    first.join();
    second.join();
    third.join();
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(wrong[i], 0) << names[i];
    }
}

}  // namespace
