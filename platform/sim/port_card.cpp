// SPDX-License-Identifier: Apache-2.0
// Platform interface: add-in cards, for a board that has no slots.
#include <sideband/mctp.h>
#include <sideband/platform.h>

#include <cerrno>
#include <cstring>

namespace {

constexpr uint8_t kSmbusBinding = 0;
constexpr uint8_t kPcieBinding = 2;

/// What both bindings take from a card.
void fill_context(mctp_ctx* ctx, uint8_t binding_kind, const plt_card_info* card) {
    if (ctx == nullptr || card == nullptr)
        return;
    ctx->binding_kind = binding_kind;
    ctx->bus = card->i2c_channel != 0 ? card->i2c_channel : platform.default_i2c_channel;
    ctx->slave_addr = card->slave_addr;
    std::memcpy(ctx->mux, card->mux, sizeof ctx->mux);
    ctx->pcie_bdf[0] = card->bus;
    ctx->pcie_bdf[1] = card->device;
    ctx->pcie_bdf[2] = 0;
}

}  // namespace

int PCIEDeviceMux(uint8_t, uint8_t, plt_card_info*) {
    return -ENODEV;  // the board has no slots
}

void MCTP_binding_SMBUS(mctp_ctx* ctx, uint8_t, const plt_card_info* card) {
    fill_context(ctx, kSmbusBinding, card);
}

void MCTP_binding_PCIE(mctp_ctx* ctx, uint8_t, const plt_card_info* card) {
    fill_context(ctx, kPcieBinding, card);
}
