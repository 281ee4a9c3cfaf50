// SPDX-License-Identifier: Apache-2.0
// The life of an NC-SI context: what it copies, owns, borrows and frees.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <optional>
#include <utility>

#include "ncsi/ncsi_fixture.h"
#include "support/endpoint.h"

namespace {

using test::Bytes;
using test::Endpoint;
using test::Guarded;
using test::hex;
using test::ncsi_response;
using test::Outcome;
using test::port;
using test::Texts;
using test::to_hex;

/// Only this channel's controller answers.
Endpoint::Handler channel_alone(uint8_t channel) {
    return [channel](uint8_t, const Bytes& request) -> std::optional<Bytes> {
        if (request[5] != channel) {
            return std::nullopt;
        }
        return ncsi_response(request[4], channel);
    };
}

/// What discovery prints if only channel 5 of package 0 answers.
constexpr const char* kChannel5 =
    "clear init state failed. channel_id:00\n"
    "clear init state failed. channel_id:01\n"
    "clear init state failed. channel_id:02\n"
    "clear init state failed. channel_id:03\n"
    "clear init state failed. channel_id:04\n"
    "discovery ncsi channel[5], channel_id:05\n"
    "clear init state failed. channel_id:06\n"
    "clear init state failed. channel_id:07\n";

class NcsiContext : public test::PlatformTest {
protected:
    NcsiContext() { config.skip_discovery = 1; }
    ~NcsiContext() override {
        if (ctx.mctp != &config) {
            ncsi_deinit(&ctx);
        }
    }

    Outcome init() {
        return test::run([&] { return ncsi_init(&ctx, &config); });
    }
    Outcome oem_init() {
        return test::run([&] { return ncsi_oem_init(&ctx, &config); });
    }
    /// An endpoint that the library may free.
    static mctp_ctx* heap_endpoint() {
        return static_cast<mctp_ctx*>(std::calloc(1, sizeof(mctp_ctx)));
    }

    mctp_ctx config = test::smbus_context();
    ncsi_ctx ctx{};
};

// ---- ncsi_request_init ----

TEST_F(NcsiContext, RequestInitZeroes16BytesAndSetsTheRevision) {
    Guarded header(20);
    EXPECT_EQ(ncsi_request_init(header.data()), 0);
    EXPECT_EQ(to_hex(header.head(20)),
              "00 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 a5 a5 a5 a5");
    EXPECT_TRUE(header.intact());
    EXPECT_EQ(ncsi_request_init(nullptr), -1);
}

// ---- ncsi_init ----

TEST_F(NcsiContext, InitCopiesTheConfigurationAndFindsTheChannels) {
    config = test::whole_configuration();
    config.skip_discovery = 1;
    const mctp_ctx before = config;
    Endpoint device(channel_alone(5));
    const Outcome outcome = init();
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, kChannel5);
    EXPECT_EQ(std::memcmp(&before, &config, sizeof config), 0);
    ASSERT_NE(ctx.mctp, nullptr);
    test::expect_configured(*ctx.mctp, config);
    const mctp_ctx& made = *ctx.mctp;
    EXPECT_EQ(made.unit_size, 64);
    EXPECT_EQ(made.skip_discovery, 1);
    EXPECT_EQ(made.route, 0u);
    EXPECT_EQ(made.msg_type, MCTP_MSG_TYPE_NCSI);
    EXPECT_EQ(ctx.channel_num, 1);
    EXPECT_EQ(ctx.channels[5].channel_id, 0x05);
    EXPECT_EQ(ctx.iid, 9);
}

