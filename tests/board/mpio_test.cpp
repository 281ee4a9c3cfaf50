// SPDX-License-Identifier: Apache-2.0
// The bring-up of the MPIO on the simulated board: every step in order, and refused in turn.
#include "fixture.h"

namespace {

using board_test::board_with;
using board_test::BoardRun;
using board_test::bring_mpio_up;
using board_test::LoggedRun;
using board_test::mpio_and_functions;

/// How the MPIO treats one command, and what the library must say about it.
struct Refusal {
    const char* name;
    const char* command;
    const char* log;
};

const Refusal kRefusals[] = {
    {"Prepare", "prepare_for_endpoint_discovery",
     "[MCTP] Req PrepareForEndpointDiscovery to AMD MPIO faled.\n"},
    {"EndpointDiscovery", "endpoint_discovery",
     "[MCTP] Req mctp_endpoint_discovery to AMD MPIO faled.\n"},
    {"SetEndpointId", "set_endpoint_id", "[MCTP] Cannot assing EID to AMD MPIO.\n"},
    {"Allocate", "allocate_endpoint_ids",
     "[mctp_assign_eid][1371] successful, new eid: 0x10\n"
     "[MCTP] Cannot allocate eid pool to AMD MPIO.\n"},
};

class RefusedStep : public BoardRun, public ::testing::WithParamInterface<Refusal> {
protected:
    void open_with(const std::string& outcome) {
        open_with_mpio(R"(, "steps": [{"command": ")" + std::string(GetParam().command) + R"(", )" +
                       outcome + "}]");
    }

