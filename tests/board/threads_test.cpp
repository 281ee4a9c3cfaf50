// SPDX-License-Identifier: Apache-2.0
// Several threads of a service on one board.
#include <sideband/nvme_mi.h>
#include <sideband/pldm.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <barrier>
#include <cstdio>
#include <fstream>
#include <string>
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

/// Two drives that get new firmware at once, and a service that looks at how far it has come.
TEST_F(Threads, TwoDownloadsAndAReaderShareTheUpdateStatus) {
    open(board_with("", R"({"name": "nvme0", "type": "nvme", "bus": 2, "address": "0x3a", "eid": 9,
            "drive": {"model": "M", "serial": "S", "firmware": {"slots": ["FW1", ""]}}},
        {"name": "nvme1", "type": "nvme", "bus": 2, "address": "0x3c", "eid": 10,
            "drive": {"model": "M", "serial": "S", "firmware": {"slots": ["FW1", ""]}}})"));
    ASSERT_TRUE(board);
    const std::string path = testing::TempDir() + "sideband-threads-" + std::to_string(getpid());
    std::ofstream(path, std::ios::binary) << std::string(16384, 'i');
    std::barrier start(3);
    std::atomic<int> running = 2;
    int32_t results[2] = {-2, -2};
    auto download = [&](size_t i) {
        nvmemi_ctx ctx{};
        const mctp_ctx config = context_of(i == 0 ? "nvme0" : "nvme1");
        const int32_t made = nvmemi_init(&ctx, &config);
        start.arrive_and_wait();
        results[i] = made != 0 ? made
                               : nvme_fw_image_download(&ctx, 0, path.c_str(), 512,
                                                        static_cast<uint32_t>(i));
        nvmemi_deinit(&ctx);
        --running;
    };
    std::thread first(download, 0);
    std::thread second(download, 1);
    start.arrive_and_wait();
    unsigned highest = 0;
    while (running != 0) {
        const unsigned status =
            __atomic_load_n(&at_p_St_GlobalVar->nvme_fw_update_status, __ATOMIC_RELAXED);
        highest = std::max(highest, status);
    }
    first.join();
    second.join();
    std::remove(path.c_str());
    EXPECT_EQ(results[0], 0);
    EXPECT_EQ(results[1], 0);
    EXPECT_LE(highest, 100u);
    EXPECT_EQ(at_p_St_GlobalVar->nvme_fw_update_status, NVME_FW_DOWNLOAD_DONE);
    EXPECT_EQ(board->task_percent().at(0), 100);
    EXPECT_EQ(board->task_percent().at(1), 100);
}

}  // namespace
