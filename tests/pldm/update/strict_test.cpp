// SPDX-License-Identifier: Apache-2.0
// Firmware updates with strict bits: the activation flag, what the device sends unasked, and how
// the contexts learn of the bits.
#include <gtest/gtest.h>

#include <utility>

#include "pldm/update/agent_fixture.h"
#include "pldm/update/device.h"

namespace {

using test::Outcome;
using Texts = std::vector<std::string>;

// ---- ActivateFirmware ----

class FwStrictActivate : public test::FwUpdateTest {
protected:
    std::string flag_for(const char* methods) {
        set_components({std::string("0a 00 01 01 44 33 22 11 00 00 ") + methods +
                        " 40 00 00 00 34 12 00 00 01 00"});
        ctx.pldm.instance_id = 0;
        endpoint.answer({"00 05 1a 00 2c 01"});
        EXPECT_EQ(test::run([&] { return pldm_activate_firmware(&ctx); }).result, 0);
        return endpoint.messages().back();
    }
};

TEST_F(FwStrictActivate, TheFlagIsZeroOrOne) {
    endpoint.strict = MCTP_STRICT_PLDM;
    EXPECT_EQ(flag_for("00 00"), "80 05 1a 00");
    EXPECT_EQ(flag_for("02 00"), "80 05 1a 01");
    EXPECT_EQ(flag_for("fd ff"), "80 05 1a 00");
    EXPECT_EQ(flag_for("ff ff"), "80 05 1a 01");
}

TEST_F(FwStrictActivate, WithoutTheBitItIsTheBitOfTheMethods) {
    endpoint.strict = MCTP_STRICT_ALL & ~MCTP_STRICT_PLDM;
    EXPECT_EQ(flag_for("00 00"), "80 05 1a 00");
    EXPECT_EQ(flag_for("02 00"), "80 05 1a 02");
}

// ---- The loop ----

class FwStrictLoop : public test::FwMachineTest {
protected:
    /// What no request of the device is, then TransferComplete.
    Texts served(uint32_t strict) {
        prepare(1);
        ctx.pldm.mctp->strict = strict;
        ctx.req_fw_data_wait = 10;
        device.asks = {"00 05 16 00", "80 45 16 00", "80 02 16 00", "8a 05 16 00"};
        act(3);
        return device.dialogue_of({"= "});
    }
};

TEST_F(FwStrictLoop, OnlyRequestsOfTheDeviceAreServed) {
    EXPECT_EQ(served(MCTP_STRICT_PLDM), Texts{"= 0a 05 16 00"});
    EXPECT_EQ(ctx.state, 4);
}

TEST_F(FwStrictLoop, WithoutTheBitTheCommandAloneCounts) {
    EXPECT_EQ(served(MCTP_STRICT_ALL & ~MCTP_STRICT_PLDM).size(), 4u);
}

TEST_F(FwStrictLoop, AWholeUpdateIsMade) {
    prepare(2);
    ctx.pldm.mctp->strict = MCTP_STRICT_ALL;
    device.loads = {test::load(40), test::load(40)};
    device.knows_instance_ids = true;
    EXPECT_EQ(act(1).result, 0);
    const Texts sent = device.dialogue_of({"> "});
    EXPECT_EQ(sent.back().substr(5), "05 1a 00");
    EXPECT_EQ(ctx.state, 6);
}

// ---- Where the bits come from ----

TEST_F(FwStrictActivate, TheTerminusInheritsTheBitsOfItsPrototype) {
    mctp_ctx config = test::smbus_context();
    config.skip_discovery = 1;
    config.strict = MCTP_STRICT_PLDM | MCTP_STRICT_PACKAGE;
    pldm_ctx terminus{};
    ASSERT_EQ(pldm_terminus_init(&terminus, &config), 0);
    EXPECT_EQ(terminus.mctp->strict, config.strict);
    EXPECT_EQ(pldm_terminus_deinit(&terminus), 0);
}

}  // namespace
