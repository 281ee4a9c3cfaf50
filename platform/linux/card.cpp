// SPDX-License-Identifier: Apache-2.0
// Platform interface: add-in cards, as the board file describes them.
#include <sideband/mctp.h>
#include <sideband/platform.h>

#include <cerrno>
#include <cstring>

#include "platform/linux/state.h"

namespace {

static_assert(machine::kLargestUnit == MCTP_UNIT_SIZE_MAX);

const machine::Device* find_card(uint8_t bus, uint8_t device) {
    const machine::State* const state = machine::in_use();
    if (state == nullptr) {
        return nullptr;
    }
    for (const machine::Device& each : state->board.devices) {
        if (each.card && each.card->bus == bus && each.card->device == device) {
            return &each;
        }
    }
    return nullptr;
}

void fill_context(mctp_ctx& ctx, uint8_t binding_kind, const plt_card_info& card) {
    ctx.binding_kind = binding_kind;
    ctx.bus = card.i2c_channel != 0 ? card.i2c_channel : platform.default_i2c_channel;
    ctx.slave_addr = card.slave_addr;
    std::memcpy(ctx.mux, card.mux, sizeof ctx.mux);
    ctx.pcie_bdf[0] = card.bus;
    ctx.pcie_bdf[1] = card.device;
    ctx.pcie_bdf[2] = 0;
}

}  // namespace

int PCIEDeviceMux(uint8_t bus, uint8_t device, plt_card_info* card) {
    const machine::Device* const found = find_card(bus, device);
    if (card == nullptr || found == nullptr) {
        return -ENODEV;
    }
    // Behind the kernel's MCTP there is no bus to know: all are zero.
    card->i2c_channel = found->bus;
    card->slave_addr = found->address;
    std::memcpy(card->mux, found->mux.data(), sizeof card->mux);
    return 0;
}

// The setup parameter tells kinds of cards apart; all cards are set up alike here.
void MCTP_binding_SMBUS(mctp_ctx* ctx, uint8_t setup, const plt_card_info* card) {
    if (ctx == nullptr || card == nullptr) {
        return;
    }
    const machine::Device* const found = find_card(card->bus, card->device);
    if (found != nullptr && found->way == machine::Device::Way::kMctp) {
        // It has no address here: the kernel reaches it, over whatever bus.
        MCTP_binding_PCIE(ctx, setup, card);
        return;
    }
    const bool software_pec = found != nullptr && found->software_pec;
    fill_context(*ctx, software_pec ? MCTP_BINDING_KIND_SL8_SMBUS : MCTP_BINDING_KIND_SMBUS, *card);
    if (found != nullptr) {
        ctx->bus = found->bus;  // 0 is a bus like others
        ctx->unit_size = found->unit_size;
        ctx->i2c_delay_us = found->i2c_delay_us;
        ctx->route = found->read_timeout_ms;
    }
}

void MCTP_binding_PCIE(mctp_ctx* ctx, uint8_t, const plt_card_info* card) {
    if (ctx == nullptr || card == nullptr) {
        return;
    }
    fill_context(*ctx, MCTP_BINDING_KIND_PCIE, *card);
    const machine::Device* const found = find_card(card->bus, card->device);
    if (found != nullptr && found->way == machine::Device::Way::kMctp) {
        // Whoever owns the bus has given the EID already.
        ctx->dest_eid = found->eid;
        ctx->skip_discovery = 1;
        ctx->pcie_param = found->net << 16 | found->read_timeout_ms;
    }
}