TEST_F(NcsiContext, InitLeavesTypeAndCountersOfTheConfigurationBehind) {
    config.msg_type = 0x84;
    config.tag = 6;
    config.instance_id = 9;
    config.tx_seq = 3;
    std::memset(config.uuid, 0x11, sizeof config.uuid);
    EXPECT_EQ(init().result, -1);
    ASSERT_NE(ctx.mctp, nullptr);
    EXPECT_EQ(ctx.mctp->msg_type, 0x02);
    EXPECT_EQ(ctx.mctp->instance_id, 0);
    EXPECT_EQ(Bytes(ctx.mctp->uuid, ctx.mctp->uuid + 16), Bytes(16));
    // The first request's tag is 1.
    ASSERT_FALSE(port().written_packets().empty());
    EXPECT_EQ(to_hex(port().written_packets()[0]),
              "01 1d 08 c9 02 00 01 00 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
}

TEST_F(NcsiContext, InitPointsEveryChannelAtTheContextAndInstallsTheTransfer) {
    init();
    EXPECT_NE(ctx.transfer, nullptr);
    EXPECT_EQ(ctx.oem_transfer, nullptr);
    for (const ncsi_channel& channel : ctx.channels) {
        EXPECT_EQ(channel.ctx, &ctx);
    }
}

TEST_F(NcsiContext, InitGivesTheEndpointAnEidFirstWhereItIsNotKnown) {
    config.skip_discovery = 0;
    Endpoint device([](uint8_t type, const Bytes& request) -> std::optional<Bytes> {
        if (type == MCTP_MSG_TYPE_CONTROL) {
            return Bytes{static_cast<uint8_t>(request[0] & 0x1F), 0x02, 0x00, 0x33, 0x00, 0x00};
        }
        return ncsi_response(request[4], request[5]);
    });
    EXPECT_EQ(init().result, 0);
    EXPECT_EQ(ctx.mctp->dest_eid, 0x33);
    EXPECT_EQ(device.types, hex("00 02 02 02 02 02 02 02 02"));
    EXPECT_EQ(ctx.channel_num, 8);
}

TEST_F(NcsiContext, ClearInitialStateHandsItsWaitingTimeToTheSlaveRead) {
    Endpoint device(channel_alone(0));
    EXPECT_EQ(init().result, 0);
    ASSERT_FALSE(port().slave_reads.empty());
    for (const test::ReadRecord& read : port().slave_reads) {
        EXPECT_EQ(read.param, 500u);
    }
    port().slave_reads.clear();
    test::run([&] { return ncsi_get_link_status(&ctx.channels[0]); });
    ASSERT_FALSE(port().slave_reads.empty());
    EXPECT_EQ(port().slave_reads[0].param, 0u);
}

TEST_F(NcsiContext, InitWithoutMemoryFails) {
    libc.fail_allocation(1);
    const Outcome outcome = init();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "can't alloc m_ctx\n");
    EXPECT_EQ(ctx.mctp, nullptr);
    EXPECT_EQ(port().trace, Texts());
}

TEST_F(NcsiContext, InitWhoseEndpointCannotBeBroughtUpFreesIt) {
    config.skip_discovery = 0;
    const Outcome outcome = init();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_TRUE(outcome.out.ends_with("mctp discover failed\n")) << outcome.out;
    EXPECT_EQ(ctx.mctp, nullptr);
    EXPECT_EQ(libc.live_blocks(), 0u);
}

TEST_F(NcsiContext, InitOfAnUnknownBindingFails) {
    config.binding_kind = 9;
    const Outcome outcome = init();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "mctp discover failed\n");
    EXPECT_EQ(ctx.mctp, nullptr);
    EXPECT_EQ(libc.live_blocks(), 0u);
    EXPECT_EQ(port().trace, Texts());
}

TEST_F(NcsiContext, InitThatFindsNoChannelKeepsTheEndpoint) {
    const Outcome outcome = init();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_NE(ctx.mctp, nullptr);
    EXPECT_EQ(libc.live_blocks(), 1u);
    EXPECT_EQ(ctx.channel_num, 0);
}

TEST_F(NcsiContext, InitOfNullFails) {
    EXPECT_EQ(ncsi_init(nullptr, &config), -1);
    EXPECT_EQ(ncsi_init(&ctx, nullptr), -1);
    EXPECT_EQ(ctx.transfer, nullptr);
    EXPECT_EQ(libc.live_blocks(), 0u);
}

// ---- Initialised again ----

