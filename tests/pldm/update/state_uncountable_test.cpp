// SPDX-License-Identifier: Apache-2.0
// Contexts with more components than an index counts, and indices at its edge: every call ends.
#include <gtest/gtest.h>

#include <cstdlib>

#include "pldm/update/device.h"

namespace {

using test::load;
using test::piece;
using test::Texts;

class PldmUncountable : public test::FwMachineTest {
protected:
    static constexpr size_t kMany = 300;

    void SetUp() override {
        device.keeps_dialogue = false;
        device.usual[0x14] = "00 05 14 00 01 06 00 00 00 00 00 00";
        ASSERT_EQ(parse(test::update_package(kMany)), 0);
        ASSERT_EQ(ctx.component_num, kMany);
        ctx.update_list =
            static_cast<pldm_update_component*>(std::calloc(kMany, sizeof(pldm_update_component)));
        for (size_t i = 0; i < kMany; i++) {
            ctx.update_list[i].image = ctx.component_images[i];
        }
    }
    void TearDown() override {
        ctx.component_num = kMany;
        FwMachineTest::TearDown();
    }

    /// The call ends, for each number of components and from each index at an edge.
    template <typename Call>
    void expect_end(uint8_t state, int32_t result, const Call& call) {
        for (const uint16_t count : {0, 1, 255, 256, 300, 65535}) {
            // If the count is larger than the list, there is no list.
            pldm_update_component* const list = ctx.update_list;
            ctx.update_list = count > kMany ? nullptr : list;
            for (const uint8_t index : {0, 1, 253, 254, 255}) {
                ctx.component_num = count;
                ctx.component_index = index;
                ctx.state = state;
                EXPECT_EQ(test::run(call).result, result) << count << " " << int{index};
                EXPECT_GE(ctx.component_index, index);
            }
            ctx.update_list = list;
        }
    }
};

TEST_F(PldmUncountable, EndInEachStateOfTheMachine) {
    for (const uint8_t state : {1, 2, 3, 5, 6}) {
        expect_end(state, 0, [this] { return fw_update_state_fn(&ctx); });
    }
}

TEST_F(PldmUncountable, EndWhereTheComponentIsCancelled) {
    expect_end(3, 0, [this] { return pldm_cancel_update_component(&ctx); });
    const test::Bytes failed = test::hex("80 05 16 02 00 00 00 00 00 00 00");
    expect_end(3, -1, [&] { return pldm_transfer_complete(&ctx, failed.data()); });
}

TEST_F(PldmUncountable, EndWhereTheComponentIsApplied) {
    const test::Bytes applied = test::hex("80 05 18 00 00 00 00 00 00 00 00");
    expect_end(5, 0, [&] { return pldm_apply_complete(&ctx, applied.data()); });
    expect_end(2, 0, [&] { return pldm_apply_complete(&ctx, applied.data()); });
}

TEST_F(PldmUncountable, EndWhereTheDeviceTakesEachOfThem) {
    device.usual[0x14] = "00 05 14 00 00 00 00 00 00 00 00 00";
    device.loads.assign(kMany + 1, load());
    expect_end(2, 0, [this] { return fw_update_state_fn(&ctx); });
}

TEST_F(PldmUncountable, AreNotOfferedToTheDevice) {
    device.keeps_dialogue = true;
    test::port().syslog.clear();
    EXPECT_EQ(act(2).result, 0);
    EXPECT_EQ(device.dialogue, Texts());
    EXPECT_EQ(test::port().syslog, Texts{"fw_update_state_fn, 300 components are more than 255\n"});
    EXPECT_EQ(pldm_fw_update_last_error(&ctx)->cause, SIDEBAND_CAUSE_FILE);
}

TEST_F(PldmUncountable, APieceThatIsRefusedDoesNotMakeTheIndexGoRound) {
    ctx.component_num = 255;
    ctx.component_index = 255;
    device.asks = {piece(0, 32)};
    EXPECT_EQ(act(3).result, 0);
    EXPECT_EQ(ctx.component_index, 255);
}

}  // namespace
