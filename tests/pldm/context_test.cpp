// SPDX-License-Identifier: Apache-2.0
// The life of a PLDM terminus: who owns the endpoint, when it is freed, what is left behind.
#include <gtest/gtest.h>
#include <sideband/pldm.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "pldm/pldm_fixture.h"
#include "support/endpoint.h"

namespace {

using test::Bytes;
using test::Outcome;
using Texts = std::vector<std::string>;

constexpr const char* kWarning = "[pldm_init:411] release ptr in dangerous way.\n";

/// Every byte set, so that whatever is written shows. The padding is set too.
pldm_ctx garbage() {
    pldm_ctx ctx;
    std::memset(static_cast<void*>(&ctx), 0x5A, sizeof ctx);
    ctx.mctp = nullptr;
    return ctx;
}

/// All of a context, its padding included, but for the record of failures at its end.
Bytes bytes_of(const pldm_ctx& ctx) {
    Bytes bytes(offsetof(pldm_ctx, last_error));
    std::memcpy(bytes.data(), &ctx, bytes.size());
    return bytes;
}

void expect_unbound(const pldm_ctx& ctx) {
    EXPECT_EQ(ctx.last_command, 0);
    EXPECT_EQ(ctx.completion_code, 0);
    EXPECT_EQ(ctx.tid, 0);
    EXPECT_EQ(Bytes(ctx.pldm_types, ctx.pldm_types + 8), Bytes(8));
    EXPECT_EQ(Bytes(ctx.base_commands, ctx.base_commands + 32), Bytes(32));
    EXPECT_EQ(ctx.instance_id, 0);
    EXPECT_EQ(ctx.pldm_version, 0u);
    EXPECT_EQ(ctx.response_length, 0);
    EXPECT_NE(ctx.recv_op, nullptr);
    EXPECT_NE(ctx.send_op, nullptr);
    EXPECT_NE(ctx.transfer_op, nullptr);
}

class PldmTerminus : public test::PlatformTest {
protected:
    /// An endpoint that the library may free.
    static mctp_ctx* heap_endpoint() {
        return static_cast<mctp_ctx*>(std::calloc(1, sizeof(mctp_ctx)));
    }

    /// A configuration whose EIDs are known.
    static mctp_ctx known() {
        mctp_ctx config = test::smbus_context();
        config.skip_discovery = 1;
        return config;
    }