TEST_F(NcsiContext, InitAgainFreesWhatTheFirstOneTook) {
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(init().result, -1) << "nobody answers";
        ASSERT_NE(ctx.mctp, nullptr);
        EXPECT_EQ(libc.live_blocks(), 1u);
    }
    EXPECT_EQ(ncsi_deinit(&ctx), 0);
    EXPECT_EQ(libc.live_blocks(), 0u);
}

TEST_F(NcsiContext, InitAgainFindsTheChannels) {
    EXPECT_EQ(init().result, -1);
    const Endpoint device(channel_alone(5));
    EXPECT_EQ(init().result, 0);
    EXPECT_EQ(ctx.channel_num, 1);
    EXPECT_EQ(libc.live_blocks(), 1u);
}

TEST_F(NcsiContext, InitAgainWithTheEndpointOfTheFirstOneAsPrototypeCopiesIt) {
    EXPECT_EQ(init().result, -1);
    EXPECT_EQ(test::run([&] { return ncsi_init(&ctx, ctx.mctp); }).result, -1);
    ASSERT_NE(ctx.mctp, nullptr);
    test::expect_configured(*ctx.mctp, config);
    EXPECT_EQ(libc.live_blocks(), 1u);
}

TEST_F(NcsiContext, InitAgainWithoutMemoryOrBindingFreesWhatTheFirstOneTook) {
    EXPECT_EQ(init().result, -1);
    libc.fail_allocation(1);
    EXPECT_EQ(init().out, "can't alloc m_ctx\n");
    EXPECT_EQ(ctx.mctp, nullptr);
    EXPECT_EQ(libc.live_blocks(), 0u);
    EXPECT_EQ(init().result, -1);
    config.binding_kind = 9;
    EXPECT_EQ(init().out, "mctp discover failed\n");
    EXPECT_EQ(ctx.mctp, nullptr);
    EXPECT_EQ(libc.live_blocks(), 0u);
}

TEST_F(NcsiContext, InitOfAContextThatNobodyHasZeroedFreesNoGarbage) {
    std::memset(static_cast<void*>(&ctx), 0xA5, sizeof ctx);
    EXPECT_EQ(init().result, -1) << "nobody answers";
    ASSERT_NE(ctx.mctp, nullptr);
    test::expect_configured(*ctx.mctp, config);
    EXPECT_EQ(libc.live_blocks(), 1u);
}

TEST_F(NcsiContext, InitFreesNoEndpointThatWasLentOrPutThereByHand) {
    mctp_ctx lent = config;
    EXPECT_EQ(ncsi_oem_init(&ctx, &lent), 0);
    init();
    EXPECT_EQ(lent.slave_addr, config.slave_addr);
    EXPECT_EQ(libc.live_blocks(), 1u);
    EXPECT_EQ(ncsi_deinit(&ctx), 0);
    mctp_ctx put = config;
    ctx.mctp = &put;
    init();
    EXPECT_NE(ctx.mctp, &put);
    EXPECT_EQ(libc.live_blocks(), 1u);
}

TEST_F(NcsiContext, AnEndpointThatItsCallerHasTakenAwayIsNotFreed) {
    init();
    mctp_ctx* const taken = std::exchange(ctx.mctp, nullptr);
    init();
    EXPECT_NE(ctx.mctp, taken);
    EXPECT_EQ(libc.live_blocks(), 2u);
    EXPECT_EQ(ncsi_deinit(&ctx), 0);
    std::free(taken);
}

TEST_F(NcsiContext, OemInitFreesWhatInitTook) {
    init();
    EXPECT_EQ(oem_init().result, 0);
    EXPECT_EQ(ctx.mctp, &config);
    EXPECT_EQ(libc.live_blocks(), 0u);
}

TEST_F(NcsiContext, OemInitWithTheEndpointOfInitKeepsItAndItsOwner) {
    init();
    mctp_ctx* const own = ctx.mctp;
    EXPECT_EQ(test::run([&] { return ncsi_oem_init(&ctx, own); }).result, 0);
    EXPECT_EQ(ctx.mctp, own);
    EXPECT_EQ(libc.live_blocks(), 1u);
    init();
    EXPECT_EQ(libc.live_blocks(), 1u);
}

// ---- ncsi_deinit ----

