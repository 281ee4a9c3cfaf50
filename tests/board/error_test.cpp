// SPDX-License-Identifier: Apache-2.0
// Why a call failed, as its context remembers it: each cause as the simulated board makes it.
#include <sideband/ncsi.h>
#include <sideband/nvme_mi.h>
#include <sideband/pldm.h>
#include <sideband/pldm_monitor.h>

#include <string>

#include "fixture.h"
#include "support/errors.h"

namespace {

using board_test::board_with;
using board_test::BoardRun;
using test::said;

struct Case {
    const char* name;
    const char* keys;   ///< of the board
    const char* fault;  ///< of the device behind discovery; empty: none
    const char* text;
};

const Case kCases[] = {
    {"NotAcknowledged", "", R"({"kind": "no_ack"})", "not acknowledged, in PLDM command 0x02"},
    {"NothingCame", "", R"({"kind": "lost"})", "no answer, in PLDM command 0x02"},
    {"WrongPec", "", R"({"kind": "bad_pec"})", "wrong checksum, in PLDM command 0x02"},
    {"WrongTag", "", R"({"kind": "wrong_tag"})",
     "only answers to something else came, in PLDM command 0x02"},
    {"NoFault", "", "", "no failure"},
};

class BoardError : public BoardRun {
protected:
    const std::string kDevice =
        R"({"name": "gpu0", "type": "pldm", "bus": 2, "address": "0x9e", "eid": 20, "tid": 5,
            "sensors": [{"kind": "numeric", "id": 1, "data_size": 2, "signed": true,
                         "waveform": {"shape": "constant", "value": 70}}]})";

    mctp_ctx mctp{};
    pldm_ctx terminus{};
};

class BoardErrorOf : public BoardError, public ::testing::WithParamInterface<Case> {};

TEST_P(BoardErrorOf, IsKeptInTheTerminus) {
    const Case& one = GetParam();
    open(board_with(one.keys, kDevice));
    mctp = context_of("gpu0");
    ASSERT_EQ(pldm_terminus_init(&terminus, &mctp), 0);
    if (one.fault[0] != '\0') {
        sim::BoardError error;
        ASSERT_TRUE(board->add_fault("gpu0", one.fault, error));
    }
    EXPECT_EQ(pldm_get_tid(&terminus) == 0, one.fault[0] == '\0');
    EXPECT_EQ(said(*pldm_last_error(&terminus)), one.text);
    EXPECT_EQ(pldm_terminus_deinit(&terminus), 0);
}

INSTANTIATE_TEST_SUITE_P(Faults, BoardErrorOf, ::testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(BoardError, ABusThatIsNotThereIsToldFromADeviceThatIsNotThere) {
    open(board_with("", kDevice));
    mctp = context_of("gpu0");
    mctp.bus = 9;
    EXPECT_EQ(pldm_terminus_init(&terminus, &mctp), -1);
    EXPECT_EQ(said(terminus.last_error), "no such bus, in MCTP control command 0x02");
    mctp = context_of("gpu0");
    mctp.slave_addr = 0x42;
    EXPECT_EQ(pldm_terminus_init(&terminus, &mctp), -1);
    EXPECT_EQ(said(terminus.last_error), "not acknowledged, in MCTP control command 0x02");
}

TEST_F(BoardError, AHostThatIsOffIsToldFromBoth) {
    open(board_with(R"("power": {"main": false}, )", kDevice));
    mctp = context_of("gpu0");
    EXPECT_EQ(pldm_terminus_init(&terminus, &mctp), -1);
    EXPECT_EQ(said(terminus.last_error), "no power, in MCTP control command 0x02");
}

TEST_F(BoardError, TheCodeOfADeviceIsItsOwn) {
    open(board_with("", kDevice));
    mctp = context_of("gpu0");
    ASSERT_EQ(pldm_terminus_init(&terminus, &mctp), 0);
    uint32_t reading = 0;
    EXPECT_EQ(pldm_get_sensor_reading(&terminus, 99, &reading), -1);
    EXPECT_EQ(said(terminus.last_error),
              "refused by the device: PLDM completion code 0x80, in PLDM command 0x11");
    EXPECT_EQ(pldm_get_sensor_reading(&terminus, 1, &reading), 0);
    EXPECT_EQ(said(terminus.last_error), "no failure");
    mctp_ctx* const endpoint = terminus.mctp;
    endpoint->msg_type = MCTP_MSG_TYPE_CONTROL;
    uint8_t table[MCTP_ROUTING_TABLE_RESPONSE_SIZE];
    EXPECT_EQ(mctp_get_routing_table_entries(endpoint, 0, table), -1);
    EXPECT_EQ(said(endpoint->last_error),
              "refused by the device: MCTP completion code 0x05, in MCTP control command 0x0a");
    EXPECT_EQ(pldm_terminus_deinit(&terminus), 0);
}

TEST_F(BoardError, WithoutPcieThereIsNoSuchBusAndBehindTheMpioAnUnknownFunctionIsNotFound) {
    open(board_with("", kDevice));
    mctp.binding_kind = MCTP_BINDING_KIND_PCIE;
    mctp.pcie_bdf[0] = 0x47;
    EXPECT_EQ(pldm_terminus_init(&terminus, &mctp), -1);
    EXPECT_EQ(said(terminus.last_error), "no such bus, in MCTP control command 0x02");
    sim::Board::use(nullptr);
    open_with_mpio();
    mctp_ctx mpio{};
    ASSERT_EQ(board_test::bring_mpio_up(mpio), 0);
    mctp.pcie_bdf[1] = 0x1F;
    EXPECT_EQ(pldm_terminus_init(&terminus, &mctp), -1);
    EXPECT_EQ(said(terminus.last_error), "not found, in MCTP control command 0x0a");
}

// ---- Time limits ----

TEST_F(BoardError, AWalkThroughAllRecordsEndsWithItsTimeLimit) {
    open(board_with("", kDevice));
    sim::BoardError error;
    ASSERT_TRUE(board->add_fault("gpu0", R"({"kind": "late", "delay_us": 400000})", error));
    mctp = context_of("gpu0");
    ASSERT_EQ(pldm_terminus_init(&terminus, &mctp), 0);
    EXPECT_EQ(pldm_PDR_traversal(&terminus), 0);
    const uint64_t whole_us = board->now_us();
    EXPECT_EQ(pldm_PDR_traversal(&terminus), 0);
    const uint64_t walk_us = board->now_us() - whole_us;
    EXPECT_GT(walk_us, 400000u);
    mctp_set_deadline(terminus.mctp, 100);
    EXPECT_EQ(pldm_PDR_traversal(&terminus), 0xFF);
    EXPECT_EQ(said(terminus.last_error), "deadline passed, in PLDM command 0x51");
    EXPECT_LT(board->now_us() - whole_us - walk_us, 1500000u) << "one wait behind the limit";
    mctp_set_deadline(terminus.mctp, 60000);
    EXPECT_EQ(pldm_PDR_traversal(&terminus), 0);
    EXPECT_EQ(pldm_terminus_deinit(&terminus), 0);
}

}  // namespace
