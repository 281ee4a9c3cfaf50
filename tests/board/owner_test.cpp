// SPDX-License-Identifier: Apache-2.0
// The BMC on a bus that somebody else owns: from Discovery Notify to its EID, on both transports.
#include "fixture.h"

namespace {

using board_test::board_with;
using board_test::BoardRun;

using Answers = std::vector<std::string>;

const std::string kPcieOwner =
    R"({"name": "own0", "type": "bus_owner", "transport": "pcie", "bdf": "80:02.1", "eid": 10,
        "assign": 40})";
const std::string kI2cOwner =
    R"({"name": "own0", "type": "bus_owner", "bus": 2, "address": "0x42", "eid": 9,
        "assign": 33})";

/// What the BMC answers, byte for byte: instance ID, command code, completion code, data.
Answers expected_answers(const std::string& eid) {
    return {"000b00000000", "010c000000000000000000", "",
            "030200001000", "040600ff00031a0001",     "050602",
            "060102000000", "07010000" + eid + "00"};
}

class OwnedBmc : public BoardRun {
protected:
    Answers answers() const {
        Answers all;
        for (const sim::OwnerStep& step : board->owner_report("own0").steps) {
            EXPECT_EQ(step.complaint, "") << step.name << " was answered with " << step.answer;
            all.push_back(step.answer);
        }
        return all;
    }

    /// A context for the owner, with the receive operation that delivers the type byte.
    mctp_ctx context(mctp_recv_op receive) {
        mctp_ctx ctx = context_of("own0");
        ctx.skip_discovery = 1;
        EXPECT_EQ(mctp_init2(&ctx), 0);
        ctx.msg_type = MCTP_MSG_TYPE_CONTROL;
        ctx.recv = receive;
        return ctx;
    }
};

TEST_F(OwnedBmc, TakesAnEidOverPcie) {
    open(board_with("", kPcieOwner));
    mctp_ctx ctx = context(mctp_pcie_recv_with_type);
    EXPECT_EQ(get_bmc_by_owner(&ctx), 1);
    EXPECT_EQ(ctx.src_eid, 40);
    EXPECT_EQ(ctx.dest_eid, 10);
    EXPECT_EQ(ctx.owner_route.binding_eids[0], 10);
    EXPECT_EQ(ctx.pcie_bdf[0], 0x80);
    EXPECT_EQ(ctx.pcie_bdf[1], 2);
    EXPECT_EQ(ctx.pcie_bdf[2], 1);
    EXPECT_EQ(answers(), expected_answers("28"));
    EXPECT_TRUE(board->owner_report("own0").faultless());
    EXPECT_EQ(board->owner_report("own0").assigned_eid, 40);
}

TEST_F(OwnedBmc, TakesAnEidOverSmbus) {
    open(board_with("", kI2cOwner));
    mctp_ctx ctx = context(mctp_smbus_recv_with_type);
    EXPECT_EQ(get_bmc_by_owner(&ctx), 1);
    EXPECT_EQ(ctx.src_eid, 33);
    EXPECT_EQ(ctx.dest_eid, 9);
    EXPECT_EQ(ctx.owner_route.bus, 2);
    EXPECT_EQ(ctx.owner_route.slave_addr, 0x42);
    EXPECT_EQ(answers(), expected_answers("21"));
    EXPECT_TRUE(board->owner_report("own0").faultless());
    EXPECT_EQ(board->owner_report("own0").assigned_eid, 33);
}

TEST_F(OwnedBmc, TalksToTheOwnerAfterwardsThroughTheStockOperations) {
    open(board_with("", kI2cOwner));
    mctp_ctx ctx = context(mctp_smbus_recv_with_type);
    ASSERT_EQ(get_bmc_by_owner(&ctx), 1);
    ctx.skip_discovery = 1;
    ASSERT_EQ(mctp_init2(&ctx), 0);
    EXPECT_EQ(mctp_get_endpoint_id(&ctx), 9);
    EXPECT_EQ(ctx.src_eid, 33);
}

TEST_F(OwnedBmc, SoftwarePecBindingWorksToo) {
    open(board_with("", R"({"name": "own0", "type": "bus_owner", "bus": 2, "address": "0x42",
                            "pec": "software", "eid": 9, "assign": 33})"));
    mctp_ctx ctx = context(mctp_smbus_recv_with_type);
    EXPECT_EQ(get_bmc_by_owner(&ctx), 1);
    EXPECT_EQ(answers(), expected_answers("21"));
}

TEST_F(OwnedBmc, OwnerThatFallsSilentEndsTheWait) {
    for (const std::string& owner : {kPcieOwner, kI2cOwner}) {
        open(board_with("", owner));
        sim::BoardError error;
        // The answer to Discovery Notify passes, the first request too, then no packet more.
        ASSERT_TRUE(board->add_fault("own0", R"({"kind": "lost", "after": 2})", error));
        const bool on_pcie = owner == kPcieOwner;
        mctp_ctx ctx = context(on_pcie ? mctp_pcie_recv_with_type : mctp_smbus_recv_with_type);
        EXPECT_EQ(get_bmc_by_owner(&ctx), 0);
        EXPECT_EQ(ctx.src_eid, 0);
        EXPECT_FALSE(board->owner_report("own0").complete);
        EXPECT_EQ(board->owner_report("own0").steps[0].answer, "000b00000000");
        EXPECT_EQ(board->lock_report().held, std::vector<std::string>{});
    }
}

TEST_F(OwnedBmc, StockReceiveLosesTheTypeByteSoThatNothingIsAnswered) {
    open(board_with("", kPcieOwner));
    mctp_ctx ctx = context_of("own0");
    ctx.skip_discovery = 1;
    ASSERT_EQ(mctp_init2(&ctx), 0);
    ctx.msg_type = MCTP_MSG_TYPE_CONTROL;
    EXPECT_EQ(get_bmc_by_owner(&ctx), 0);
    EXPECT_EQ(board->owner_report("own0").steps[0].answer, "");
}

}  // namespace