    pldm_ctx ctx{};
};

// ---- pldm_init, mctp_pldm_register ----

TEST_F(PldmTerminus, InitZeroesTheContextAndInstallsTheOperations) {
    ctx = garbage();
    const Outcome outcome = test::run([&] { return pldm_init(&ctx); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, "");
    expect_unbound(ctx);
    EXPECT_EQ(ctx.mctp, nullptr);
}

TEST_F(PldmTerminus, InstalledOperationsAreTheExportedOnes) {
    EXPECT_EQ(pldm_init(&ctx), 0);
    EXPECT_EQ(ctx.recv_op, &pldm_recv);
    EXPECT_EQ(ctx.send_op, &pldm_send);
    EXPECT_EQ(ctx.transfer_op, &pldm_transfer);
}

TEST_F(PldmTerminus, InitOfNullFails) {
    EXPECT_EQ(pldm_init(nullptr), -1);
}

TEST_F(PldmTerminus, InitOfABoundContextFreesItsEndpointWithAWarning) {
    const mctp_ctx config = known();
    ASSERT_EQ(pldm_terminus_init(&ctx, &config), 0);
    ctx.tid = 9;
    const Outcome outcome = test::run([&] { return pldm_init(&ctx); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, kWarning);
    EXPECT_EQ(ctx.mctp, nullptr);
    expect_unbound(ctx);
    EXPECT_EQ(libc.live_blocks(), 0u);
}

TEST_F(PldmTerminus, RegisterBindsTheEndpointAndSetsItsMessageType) {
    ctx = garbage();
    mctp_ctx mctp{};
    mctp.msg_type = 0x84;
    const Outcome outcome = test::run([&] { return mctp_pldm_register(&mctp, &ctx); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(ctx.mctp, &mctp);
    EXPECT_EQ(mctp.msg_type, 1);
    expect_unbound(ctx);
}

TEST_F(PldmTerminus, RegisterOfABoundContextFreesTheOldEndpointWithAWarning) {
    const mctp_ctx config = known();
    ASSERT_EQ(pldm_terminus_init(&ctx, &config), 0);
    mctp_ctx mctp{};
    const Outcome outcome = test::run([&] { return mctp_pldm_register(&mctp, &ctx); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, kWarning);
    EXPECT_EQ(ctx.mctp, &mctp);
    EXPECT_EQ(libc.live_blocks(), 0u);
}

TEST_F(PldmTerminus, RegisterOfNullFailsAndTouchesNothing) {
    ctx = garbage();
    const Bytes before = bytes_of(ctx);
    mctp_ctx mctp{};
    mctp.msg_type = 4;
    const Outcome outcome = test::run([&] {
        return mctp_pldm_register(nullptr, &ctx) + mctp_pldm_register(&mctp, nullptr) +
               mctp_pldm_register(nullptr, nullptr);
    });
    EXPECT_EQ(outcome.result, -3);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(bytes_of(ctx), before);
    EXPECT_EQ(mctp.msg_type, 4);
}

// ---- pldm_terminus_init ----

TEST_F(PldmTerminus, InitCopiesTheConfigurationAndBringsTheEndpointUp) {
    mctp_ctx config = test::whole_configuration();
    config.skip_discovery = 1;
    const mctp_ctx before = config;
    const Outcome outcome = test::run([&] { return pldm_terminus_init(&ctx, &config); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(std::memcmp(&before, &config, sizeof config), 0);
    ASSERT_NE(ctx.mctp, nullptr);
    test::expect_configured(*ctx.mctp, config);
    const mctp_ctx& made = *ctx.mctp;
    EXPECT_EQ(made.unit_size, 64);
    EXPECT_EQ(made.route, 0x01020304u);
    EXPECT_EQ(made.skip_discovery, 1);
    EXPECT_EQ(made.binding, &smbus_mctp_binding);
    EXPECT_NE(made.xfer, nullptr);
    EXPECT_EQ(made.msg_type, MCTP_MSG_TYPE_PLDM);
    expect_unbound(ctx);
    EXPECT_EQ(pldm_terminus_deinit(&ctx), 0);
    EXPECT_EQ(libc.live_blocks(), 0u);
}

TEST_F(PldmTerminus, InitDoesNotTakeOverCountersOrOperationsOfTheConfiguration) {
    mctp_ctx config = known();
    config.tag = 5;
    config.tx_seq = 6;
    config.instance_id = 7;
    config.msg_type = 0x84;
    std::memset(config.uuid, 0xAA, sizeof config.uuid);
    ASSERT_EQ(pldm_terminus_init(&ctx, &config), 0);
    EXPECT_EQ(ctx.mctp->tag, 0);
    EXPECT_EQ(ctx.mctp->tx_seq, 0);
    EXPECT_EQ(ctx.mctp->instance_id, 0);
    EXPECT_EQ(ctx.mctp->uuid[0], 0);
    EXPECT_EQ(ctx.mctp->unit_size, MCTP_UNIT_SIZE_DEFAULT);
    EXPECT_EQ(pldm_terminus_deinit(&ctx), 0);
}

TEST_F(PldmTerminus, InitRunsEndpointDiscovery) {
    // Get Endpoint ID: the endpoint has EID 0x21 already.
    test::Endpoint device({test::hex("00 02 00 21 10 00")});
    mctp_ctx config = test::smbus_context();
    config.dest_eid = 0;
    const Outcome outcome = test::run([&] { return pldm_terminus_init(&ctx, &config); });
    EXPECT_EQ(outcome.result, 0);
    ASSERT_NE(ctx.mctp, nullptr);
    EXPECT_EQ(ctx.mctp->dest_eid, 0x21);
    EXPECT_EQ(ctx.mctp->msg_type, MCTP_MSG_TYPE_PLDM);
    EXPECT_EQ(device.types, Bytes{0});
    EXPECT_EQ(pldm_terminus_deinit(&ctx), 0);
}

TEST_F(PldmTerminus, InitTwiceFreesTheFirstEndpointWithAWarningAndBindsTheSecond) {
    mctp_ctx config = known();
    ASSERT_EQ(pldm_terminus_init(&ctx, &config), 0);
    config.bus = 5;
    const Outcome outcome = test::run([&] { return pldm_terminus_init(&ctx, &config); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, kWarning);
    EXPECT_EQ(libc.live_blocks(), 1u);
    ASSERT_NE(ctx.mctp, nullptr);
    EXPECT_EQ(ctx.mctp->bus, 5);
    EXPECT_EQ(pldm_terminus_deinit(&ctx), 0);
    EXPECT_EQ(libc.live_blocks(), 0u);
}

TEST_F(PldmTerminus, InitWhoseBringUpFailsLeavesTheContextExactlyAsItWas) {
    ctx = garbage();
    ctx.mctp = heap_endpoint();
    const Bytes before = bytes_of(ctx);
    mctp_ctx config = known();
    config.binding_kind = 1;
    Outcome outcome = test::run([&] { return pldm_terminus_init(&ctx, &config); });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(test::port().syslog, Texts{"pldm_terminus_init, mctp_initial() fail\n"});
    EXPECT_EQ(bytes_of(ctx), before);
    // Discovery: nothing answers.
    config = test::smbus_context();
    outcome = test::run([&] { return pldm_terminus_init(&ctx, &config); });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(test::port().syslog.back(), "pldm_terminus_init, mctp_initial() fail\n");
    EXPECT_EQ(bytes_of(ctx), before);
    EXPECT_EQ(libc.live_blocks(), 0u);
    std::free(ctx.mctp);
}

TEST_F(PldmTerminus, InitWithNullArgumentsIsLoggedAndRefused) {
    const mctp_ctx config = known();
    EXPECT_EQ(pldm_terminus_init(nullptr, &config), -112);
    EXPECT_EQ(pldm_terminus_init(&ctx, nullptr), -112);
    EXPECT_EQ(pldm_terminus_init(nullptr, nullptr), -112);
    EXPECT_EQ(test::port().syslog, Texts(3, "pldm_terminus_init, invalid parameters\n"));
    EXPECT_EQ(libc.allocations(), 0);
}

TEST_F(PldmTerminus, InitWithoutMemoryIsLoggedAndRefused) {
    ctx = garbage();
    const Bytes before = bytes_of(ctx);
    const mctp_ctx config = known();
    libc.fail_allocation(1);
    EXPECT_EQ(pldm_terminus_init(&ctx, &config), -112);
    EXPECT_EQ(test::port().syslog, Texts{"pldm_terminus_init, malloc() fail\n"});
    EXPECT_EQ(bytes_of(ctx), before);
}

TEST_F(PldmTerminus, AnInitialisedTerminusAnswersCommands) {
    test::Endpoint device({test::hex("00 00 02 00 07"), test::hex("00 00 04 00 05 00 00 00 00 00 "
                                                                  "00 00")});
    const mctp_ctx config = known();
    ASSERT_EQ(pldm_terminus_init(&ctx, &config), 0);
    EXPECT_EQ(test::run([&] { return pldm_discovery(&ctx); }).result, 0);
    EXPECT_EQ(ctx.tid, 7);
    EXPECT_EQ(device.types, (Bytes{1, 1}));
    EXPECT_EQ(pldm_terminus_deinit(&ctx), 0);
}

// ---- pldm_terminus_deinit ----

TEST_F(PldmTerminus, DeinitFreesTheEndpointAndKeepsTheRest) {
    const mctp_ctx config = known();
    ASSERT_EQ(pldm_terminus_init(&ctx, &config), 0);
    ctx.tid = 9;
    ctx.instance_id = 3;
    Bytes expected = bytes_of(ctx);
    std::fill_n(expected.begin() + offsetof(pldm_ctx, mctp), sizeof ctx.mctp, uint8_t{0});
    // The library's own notes about the endpoint are the last members.
    std::fill(expected.begin() + offsetof(pldm_ctx, owned), expected.end(), uint8_t{0});
    const Outcome outcome = test::run([&] { return pldm_terminus_deinit(&ctx); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(bytes_of(ctx), expected);
    EXPECT_EQ(libc.live_blocks(), 0u);
    EXPECT_EQ(test::port().syslog, Texts());
}

TEST_F(PldmTerminus, DeinitOfAnUnboundContextDoesNothing) {
    ctx = garbage();
    const Bytes before = bytes_of(ctx);
    const Outcome outcome = test::run([&] { return pldm_terminus_deinit(&ctx); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(test::port().syslog, Texts());
    EXPECT_EQ(bytes_of(ctx), before);
}

TEST_F(PldmTerminus, DeinitOfNullIsLoggedAndNoFailure) {
    EXPECT_EQ(pldm_terminus_deinit(nullptr), 0);
    EXPECT_EQ(test::port().syslog, Texts{"pldm_terminus_deinit, pldm_ctx is NULL\n"});
}

// ---- discover_pldm_terminus ----

TEST_F(PldmTerminus, DiscoverLeavesResultsAndAPointerToTheReleasedEndpoint) {
    test::Endpoint device({test::hex("00 00 02 00 07"), test::hex("00 00 04 00 01 00 00 00 00 00 "
                                                                  "00 80")});
    const mctp_ctx config = known();
    const Outcome outcome = test::run([&] { return discover_pldm_terminus(&ctx, &config); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, "get tid: 7\n0: PLDM control disvoery\n");
    EXPECT_EQ(ctx.tid, 7);
    EXPECT_EQ(Bytes(ctx.pldm_types, ctx.pldm_types + 8), test::hex("01 00 00 00 00 00 00 80"));
    EXPECT_EQ(ctx.instance_id, 2);
    // Stale on purpose: it tells that the context was bound, and must never be followed.
    EXPECT_NE(ctx.mctp, nullptr);
    EXPECT_EQ(libc.live_blocks(), 0u);
    EXPECT_EQ(device.requests, (std::vector<Bytes>{test::hex("80 00 02"), test::hex("81 00 04")}));
}

TEST_F(PldmTerminus, DiscoverReturnsTheFailureOfPldmDiscovery) {
    const mctp_ctx config = known();
    const Outcome outcome = test::run([&] { return discover_pldm_terminus(&ctx, &config); });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out,
              "do retrying to xfer PLDM messages - 0\n"
              "failed to xfer PLDM messages\n");
    EXPECT_EQ(test::port().syslog, Texts{"[pldm_get_tid] PLDM tx failed (-1)\n"});
    EXPECT_EQ(ctx.completion_code, 0x30);
    EXPECT_NE(ctx.mctp, nullptr);
    EXPECT_EQ(libc.live_blocks(), 0u);
}

TEST_F(PldmTerminus, DiscoverOfATerminusThatRefusesGetTidLeavesItsCompletionCode) {
    test::Endpoint device({test::hex("00 00 02 05")});
    const mctp_ctx config = known();
    EXPECT_EQ(test::run([&] { return discover_pldm_terminus(&ctx, &config); }).result, -1);
    EXPECT_EQ(ctx.completion_code, 5);
    EXPECT_EQ(device.requests.size(), 1u);
    EXPECT_EQ(libc.live_blocks(), 0u);
}

TEST_F(PldmTerminus, DiscoverIntoANullContextAddsTheTwoFailuresUp) {
    const mctp_ctx config = known();
    const Outcome outcome = test::run([&] { return discover_pldm_terminus(nullptr, &config); });
    EXPECT_EQ(outcome.result, -113);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(libc.live_blocks(), 0u);
}

TEST_F(PldmTerminus, DiscoverFreesAnEndpointThatWasStillBoundWithAWarning) {
    test::Endpoint device({test::hex("00 00 02 05")});
    const mctp_ctx config = known();
    ASSERT_EQ(pldm_terminus_init(&ctx, &config), 0);
    const Outcome outcome = test::run([&] { return discover_pldm_terminus(&ctx, &config); });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out,
              std::string(kWarning) + "command:0x2 is not successful, completion code:0x5\n");
    EXPECT_EQ(libc.live_blocks(), 0u);
}

TEST_F(PldmTerminus, DiscoverWhoseBringUpFailsIsLoggedAndLeavesTheContextAsItWas) {
    ctx = garbage();
    const Bytes before = bytes_of(ctx);
    mctp_ctx config = known();
    config.binding_kind = 4;
    const Outcome outcome = test::run([&] { return discover_pldm_terminus(&ctx, &config); });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(test::port().syslog, Texts{"[discover_pldm_terminus] mctp init & discovery failed."});
    EXPECT_EQ(bytes_of(ctx), before);
    EXPECT_EQ(libc.live_blocks(), 0u);
}

TEST_F(PldmTerminus, DiscoverWithoutAConfigurationFailsWithoutAMessage) {
    ctx = garbage();
    const Bytes before = bytes_of(ctx);
    const Outcome outcome = test::run([&] { return discover_pldm_terminus(&ctx, nullptr); });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(test::port().syslog, Texts());
    EXPECT_EQ(bytes_of(ctx), before);
}

TEST_F(PldmTerminus, DiscoverWithoutMemoryIsToldOnStandardOutput) {
    ctx = garbage();
    const Bytes before = bytes_of(ctx);
    const mctp_ctx config = known();
    libc.fail_allocation(1);
    const Outcome outcome = test::run([&] { return discover_pldm_terminus(&ctx, &config); });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "can't alloc m_ctx\n");
    EXPECT_EQ(test::port().syslog, Texts());
    EXPECT_EQ(bytes_of(ctx), before);
}

}  // namespace
