// SPDX-License-Identifier: Apache-2.0
// Strict contexts on the simulated board: devices that keep to the standards notice no difference.
#include <sideband/pldm.h>
#include <sideband/pldm_monitor.h>

#include <set>

#include "fixture.h"

namespace {

using board_test::board_with;
using board_test::BoardRun;

constexpr uint32_t kTransport = MCTP_STRICT_PACKETS | MCTP_STRICT_INTEGRITY | MCTP_STRICT_ADDRESSES;

class StrictBoard : public BoardRun {
protected:
    /// Discovers an endpoint and asks for its terminus ID.
    void expect_terminus(const std::string& name, uint8_t tid, uint8_t kind) {
        mctp_ctx mctp = context_of(name);
        mctp.strict = kTransport;
        mctp.binding_kind = kind;
        ASSERT_EQ(mctp_init2(&mctp), 0) << name;
        EXPECT_TRUE(eids.insert(mctp.dest_eid).second) << int{mctp.dest_eid} << " twice";
        pldm_ctx terminus{};
        ASSERT_EQ(mctp_pldm_register(&mctp, &terminus), 0);
        EXPECT_EQ(pldm_get_tid(&terminus), 0) << name;
        EXPECT_EQ(terminus.tid, tid) << name;
    }

    std::set<int> eids;
};

TEST_F(StrictBoard, EndpointsOverSmbusGetEidsOfTheirOwnAndAnswer) {
    open(board_with("", R"(
        {"name": "gpu0", "type": "pldm", "bus": 2, "address": "0x9e", "tid": 5},
        {"name": "nic0", "type": "pldm", "bus": 2, "address": "0x64", "tid": 6})"));
    expect_terminus("gpu0", 5, MCTP_BINDING_KIND_SL8_SMBUS);
    expect_terminus("nic0", 6, MCTP_BINDING_KIND_SMBUS);
}

TEST_F(StrictBoard, FunctionsOverPcieAreFoundThroughTheMpioAndAnswer) {
    open_with_mpio();
    mctp_ctx mpio{};
    _init_amd_mpio_ctx(&mpio);
    mpio.strict = kTransport;
    ASSERT_EQ(init_amd_mpio_if_need(&mpio), 0);
    expect_terminus("gpu0", 5, MCTP_BINDING_KIND_PCIE);
    expect_terminus("gpu1", 6, MCTP_BINDING_KIND_PCIE);
    expect_terminus("nic0", 9, MCTP_BINDING_KIND_PCIE);
}

TEST_F(StrictBoard, APacketThatIsLostFailsTheExchangeAndTheNextOneIsGood) {
    open(board_with("",
                    R"({"name": "gpu0", "type": "pldm", "bus": 2, "address": "0x9e", "tid": 5})"));
    mctp_ctx mctp = context_of("gpu0");
    mctp.strict = kTransport;
    ASSERT_EQ(mctp_init2(&mctp), 0);
    pldm_ctx terminus{};
    ASSERT_EQ(mctp_pldm_register(&mctp, &terminus), 0);
    sim::BoardError error;
    ASSERT_TRUE(board->add_fault("gpu0", R"({"kind": "lost", "count": 1})", error));
    EXPECT_NE(pldm_get_tid(&terminus), 0);
    EXPECT_EQ(pldm_get_tid(&terminus), 0);
    EXPECT_EQ(terminus.tid, 5);
}

}  // namespace
