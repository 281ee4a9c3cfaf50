// SPDX-License-Identifier: Apache-2.0
// Platform interface: add-in cards.
#include <sideband/mctp.h>
#include <sideband/platform.h>

#include <cerrno>
#include <cstring>

#include "sim/board/in_use.h"

namespace {

constexpr uint8_t kSmbusBinding = 0;
constexpr uint8_t kPcieBinding = 2;

/// What both bindings take from a card.
void fill_context(mctp_ctx* ctx, uint8_t binding_kind, const plt_card_info* card) {
    if (ctx == nullptr || card == nullptr) {
        return;
    }
    ctx->binding_kind = binding_kind;
    ctx->bus = card->i2c_channel != 0 ? card->i2c_channel : platform.default_i2c_channel;
    ctx->slave_addr = card->slave_addr;
    std::memcpy(ctx->mux, card->mux, sizeof ctx->mux);
    ctx->pcie_bdf[0] = card->bus;
    ctx->pcie_bdf[1] = card->device;
    ctx->pcie_bdf[2] = 0;
}

}  // namespace

int PCIEDeviceMux(uint8_t bus, uint8_t device, plt_card_info* card) {
    sim::BoardState* board = sim::in_use();
    if (board == nullptr || card == nullptr) {
        return -ENODEV;
    }
    std::lock_guard guard(board->mutex);
    const sim::Device* found = board->find_card(bus, device);
    if (found == nullptr) {
        return -ENODEV;
    }
    // A device on PCIe has no I2C route: all three are zero.
    const sim::EndpointInfo& where = found->info();
    card->i2c_channel = where.bus;
    card->slave_addr = where.address;
    std::memcpy(card->mux, where.mux.data(), sizeof card->mux);
    return 0;
}

// The setup parameter tells kinds of cards apart; all cards of this board are set up alike.
void MCTP_binding_SMBUS(mctp_ctx* ctx, uint8_t, const plt_card_info* card) {
    fill_context(ctx, kSmbusBinding, card);
}

void MCTP_binding_PCIE(mctp_ctx* ctx, uint8_t, const plt_card_info* card) {
    fill_context(ctx, kPcieBinding, card);
}