TEST_F(NcsiContext, DeinitFreesTheOwnedEndpointOnce) {
    init();
    EXPECT_EQ(libc.live_blocks(), 1u);
    EXPECT_EQ(ncsi_deinit(&ctx), 0);
    EXPECT_EQ(ctx.mctp, nullptr);
    EXPECT_EQ(libc.live_blocks(), 0u);
    EXPECT_EQ(ncsi_deinit(&ctx), 0);
    EXPECT_EQ(ncsi_deinit(nullptr), 0);
}

TEST_F(NcsiContext, DeinitFreesABorrowedEndpointAsWell) {
    mctp_ctx* const lent = heap_endpoint();
    EXPECT_EQ(ncsi_oem_init(&ctx, lent), 0);
    const int before = libc.calls["free"];
    EXPECT_EQ(ncsi_deinit(&ctx), 0);
    EXPECT_EQ(libc.calls["free"], before + 1);
    EXPECT_EQ(ctx.mctp, nullptr);
}

TEST_F(NcsiContext, ABorrowerThatClearsThePointerKeepsItsEndpoint) {
    EXPECT_EQ(oem_init().result, 0);
    ctx.mctp = nullptr;
    EXPECT_EQ(ncsi_deinit(&ctx), 0);
    EXPECT_EQ(config.slave_addr, 0x64);
}

TEST_F(NcsiContext, ADeinitialisedContextSendsNothing) {
    init();
    EXPECT_EQ(ncsi_deinit(&ctx), 0);
    port().trace.clear();
    const Outcome outcome = test::run([&] { return ncsi_get_link_status(&ctx.channels[0]); });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "get link status failed.\n");
    EXPECT_EQ(port().trace, Texts());
}

// ---- ncsi_oem_init ----

TEST_F(NcsiContext, OemInitBorrowsTheEndpoint) {
    config.skip_discovery = 0;
    config.i2c_delay_us = 1234;
    config.msg_type = 0x42;
    const Outcome outcome = oem_init();
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(ctx.mctp, &config);
    EXPECT_EQ(config.skip_discovery, 1);
    EXPECT_EQ(config.i2c_delay_us, 0u);
    EXPECT_EQ(config.msg_type, 0x42);
    EXPECT_NE(config.xfer, nullptr);
    EXPECT_NE(ctx.oem_transfer, nullptr);
    EXPECT_NE(ctx.transfer, nullptr);
    for (const ncsi_channel& channel : ctx.channels) {
        EXPECT_EQ(channel.ctx, &ctx);
    }
    EXPECT_EQ(port().trace, Texts()) << "nothing is looked for";
    EXPECT_EQ(libc.allocations(), 0);
}

TEST_F(NcsiContext, OemInitOfAnUnknownBindingFails) {
    config.binding_kind = 9;
    const Outcome outcome = oem_init();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "binding method configure error\n");
}

TEST_F(NcsiContext, OemInitOfNullFails) {
    const mctp_ctx before = config;
    EXPECT_EQ(ncsi_oem_init(nullptr, &config), -1);
    EXPECT_EQ(ncsi_oem_init(&ctx, nullptr), -1);
    EXPECT_EQ(ctx.oem_transfer, nullptr);
    EXPECT_EQ(ctx.mctp, nullptr);
    EXPECT_EQ(std::memcmp(&before, &config, sizeof config), 0);
}

TEST_F(NcsiContext, TheLocksOfAnOemExchangeLieAroundTheBusLock) {
    EXPECT_EQ(oem_init().result, 0);
    config.msg_type = MCTP_MSG_TYPE_NCSI;
    Endpoint device(channel_alone(0));
    EXPECT_EQ(ncsi_oem_discovery(&ctx), 0);
    EXPECT_EQ(port().trace_of({"lock", "unlock"}),
              (Texts{"lock channel 3", "lock ncsi", "lock bus 3", "unlock bus 3", "unlock ncsi",
                     "unlock channel 3"}));
    EXPECT_EQ(port().slave_reads[0].param, 0u);
    EXPECT_EQ(device.types, hex("02"));
}

}  // namespace
