// SPDX-License-Identifier: Apache-2.0
// Add-in cards: where they are, and a context made of them.
#include <sideband/mctp.h>

#include <optional>

#include "port_fixture.h"

namespace {

using namespace sim_test;

TEST_F(Port, CardsAreFoundByTheirPlaceOnPcie) {
    open(board_with(R"(
        {"name": "nic", "type": "pldm", "bus": 2, "address": "0x66",
         "mux": {"address": "0xe2", "channel": 5},
         "card": {"bdf": "41:02.0", "vendor_id": "0x15b3", "flags": "0x10000", "slot": 3}},
        {"name": "vdm", "type": "pldm", "transport": "pcie", "bdf": "42:00.0",
         "card": {"vendor_id": "0x14e4", "flags": "0x20000"}},
        {"name": "bare", "type": "pldm", "bus": 3, "address": "0x66"})"));
    std::optional<plt_card_info> nic = board->card("nic");
    ASSERT_TRUE(nic);
    EXPECT_EQ(nic->vendor_id, 0x15B3);
    EXPECT_EQ(nic->flags, PLT_CARD_NIC_SMBUS);
    EXPECT_EQ(nic->slot, 3);
    EXPECT_EQ(nic->slave_addr, 0);
    ASSERT_EQ(PCIEDeviceMux(nic->bus, nic->device, &*nic), 0);
    EXPECT_EQ(nic->i2c_channel, 2);
    EXPECT_EQ(nic->slave_addr, 0x66);
    EXPECT_EQ(hex({nic->mux, nic->mux + 6}), "02 e0 03 e2 05 00");
    std::optional<plt_card_info> vdm = board->card("vdm");
    ASSERT_TRUE(vdm);
    EXPECT_EQ(vdm->bus, 0x42);
    EXPECT_EQ(vdm->flags, PLT_CARD_NIC_PCIE);
    EXPECT_EQ(PCIEDeviceMux(0x42, 0, &*vdm), 0);
    EXPECT_EQ(vdm->slave_addr, 0);
    EXPECT_FALSE(board->card("bare"));
    EXPECT_FALSE(board->card("none"));
    EXPECT_NE(PCIEDeviceMux(0x41, 3, &*nic), 0);
    EXPECT_NE(PCIEDeviceMux(0x41, 2, nullptr), 0);
}

TEST_F(Port, BindingSetUpTakesTheCardsAddress) {
    plt_card_info card{};
    card.bus = 0x41;
    card.device = 3;
    card.slave_addr = 0x64;
    card.mux[0] = 1;
    card.mux[47] = 9;
    mctp_ctx ctx{};
    MCTP_binding_SMBUS(&ctx, 100, &card);
    EXPECT_EQ(ctx.binding_kind, MCTP_BINDING_KIND_SMBUS);
    EXPECT_EQ(ctx.bus, 2);  // channel 0 means the board's first bus
    EXPECT_EQ(ctx.slave_addr, 0x64);
    EXPECT_EQ(ctx.mux[0], 1);
    EXPECT_EQ(ctx.mux[47], 9);
    card.i2c_channel = 5;
    MCTP_binding_PCIE(&ctx, 100, &card);
    EXPECT_EQ(ctx.binding_kind, MCTP_BINDING_KIND_PCIE);
    EXPECT_EQ(ctx.bus, 5);
    EXPECT_EQ(ctx.pcie_bdf[0], 0x41);
    EXPECT_EQ(ctx.pcie_bdf[1], 3);
    EXPECT_EQ(ctx.pcie_bdf[2], 0);
}

}  // namespace
