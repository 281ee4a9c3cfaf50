// SPDX-License-Identifier: Apache-2.0
// Why an exchange failed, as the context remembers it: each cause over SMBus and PCIe, in control
// messages, in discovery.
#include <sideband/mctp.h>

#include <cerrno>
#include <functional>
#include <string>
#include <vector>

#include "support/endpoint.h"
#include "support/errors.h"
#include "transport/pcie_fixture.h"

namespace {

using test::Bytes;
using test::hex;
using test::port;
using test::ready_context;
using test::said;
using test::SlaveRead;

constexpr sideband_error kStale{
    SIDEBAND_CAUSE_DEVICE, SIDEBAND_CODE_NVME, SIDEBAND_STEP_NVME, 0xC0, 0x1FF, 7};

int32_t ask(mctp_ctx& ctx, size_t length = 2) {
    const Bytes request(length, 0x55);
    uint8_t response[64];
    return ctx.xfer(&ctx, static_cast<uint32_t>(length), sizeof response, request.data(), response);
}

// ---- SMBus ----

/// A failure of an exchange, how it is made and what is remembered of it.
struct Case {
    const char* name;
    std::function<void(mctp_ctx&)> arrange;
    const char* text;
    uint16_t detail;
};

void refuse_writes(int result) {
    port().write_results.assign(3, result);
}

const Case kCases[] = {
    {"NoBinding", [](mctp_ctx& ctx) { ctx.binding = nullptr; }, "wrong argument", 0},
    {"UnitTooLarge", [](mctp_ctx& ctx) { ctx.unit_size = 121; }, "wrong argument", 0},
    {"Lock", [](mctp_ctx&) { port().refused_locks = {"bus 3"}; }, "lock refused", 0},
    {"NoPower", [](mctp_ctx&) { port().main_power = 0; }, "no power", 0},
    {"NoPowerInStandby",
     [](mctp_ctx&) {
         port().main_power = 0;
         port().standby_policy_off = 1;
         platform.standby_option = 1;
     },
     "no power", 0},
    {"NoBus", [](mctp_ctx&) { refuse_writes(-ENODEV); }, "no such bus", ENODEV},
    {"NotAcknowledged", [](mctp_ctx&) { refuse_writes(-ENXIO); }, "not acknowledged", ENXIO},
    {"WriteFailedSomehow", [](mctp_ctx&) { refuse_writes(1); }, "not acknowledged", 0},
    {"NothingCame", [](mctp_ctx&) { port().read_when_empty = SlaveRead::failure(-ETIMEDOUT); },
     "no answer", ETIMEDOUT},
    {"WrongPec", [](mctp_ctx&) { port().reads = {SlaveRead::failure(-EBADMSG)}; }, "wrong checksum",
     EBADMSG},
    {"BlockTooShort",
     [](mctp_ctx&) {
         port().reads = {SlaveRead{3, hex("0F 01 65")}};
     },
     "malformed answer", 0},
    {"BlockTooLong",
     [](mctp_ctx&) {
         port().reads = {SlaveRead{1025, {}}};
     },
     "malformed answer", 0},
    {"OnlyAnotherTag", [](mctp_ctx&) { port().queue({hex("01 08 1D C5 00 AA")}); },
     "only answers to something else came", 0},
    {"OnlyARunt", [](mctp_ctx&) { port().queue({hex("01 08 1D C1")}); }, "malformed answer", 0},
    {"OutOfSequence",
     [](mctp_ctx&) {
         port().queue({hex("01 08 1D 81 00 AA"), hex("01 08 1D 31 BB")});
     },
     "malformed answer", 0},
    {"NothingButDropped",
     [](mctp_ctx&) {
         port().read_when_empty = SlaveRead::of(hex("0F 07 65 01 08 1D C5 00 AA 00"));
     },
     "only answers to something else came", 0},
};

class SmbusError : public test::PlatformTest,
                   public ::testing::WithParamInterface<std::tuple<Case, uint8_t>> {
protected:
    SmbusError() : standby_option_(platform.standby_option) {}
    ~SmbusError() override { platform.standby_option = standby_option_; }

private:
    uint8_t standby_option_;
};

TEST_P(SmbusError, IsRememberedUntilTheNextExchange) {
    const auto& [failure, kind] = GetParam();
    mctp_ctx ctx = ready_context(kind);
    ctx.last_error = kStale;
    failure.arrange(ctx);
    EXPECT_EQ(ask(ctx), -1);
    EXPECT_EQ(said(ctx.last_error), failure.text);
    EXPECT_EQ(ctx.last_error.detail, failure.detail);
    EXPECT_EQ(ctx.last_error.kind, SIDEBAND_CODE_NONE);

    const sideband_error kept = ctx.last_error;
    mctp_ctx fresh = ready_context(kind);
    fresh.last_error = kept;
    test::port().reset();
    test::Endpoint device({hex("00 02")}, false);
    EXPECT_EQ(ask(fresh), 2);
    EXPECT_EQ(said(fresh.last_error), "no failure");
}

INSTANTIATE_TEST_SUITE_P(
    All, SmbusError,
    ::testing::Combine(::testing::ValuesIn(kCases),
                       ::testing::Values(uint8_t{MCTP_BINDING_KIND_SMBUS},
                                         uint8_t{MCTP_BINDING_KIND_SL8_SMBUS})),
    [](const auto& info) {
        return std::string(std::get<0>(info.param).name) +
               (std::get<1>(info.param) == MCTP_BINDING_KIND_SMBUS ? "" : "Sl8");
    });

class ContextError : public test::PlatformTest {};

TEST_F(ContextError, TheFirstCauseStandsForALostPacketInFrontOfTheMissingAnswer) {
    mctp_ctx ctx = ready_context();
    port().write_results = {-ENXIO, -ENXIO, -ENXIO};  // of the first of two packets
    EXPECT_EQ(ask(ctx, 100), -1);
    EXPECT_EQ(port().written_packets().size(), 4u) << "three attempts, and the second packet";
    EXPECT_EQ(said(ctx.last_error), "not acknowledged");
}

TEST_F(ContextError, APacketThatWasDroppedInFrontOfTheAnswerIsNoFailure) {
    mctp_ctx ctx = ready_context();
    port().queue({hex("01 08 1D C5 00 AA"), hex("01 08 1D C1 00 AA")});
    EXPECT_EQ(ask(ctx), 1);
    EXPECT_EQ(said(ctx.last_error), "no failure");
}

TEST_F(ContextError, AStrictContextTellsAWrongIntegrityCheckAndAnotherSender) {
    mctp_ctx ctx = ready_context(MCTP_BINDING_KIND_SMBUS, 0x84);
    ctx.strict = MCTP_STRICT_INTEGRITY;
    port().queue({hex("01 08 1D C1 84 AA 00 00 00 00")});
    EXPECT_EQ(ask(ctx), -1);
    EXPECT_EQ(said(ctx.last_error), "wrong checksum");
    ctx.strict = MCTP_STRICT_ADDRESSES;
    port().queue({hex("01 08 1E C2 84 AA")});
    EXPECT_EQ(ask(ctx), -1);
    EXPECT_EQ(said(ctx.last_error), "only answers to something else came");
}

TEST_F(ContextError, SendAndReceiveRememberToo) {
    mctp_ctx ctx = ready_context();
    const Bytes body = hex("80 02");
    refuse_writes(-ENXIO);
    EXPECT_EQ(ctx.send(&ctx, 2, body.data(), 1), -1);
    EXPECT_EQ(said(ctx.last_error), "not acknowledged");
    EXPECT_EQ(ctx.send(&ctx, 2, body.data(), 1), 0);
    EXPECT_EQ(said(ctx.last_error), "no failure");
    uint8_t buffer[8];
    EXPECT_EQ(ctx.recv(&ctx, sizeof buffer, buffer), -1);
    EXPECT_EQ(said(ctx.last_error), "no answer");
    EXPECT_EQ(mctp_smbus_recv_with_type(&ctx, sizeof buffer, buffer), -1);
    EXPECT_EQ(said(ctx.last_error), "no answer");
    port().refused_locks = {"bus 3"};
    EXPECT_EQ(ctx.recv(&ctx, sizeof buffer, buffer), -1);
    EXPECT_EQ(said(ctx.last_error), "lock refused");
    EXPECT_EQ(ctx.send(&ctx, 2, body.data(), 1), -1);
    EXPECT_EQ(said(ctx.last_error), "lock refused");
}

// ---- Control messages and discovery ----

TEST_F(ContextError, AControlCommandSaysWhichOneAndWhatTheDeviceAnswered) {
    mctp_ctx ctx = ready_context();
    {
        test::Endpoint device({hex("00 02 05"), hex("00 02 00"), hex("00 03 00 1D 00 00")});
        EXPECT_EQ(mctp_get_endpoint_id(&ctx), -1);
        EXPECT_EQ(said(ctx.last_error),
                  "refused by the device: MCTP completion code 0x05, in MCTP control command 0x02");
        EXPECT_EQ(mctp_get_endpoint_id(&ctx), -1);
        EXPECT_EQ(said(ctx.last_error), "malformed answer, in MCTP control command 0x02");
        EXPECT_EQ(mctp_get_endpoint_id(&ctx), -1) << "another command";
        EXPECT_EQ(said(ctx.last_error), "malformed answer, in MCTP control command 0x02");
        EXPECT_EQ(mctp_get_endpoint_uuid(&ctx), -1);
        EXPECT_EQ(said(ctx.last_error), "no answer, in MCTP control command 0x03");
    }
    refuse_writes(-ENXIO);
    EXPECT_EQ(mctp_endpoint_discovery(&ctx), -1);
    EXPECT_EQ(said(ctx.last_error), "not acknowledged, in MCTP control command 0x0c");
    EXPECT_EQ(mctp_get_routing_table_entries(&ctx, 0, nullptr), -1);
    EXPECT_EQ(said(ctx.last_error), "wrong argument");
    ctx.xfer = nullptr;
    EXPECT_EQ(mctp_get_endpoint_id(&ctx), -1);
    EXPECT_EQ(said(ctx.last_error), "wrong argument, in MCTP control command 0x02");
}

TEST_F(ContextError, AStrictContextSaysThatTheDeviceDidNotTakeItsEid) {
    mctp_ctx ctx = ready_context();
    ctx.strict = MCTP_STRICT_ADDRESSES;
    test::Endpoint device({hex("00 01 00 10 20 00"), hex("00 08 00 01 00 00")});
    EXPECT_EQ(mctp_set_endpoint_id(&ctx, 0x20), -1);
    EXPECT_EQ(said(ctx.last_error), "not done by the device, in MCTP control command 0x01");
    EXPECT_EQ(mctp_allocate_endpoint_ids(&ctx, 0, 8, 64), -1);
    EXPECT_EQ(said(ctx.last_error), "not done by the device, in MCTP control command 0x08");
}

TEST_F(ContextError, SetUpAndDiscoverySayWhyTheyFailed) {
    mctp_ctx ctx = test::smbus_context();
    refuse_writes(-ENODEV);
    EXPECT_EQ(mctp_init2(&ctx), -1);
    EXPECT_EQ(said(ctx.last_error), "no such bus, in MCTP control command 0x02");
    ctx.binding_kind = 1;
    EXPECT_EQ(mctp_init2(&ctx), -1);
    EXPECT_EQ(said(ctx.last_error), "wrong argument");
    ctx.binding_kind = MCTP_BINDING_KIND_SMBUS;
    ctx.skip_discovery = 1;
    EXPECT_EQ(mctp_init2(&ctx), 0);
    EXPECT_EQ(said(ctx.last_error), "no failure");
    port().refused_locks = {"eid"};
    EXPECT_EQ(mctp_assign_eid(&ctx), -1);
    EXPECT_EQ(said(ctx.last_error), "lock refused");
}

TEST_F(ContextError, AnEndpointThatAnOwnerGivesNothingToSaysWhy) {
    mctp_ctx ctx = ready_context();
    ctx.recv = mctp_smbus_recv_with_type;
    EXPECT_EQ(get_bmc_by_owner(&ctx), 0);
    EXPECT_EQ(said(ctx.last_error), "no answer");
    port().main_power = 0;
    EXPECT_EQ(get_bmc_by_owner(&ctx), 0);
    EXPECT_EQ(said(ctx.last_error), "no power, in MCTP control command 0x0d")
        << "the owner has not heard of the BMC";
    port().main_power = 1;
    port().refused_locks = {"bus 3"};
    EXPECT_EQ(get_bmc_by_owner(&ctx), 0);
    EXPECT_EQ(said(ctx.last_error), "lock refused, in MCTP control command 0x0d");
    port().refused_locks.clear();
    refuse_writes(-ENXIO);
    EXPECT_EQ(get_bmc_by_owner(&ctx), 0);
    EXPECT_EQ(said(ctx.last_error), "not acknowledged, in MCTP control command 0x0d");
    refuse_writes(-ENODEV);
    EXPECT_EQ(get_bmc_by_owner(&ctx), 0);
    EXPECT_EQ(said(ctx.last_error), "no such bus, in MCTP control command 0x0d");
    ctx.send = nullptr;
    EXPECT_EQ(get_bmc_by_owner(&ctx), 0);
    EXPECT_EQ(said(ctx.last_error), "wrong argument");
}

// ---- PCIe ----

class PcieError : public test::MctpPcie {
protected:
    void platform_gives(int result) {
        port().on_pcie = [result](plt_pcie_request&) { return result; };
    }
    int32_t ask() { return ::ask(ctx); }
};

TEST_F(PcieError, WhatThePlatformSaysIsRemembered) {
    ctx.last_error = kStale;
    platform_gives(0);
    EXPECT_EQ(ask(), -2);
    EXPECT_EQ(said(ctx.last_error), "no answer");
    platform_gives(-ENODEV);
    EXPECT_EQ(ask(), -2);
    EXPECT_EQ(said(ctx.last_error), "no such bus");
    EXPECT_EQ(ctx.last_error.detail, ENODEV);
    platform_gives(-ENXIO);
    EXPECT_EQ(ask(), -2);
    EXPECT_EQ(said(ctx.last_error), "not acknowledged");
    answer_length(hex("01"), 0);
    EXPECT_EQ(ask(), -1);
    EXPECT_EQ(said(ctx.last_error), "malformed answer");
    answer_length(hex("01"), 1037);
    EXPECT_EQ(ask(), -2);
    EXPECT_EQ(said(ctx.last_error), "malformed answer");
    answer(hex("01 00 02"));
    EXPECT_EQ(ask(), 2);
    EXPECT_EQ(said(ctx.last_error), "no failure");
}

TEST_F(PcieError, ReceivesAndSendsRememberToo) {
    test::Guarded buffer(8);
    EXPECT_EQ(receive(8, buffer), -1);
    EXPECT_EQ(said(ctx.last_error), "no answer");
    EXPECT_EQ(mctp_pcie_recv_with_type(&ctx, 8, buffer.data()), -1);
    EXPECT_EQ(said(ctx.last_error), "no answer");
    answer(hex("01"));
    EXPECT_EQ(receive(8, buffer), -1);
    EXPECT_EQ(said(ctx.last_error), "malformed answer");
    answer(Bytes(9, 1));
    EXPECT_EQ(receive(8, buffer), -1);
    EXPECT_EQ(said(ctx.last_error), "malformed answer");
    EXPECT_EQ(receive(0, buffer), -1);
    EXPECT_EQ(said(ctx.last_error), "wrong argument");
    EXPECT_EQ(send(Bytes(1036)), -1);
    EXPECT_EQ(said(ctx.last_error), "wrong argument");
    EXPECT_EQ(send(Bytes(10)), 0);
    EXPECT_EQ(said(ctx.last_error), "no failure");
}

TEST_F(PcieError, AStrictContextTellsAnotherTagFromAWrongIntegrityCheck) {
    ctx.strict = MCTP_STRICT_PACKETS;
    answer(hex("01 00 02"));  // tag 0x93
    EXPECT_EQ(ask(), -1);
    EXPECT_EQ(said(ctx.last_error), "only answers to something else came");
    ctx.strict = MCTP_STRICT_INTEGRITY;
    ctx.msg_type = 0x84;
    answer(hex("84 00 02 00 00 00 00"));
    EXPECT_EQ(ask(), -1);
    EXPECT_EQ(said(ctx.last_error), "wrong checksum");
}

TEST_F(PcieError, AnEndpointThatTheRoutingTableDoesNotListIsNotFound) {
    mctp_ctx target{};
    target.pcie_bdf[0] = 0x47;
    ctx.msg_type = 0;
    port().on_pcie = [](plt_pcie_request& request) {
        const Bytes body = hex("00 00 0A 00 FF 00");
        std::copy(body.begin(), body.end(), request.message);
        request.message[1] = request.message[1] & 0x1F;
        request.length = static_cast<uint32_t>(body.size());
        return 1;
    };
    EXPECT_EQ(get_eid_from_routing_table(&ctx, &target), -1);
    EXPECT_EQ(said(target.last_error), "not found, in MCTP control command 0x0a");
    platform_gives(-ENODEV);
    EXPECT_EQ(get_eid_from_routing_table(&ctx, &target), -1);
    EXPECT_EQ(said(target.last_error), "no such bus, in MCTP control command 0x0a");
    EXPECT_EQ(said(ctx.last_error), "no such bus, in MCTP control command 0x0a");
}

}  // namespace
