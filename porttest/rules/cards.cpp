// SPDX-License-Identifier: Apache-2.0
// Rules of add-in cards and of PCIe.
#include <cstring>

#include "porttest/aside.h"
#include "porttest/rule.h"

namespace porttest {

namespace {

/// Where no card of a BMC's is: the last device of the last bus.
constexpr uint8_t kNoBus = 0xFF;
constexpr uint8_t kNoDevice = 0x1F;
constexpr uint8_t kNicSetup = 100;
constexpr int kLongMs = 20'000;

Verdict unknown(const Subject& subject) {
    plt_card_info card{};
    const int result = subject.port.card_mux(kNoBus, kNoDevice, &card);
    return result != 0 ? passed() : failed("PCIEDeviceMux() finds a card at ff:1f");
}

plt_card_info some_card() {
    plt_card_info card{};
    card.flags = PLT_CARD_NIC_SMBUS;
    card.bus = 0x41;
    card.device = 0x02;
    card.i2c_channel = 5;
    card.slave_addr = 0x64;
    for (size_t i = 0; i < sizeof card.mux; ++i) {
        card.mux[i] = static_cast<uint8_t>(i + 1);
    }
    return card;
}

Verdict smbus(const Subject& subject) {
    const plt_card_info card = some_card();
    mctp_ctx ctx{};
    ctx.src_eid = 8;
    subject.port.card_smbus(&ctx, kNicSetup, &card);
    if (ctx.binding_kind != MCTP_BINDING_KIND_SMBUS &&
        ctx.binding_kind != MCTP_BINDING_KIND_SL8_SMBUS) {
        return failed(text("binding_kind is %u", ctx.binding_kind));
    }
    if (ctx.bus != card.i2c_channel || ctx.slave_addr != card.slave_addr) {
        return failed(text("bus %u and address 0x%02x became %u and 0x%02x", card.i2c_channel,
                           card.slave_addr, ctx.bus, ctx.slave_addr));
    }
    return std::memcmp(ctx.mux, card.mux, sizeof ctx.mux) == 0
               ? passed()
               : failed("mux is not that of the card");
}

Verdict pcie(const Subject& subject) {
    const plt_card_info card = some_card();
    mctp_ctx ctx{};
    ctx.src_eid = 8;
    subject.port.card_pcie(&ctx, kNicSetup, &card);
    if (ctx.binding_kind != MCTP_BINDING_KIND_PCIE) {
        return failed(text("binding_kind is %u", ctx.binding_kind));
    }
    return ctx.pcie_bdf[0] == card.bus && ctx.pcie_bdf[1] == card.device
               ? passed()
               : failed("pcie_bdf is not that of the card");
}

Verdict session(const Subject& subject) {
    plt_pcie_session session{};
    if (subject.port.pcie_open(&session) != 0) {
        return not_applicable("libmctp_pcie_open() fails: there is no MCTP over PCIe");
    }
    subject.port.pcie_close(&session);
    return session.handle == nullptr ? passed()
                                     : failed("the handle is not null behind libmctp_pcie_close()");
}

/// The contexts that the library makes for itself have no session either.
Verdict nobody(const Subject& subject) {
    constexpr uint8_t kGetEndpointId[] = {0x00, 0x80, 0x02};
    plt_pcie_request request{};
    request.operation = PLT_PCIE_WRITE_READ;
    request.routing = PLT_PCIE_ROUTE_BY_ID;
    request.dest_eid = 254;
    request.src_eid = subject.eid();
    request.bus = kNoBus;
    request.device = kNoDevice;
    request.length = sizeof kGetEndpointId;
    std::memcpy(request.message, kGetEndpointId, sizeof kGetEndpointId);
    int result = 0;
    if (!duration_of(kLongMs, [&] { result = subject.port.pcie(&request); })) {
        return failed(text("PltMCTP_WriteRead() has not ended after %d ms", kLongMs));
    }
    return result != 1 ? passed() : failed("PltMCTP_WriteRead() has an answer from nobody");
}

constexpr Rule kRules[] = {
    {"card-unknown", "attach", "PCIEDeviceMux() says of a card that is not there that it is not",
     "PCIEDeviceMux(): 0 is success", unknown},
    {"card-smbus", "attach",
     "MCTP_binding_SMBUS() sets binding_kind, and copies i2c_channel to bus, slave_addr and mux",
     "MCTP_binding_SMBUS(): the library takes nothing over from the card", smbus},
    {"card-pcie", "attach", "MCTP_binding_PCIE() sets binding_kind and pcie_bdf",
     "MCTP_binding_PCIE(): the library takes nothing over from the card", pcie},
    {"pcie-session", "attach", "libmctp_pcie_close() sets the handle to null",
     "libmctp_pcie_close()", session},
    {"pcie-nobody", "attach",
     "an exchange over PCIe with an EID that nobody has ends, and not with 1",
     "PltMCTP_WriteRead(): 1 alone is success; its time limit", nobody},
};

}  // namespace

std::span<const Rule> card_rules() {
    return kRules;
}

}  // namespace porttest
