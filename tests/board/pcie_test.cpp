// SPDX-License-Identifier: Apache-2.0
// PLDM over PCIe, from the library's call to the simulated terminus and back.
#include <sideband/pldm.h>
#include <sideband/pldm_monitor.h>

#include "fixture.h"

namespace {

using board_test::board_with;
using board_test::BoardRun;

class PldmOverPcie : public BoardRun {
protected:
    void SetUp() override {
        open_with_mpio(R"(, "entries_per_part": 2)");
        mctp_ctx mpio;
        ASSERT_EQ(board_test::bring_mpio_up(mpio), 0);
    }

    /// Discovers a function through the routing table and binds a terminus to it.
    void bring_up(const std::string& name) {
        mctp = context_of(name);
        ASSERT_EQ(mctp_init2(&mctp), 0);
        terminus = {};
        ASSERT_EQ(mctp_pldm_register(&mctp, &terminus), 0);
    }

    mctp_ctx mctp{};
    pldm_ctx terminus{};
};

TEST_F(PldmOverPcie, DiscoveryAndAReading) {
    bring_up("gpu0");
    EXPECT_EQ(pldm_discovery(&terminus), 0);
    EXPECT_EQ(terminus.tid, 5);
    EXPECT_EQ(terminus.pldm_types[0], 0x05);
    uint32_t reading = 0;
    EXPECT_EQ(pldm_get_sensor_reading(&terminus, 1, &reading), 0);
    EXPECT_EQ(reading, 0xFFB9U);
    EXPECT_EQ(mctp.dest_eid, 64);
    EXPECT_EQ(mctp.binding_eids[0], 64) << "the sender of the last answer";
    EXPECT_EQ(mctp.binding_eids[1], 8) << "and whom it was for";
}

TEST_F(PldmOverPcie, EachFunctionAnswersForItself) {
    for (const auto& [name, tid] :
         {std::pair("gpu0", 5), std::pair("gpu1", 6), std::pair("nic0", 9)}) {
        bring_up(name);
        EXPECT_EQ(pldm_get_tid(&terminus), 0) << name;
        EXPECT_EQ(terminus.tid, tid);
    }
}

TEST_F(PldmOverPcie, LostAnswerFailsOnceAndLeavesTheNextOneAlone) {
    bring_up("gpu0");
    sim::BoardError error;
    ASSERT_TRUE(board->add_fault("gpu0", R"({"kind": "lost", "count": 1})", error));
    EXPECT_EQ(pldm_get_tid(&terminus), -1);
    EXPECT_EQ(terminus.completion_code, PLDM_CC_RETRIES_EXHAUSTED);
    EXPECT_EQ(pldm_get_tid(&terminus), 0);
}

TEST_F(PldmOverPcie, SendAndReceiveApartCarryOneMessageEach) {
    bring_up("gpu1");
    mctp.binding_eids[0] = 8;
    mctp.binding_eids[1] = mctp.dest_eid;
    uint8_t request[3];
    pldm_request_init(request);
    request[2] = 0x02;
    ASSERT_EQ(pldm_send(&terminus, sizeof request, request, 1), 0);
    uint8_t answer[16] = {};
    ASSERT_EQ(pldm_recv(&terminus, sizeof answer, answer), 0);
    const std::vector<uint8_t> expected{0x00, 0x00, 0x02, 0x00, 0x06};
    EXPECT_EQ(std::vector<uint8_t>(answer, answer + 5), expected);
}

TEST_F(PldmOverPcie, LongMessageGoesInPacketsOf64Bytes) {
    bring_up("gpu0");
    const sim::PcieStatistics before = board->pcie_statistics();
    std::vector<uint8_t> request(200);
    request[0] = 0x80;
    request[2] = 0x02;
    uint8_t answer[16] = {};
    EXPECT_EQ(mctp.xfer(&mctp, 200, sizeof answer, request.data(), answer), 4);
    EXPECT_EQ(answer[3], 0x03) << "ERROR_INVALID_LENGTH: the request came through as it is";
    const sim::PcieStatistics after = board->pcie_statistics();
    EXPECT_EQ(after.packets - before.packets, 4U + 1U);
    EXPECT_EQ(after.messages - before.messages, 2U);
    EXPECT_EQ(after.payload_bytes - before.payload_bytes, 201U + 5U);
}

}  // namespace
