// SPDX-License-Identifier: Apache-2.0
// The small steps of the update agent that several of its commands take.
#include <gtest/gtest.h>

#include "pldm/update/agent_fixture.h"

namespace {

using test::Bytes;
using test::hex;
using test::kComponent;
using test::Texts;

class FwSteps : public test::FwAnswerTest {
protected:
    /// TransferFlags of the answers by which package data of so many parts goes out.
    Bytes flags_of_package_data(unsigned parts) {
        constexpr size_t kFlag = 8;
        constexpr size_t kPart = 4;
        asked(pldm_get_package_data, "80 05 11 00 00 00 00 00");  // is refused, and begins anew
        endpoint.calls.clear();
        pldm_free_ctx_resource(&ctx);
        add_record(1, "v", test::counting(kPart * parts));
        ctx.fd_will_send_pkg_data = 1;
        ctx.max_transfer_size = kPart;
        Bytes flags;
        for (unsigned i = 0; i < parts; i++) {
            Bytes request = hex("80 05 11 00 00 00 00 00");
            request[3] = static_cast<uint8_t>(i);
            request[7] = i == 0 ? 1 : 0;
            asked(pldm_get_package_data, test::to_hex(request));
            flags.push_back(endpoint.calls.back().bytes.at(kFlag));
        }
        return flags;
    }
};

TEST_F(FwSteps, ATransferFlagTellsTheFirstTheMiddleAndTheLastPart) {
    EXPECT_EQ(flags_of_package_data(1), hex("05"));
    EXPECT_EQ(flags_of_package_data(2), hex("01 04"));
    EXPECT_EQ(flags_of_package_data(3), hex("01 02 04"));
    EXPECT_EQ(flags_of_package_data(5), hex("01 02 02 02 04"));
}

TEST_F(FwSteps, TheComponentIndexCountsTo255AndNoFurther) {
    ctx.state = 5;
    ctx.component_index = 254;
    EXPECT_EQ(asked(pldm_apply_complete, "80 05 18 00").result, 0);
    EXPECT_EQ(ctx.component_index, 255);
    EXPECT_EQ(machine, Texts{"state 5 component 255"});
    machine.clear();
    EXPECT_EQ(asked(pldm_apply_complete, "80 05 18 00").result, 0);
    EXPECT_EQ(ctx.component_index, 255);
    EXPECT_EQ(machine, Texts());
    endpoint.answer({"00 05 1c 00"});
    EXPECT_EQ(test::run([this] { return pldm_cancel_update_component(&ctx); }).result, 0);
    EXPECT_EQ(ctx.component_index, 255);
    EXPECT_EQ(machine, Texts());
}

TEST_F(FwSteps, AnElementIsInTheListAndHasAnImage) {
    const auto activate = [this] {
        endpoint.answer({"00 05 1a 00 00 00"});
        return test::run([this] { return pldm_activate_firmware(&ctx); }).result;
    };
    set_components({"", kComponent});
    EXPECT_EQ(activate(), 0);
    ctx.component_num = 1;  // leaves the one without an image
    EXPECT_EQ(activate(), -1);
    set_components({});
    EXPECT_EQ(activate(), -1);
    EXPECT_EQ(test::port().syslog, (Texts{"pldm_activate_firmware, no component\n",
                                          "pldm_activate_firmware, no component\n"}));
    EXPECT_EQ(endpoint.messages(), Texts{"80 05 1a 00"});
}

}  // namespace
