// SPDX-License-Identifier: Apache-2.0
// Firmware updates with strict bits: the activation flag, what the device sends unasked, and how
// the contexts learn of the bits.
#include <gtest/gtest.h>

#include <cstring>
#include <utility>

#include "pldm/update/agent_fixture.h"
#include "pldm/update/card.h"
#include "pldm/update/device.h"

namespace {

using test::Outcome;
using test::port;
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

TEST_F(FwStrictActivate, TheUpdateContextAddsTheBitsOfThePrototype) {
    mctp_ctx config = test::smbus_context();
    config.skip_discovery = 1;
    config.strict = MCTP_STRICT_PACKAGE;
    pldm_fw_update_ctx other{};
    other.strict = MCTP_STRICT_PLDM;
    test::run([&] { return pldm_fw_update_init(&other, &config); });
    EXPECT_EQ(other.strict, MCTP_STRICT_PACKAGE | MCTP_STRICT_PLDM);
    EXPECT_EQ(other.pldm.mctp->strict, MCTP_STRICT_PACKAGE);
    EXPECT_EQ(pldm_free_ua_resource(&other), 0);
}

TEST_F(FwStrictActivate, AnUpdateLooksAtTheBitsOfItsEndpoint) {
    tool::Package package = test::sample_package();
    package.version.clear();
    write_file(tool::build_package(package));
    endpoint.strict = MCTP_STRICT_PACKAGE;
    test::run([&] { return pldm_nic_update(path.c_str(), &ctx, nullptr, PLDM_FW_FLAG_QUERY); });
    EXPECT_EQ(ctx.pldm.completion_code, PLDM_FW_MARK_PACKAGE);
    EXPECT_EQ(port().syslog.front(),
              "pldm_parse_file, header of revision 1: empty version string\n");
}

class FwStrictCheck : public test::CardTest {};

TEST_F(FwStrictCheck, TheCardsEndpointGetsTheBitsOfTheUpdateContext) {
    plt_card_info card{};
    card.vendor_id = 0x8086;
    card.flags = PLT_CARD_NIC_SMBUS;
    const pldm_card_location location{0x41, 2};
    mctp_ctx mctp;
    std::memset(&mctp, 0xEE, sizeof mctp);  // what was in it is gone
    write_file(tool::build_package(test::package_for({})));
    ctx.strict = MCTP_STRICT_PACKAGE | MCTP_STRICT_NVME_MI;
    test::run(
        [&] { return pldm_check_firmware_image(path.c_str(), &ctx, &location, &mctp, &card); });
    EXPECT_EQ(mctp.strict, MCTP_STRICT_PACKAGE | MCTP_STRICT_NVME_MI);
    ASSERT_NE(ctx.pldm.mctp, nullptr);
    EXPECT_EQ(ctx.pldm.mctp->strict, mctp.strict);
}

}  // namespace