    /// Result, state word, log line, marker; the locks are looked at in the end.
    void expect_failure() {
        LoggedRun log;
        mctp_ctx mpio;
        const int32_t result = bring_mpio_up(mpio);
        const std::string text = log.text();
        EXPECT_EQ(result, -1);
        EXPECT_EQ(text, "try do_init_amd_mpio\n" + std::string(GetParam().log) +
                            "do_init_amd_mpio fail\n");
        EXPECT_EQ(board->mpio_state(), PLT_MPIO_NONE);
        EXPECT_FALSE(has_marker());
        EXPECT_EQ(at_p_St_GlobalVar->mpio_bringup_pending, 1);
        EXPECT_EQ(board->lock_report().held, std::vector<std::string>{});
    }
};

TEST_P(RefusedStep, ErrorCodeEndsTheBringUp) {
    open_with(R"("outcome": "refused", "completion_code": 1)");
    expect_failure();
}

TEST_P(RefusedStep, NoAnswerEndsTheBringUp) {
    open_with(R"("outcome": "no_answer")");
    expect_failure();
}

TEST_P(RefusedStep, AnswerAfterTheTimeLimitEndsTheBringUp) {
    open_with(R"("delay_us": 1100000)");
    expect_failure();
}

TEST_P(RefusedStep, NotReadyTwiceIsAskedAgain) {
    open_with(R"("outcome": "not_ready", "count": 2)");
    mctp_ctx mpio;
    EXPECT_EQ(bring_mpio_up(mpio), 0);
    EXPECT_EQ(board->mpio_state(), 16U);
    EXPECT_TRUE(has_marker());
    EXPECT_GE(board->now_us(), 3'100'000U) << "two pauses of 50 ms and 3 s of rest";
}

INSTANTIATE_TEST_SUITE_P(Mpio, RefusedStep, ::testing::ValuesIn(kRefusals),
                         [](const auto& info) { return std::string(info.param.name); });

class MpioRun : public BoardRun {};

TEST_F(MpioRun, BringUpGivesTheMpioAnEidAndItsFunctionsAPool) {
    open_with_mpio();
    LoggedRun log;
    mctp_ctx mpio;
    const int32_t result = bring_mpio_up(mpio);
    EXPECT_EQ(log.text(),
              "try do_init_amd_mpio\n[mctp_assign_eid][1371] successful, new eid: 0x10\n");
    EXPECT_EQ(result, 0);
    EXPECT_EQ(mpio.dest_eid, 16);
    EXPECT_EQ(mpio.tag, 0x80);
    EXPECT_EQ(board->mpio_state(), 16U);
    EXPECT_TRUE(has_marker());
    EXPECT_EQ(at_p_St_GlobalVar->mpio_bringup_pending, 0);
    EXPECT_EQ(board->shell_commands().back(), "touch /nv/mpio.ready");
    EXPECT_GE(board->now_us(), 3'000'000U);

    for (const auto& [name, eid] :
         {std::pair("gpu0", 64), std::pair("gpu1", 65), std::pair("nic0", 66)}) {
        mctp_ctx device = context_of(name);
        ASSERT_EQ(mctp_init2(&device), 0) << name;
        EXPECT_EQ(device.dest_eid, eid) << name;
    }
}

TEST_F(MpioRun, BringUpThatIsDoneSendsNothing) {
    open(board_with(R"("platform": {"mpio_state": "0x21"}, )", mpio_and_functions()));
    mctp_ctx mpio;
    EXPECT_EQ(bring_mpio_up(mpio), 0);
    EXPECT_EQ(board->pcie_statistics().packets, 0U);
    EXPECT_EQ(board->mpio_state(), 0x21U);
    EXPECT_FALSE(has_marker());
}

TEST_F(MpioRun, LookUpFollowsTheTableOverSeveralParts) {
    open_with_mpio(R"(, "entries_per_part": 1)");
    mctp_ctx mpio;
    ASSERT_EQ(bring_mpio_up(mpio), 0);
    const uint64_t before = board->pcie_statistics().messages;
    mctp_ctx last = context_of("nic0");
    EXPECT_EQ(mctp_init2(&last), 0);
    EXPECT_EQ(last.dest_eid, 66);
    // The MPIO's own entry comes first: four requests, four answers.
    EXPECT_EQ(board->pcie_statistics().messages - before, 8U);
}

TEST_F(MpioRun, LookUpOfAStrangerReadsTheWholeTableAndAllocatesAgain) {
    open_with_mpio(R"(, "entries_per_part": 2)");
    mctp_ctx mpio;
    ASSERT_EQ(bring_mpio_up(mpio), 0);
    const uint64_t before = board->pcie_statistics().messages;
    mctp_ctx stranger = context_of("gpu0");
    stranger.pcie_bdf[2] = 2;
    LoggedRun log;
    const int32_t result = mctp_init2(&stranger);
    const std::string text = log.text();
    EXPECT_EQ(result, -1);
    EXPECT_NE(text.find("B/D/F: 47/00/02, EID not find\nfail get_eid_from_mpio\n"),
              std::string::npos)
        << text;
    EXPECT_EQ(board->pcie_statistics().messages - before, 6U);
}

TEST_F(MpioRun, LookUpWithoutMarkerPokesTheMpioOnOneBoardOnly) {
    for (const auto& [identifier, messages] : {std::pair("0x1d43", 2), std::pair("0x1d44", 0)}) {
        open(board_with(R"("platform": {"identifier": ")" + std::string(identifier) + "\"}, ",
                        mpio_and_functions()));
        mctp_ctx device = context_of("gpu0");
        LoggedRun log;
        const int32_t result = get_eid_from_mpio(&device);
        EXPECT_EQ(log.text(), "[Turin] MPIO not ready, skip the MCTP req.\n");
        EXPECT_EQ(result, -1);
        EXPECT_EQ(board->pcie_statistics().messages, static_cast<uint64_t>(messages));
    }
}

TEST_F(MpioRun, MarkerOfAnEarlierRunLetsTheLookUpPass) {
    open(board_with(
        R"("platform": {"mpio_ready": true}, )",
        R"({"name": "mpio0", "type": "mpio", "transport": "pcie", "bdf": "00:00.0", "eid": 33},
           {"name": "gpu0", "type": "pldm", "transport": "pcie", "bdf": "47:00.0", "eid": 70})"));
    mctp_ctx device = context_of("gpu0");
    EXPECT_EQ(mctp_init2(&device), 0);
    EXPECT_EQ(device.dest_eid, 70);
}

TEST_F(MpioRun, BoardWithoutMpioAsksTheFunctionItself) {
    open(board_with("", R"({"name": "gpu0", "type": "pldm", "transport": "pcie",
                            "bdf": "47:00.0"})"));
    mctp_ctx device = context_of("gpu0");
    LoggedRun log;
    const int32_t result = mctp_init2(&device);
    EXPECT_EQ(log.text(),
              "[AMD] CPU without MPIO.\n[mctp_assign_eid][1371] successful, new eid: 0x10\n");
    EXPECT_EQ(result, 0);
    EXPECT_EQ(device.dest_eid, 16);
}

}  // namespace
