// SPDX-License-Identifier: Apache-2.0
// Endpoints of the caller and of the library: who frees which, and when nobody does.
#include <gtest/gtest.h>
#include <sideband/pldm.h>
#include <sideband/pldm_fw_update.h>

#include <cstring>

#include "pldm/pldm_fixture.h"
#include "support/endpoint.h"

namespace {

using test::Bytes;
using test::Outcome;
using test::operator+;

constexpr const char* kDangerous = "[pldm_init:411] release ptr in dangerous way.\n";

class PldmOwnership : public test::PlatformTest {
protected:
    static mctp_ctx known() {
        mctp_ctx config = test::smbus_context();
        config.skip_discovery = 1;
        return config;
    }

    /// Binds ctx to an endpoint of the library's.
    mctp_ctx* init() {
        EXPECT_EQ(test::run([&] { return pldm_terminus_init(&ctx, &config); }).result, 0);
        EXPECT_EQ(libc.live_blocks(), 1u);
        return ctx.mctp;
    }

    /// A terminus that answers GetTID with this ID works over ctx.
    void expect_tid(uint8_t tid) {
        test::Endpoint device({test::hex("00 00 02 00") + Bytes{tid}});
        EXPECT_EQ(test::run([&] { return pldm_get_tid(&ctx); }).result, 0);
        EXPECT_EQ(ctx.tid, tid);
    }

    void expect_deinit_frees_all() {
        EXPECT_EQ(pldm_terminus_deinit(&ctx), 0);
        EXPECT_EQ(ctx.mctp, nullptr);
        EXPECT_EQ(libc.live_blocks(), 0u);
        EXPECT_EQ(pldm_terminus_deinit(&ctx), 0);  // once more
    }

    const mctp_ctx config = known();
    pldm_ctx ctx{};
};

// ---- Registering the same endpoint again ----

TEST_F(PldmOwnership, RegisteringTheSameEndpointAgainKeepsIt) {
    mctp_ctx mine = config;
    ASSERT_EQ(mctp_init2(&mine), 0);
    ASSERT_EQ(mctp_pldm_register(&mine, &ctx), 0);
    mine.msg_type = MCTP_MSG_TYPE_NCSI;  // another layer has used it
    const Outcome outcome = test::run([&] { return mctp_pldm_register(&mine, &ctx); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, kDangerous);
    EXPECT_EQ(ctx.mctp, &mine);
    EXPECT_EQ(mine.msg_type, MCTP_MSG_TYPE_PLDM);
    expect_tid(7);
}

TEST_F(PldmOwnership, RegisteringItsOwnEndpointAgainKeepsItAndItsOwner) {
    mctp_ctx* const own = init();
    for (int i = 0; i < 3; i++) {
        own->msg_type = MCTP_MSG_TYPE_NCSI;
        const Outcome outcome = test::run([&] { return mctp_pldm_register(own, &ctx); });
        EXPECT_EQ(outcome.result, 0);
        EXPECT_EQ(outcome.out, kDangerous);
        EXPECT_EQ(ctx.mctp, own);
        EXPECT_EQ(own->msg_type, MCTP_MSG_TYPE_PLDM);
        EXPECT_EQ(libc.live_blocks(), 1u);
    }
    expect_tid(8);
    expect_deinit_frees_all();
}

TEST_F(PldmOwnership, RegisteringAgainResetsTheContext) {
    mctp_ctx mine{};
    ASSERT_EQ(mctp_pldm_register(&mine, &ctx), 0);
    ctx.instance_id = 5;
    ctx.transfer_op = nullptr;
    EXPECT_EQ(test::run([&] { return mctp_pldm_register(&mine, &ctx); }).result, 0);
    EXPECT_EQ(ctx.instance_id, 0);
    EXPECT_EQ(ctx.transfer_op, &pldm_transfer);
}

// ---- Endpoints of the caller ----

TEST_F(PldmOwnership, BindingOverACallersEndpointFreesNothing) {
    mctp_ctx first = config;
    mctp_ctx second = config;
    ASSERT_EQ(mctp_pldm_register(&first, &ctx), 0);
    Outcome outcome = test::run([&] { return mctp_pldm_register(&second, &ctx); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, kDangerous);
    EXPECT_EQ(ctx.mctp, &second);
    outcome = test::run([&] { return pldm_init(&ctx); });
    EXPECT_EQ(outcome.out, kDangerous);
    EXPECT_EQ(ctx.mctp, nullptr);
    ASSERT_EQ(mctp_pldm_register(&first, &ctx), 0);
    init();
    EXPECT_NE(ctx.mctp, &first);
    EXPECT_EQ(first.bus, config.bus);
    EXPECT_EQ(second.bus, config.bus);
    expect_deinit_frees_all();
}

TEST_F(PldmOwnership, EndingATerminusOverACallersEndpointFreesNothing) {
    mctp_ctx mine = config;
    ASSERT_EQ(mctp_pldm_register(&mine, &ctx), 0);
    const mctp_ctx before = mine;
    EXPECT_EQ(pldm_terminus_deinit(&ctx), 0);
    EXPECT_EQ(ctx.mctp, nullptr);
    EXPECT_EQ(std::memcmp(&mine, &before, sizeof mine), 0);
}

TEST_F(PldmOwnership, EndingAnUpdateAgentOverACallersEndpointFreesNothing) {
    pldm_fw_update_ctx agent{};
    mctp_ctx mine = config;
    ASSERT_EQ(mctp_pldm_register(&mine, &agent.pldm), 0);
    EXPECT_EQ(pldm_free_ua_resource(&agent), 0);
    EXPECT_EQ(agent.pldm.mctp, nullptr);
    EXPECT_EQ(mine.bus, config.bus);
}

TEST_F(PldmOwnership, DiscoveryOverABoundContextFreesNothingOfTheCallers) {
    test::Endpoint device({test::hex("00 00 02 05")});
    mctp_ctx mine = config;
    ASSERT_EQ(mctp_pldm_register(&mine, &ctx), 0);
    const Outcome outcome = test::run([&] { return discover_pldm_terminus(&ctx, &config); });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_TRUE(outcome.out.starts_with(kDangerous)) << outcome.out;
    EXPECT_EQ(mine.bus, config.bus);
    EXPECT_EQ(libc.live_blocks(), 0u);
}

// ---- Endpoints of the library ----

TEST_F(PldmOwnership, AnEndpointOfTheCallersInItsPlaceIsNotFreedAndTheOwnOneIs) {
    mctp_ctx mine = config;
    mctp_ctx other = config;
    for (mctp_ctx* in_place : {&mine, static_cast<mctp_ctx*>(nullptr)}) {
        const char* const text = in_place != nullptr ? kDangerous : "";
        init();
        ctx.mctp = in_place;
        expect_deinit_frees_all();
        init();
        ctx.mctp = in_place;
        EXPECT_EQ(test::run([&] { return pldm_init(&ctx); }).out, text);
        EXPECT_EQ(libc.live_blocks(), 0u);
        init();
        ctx.mctp = in_place;
        EXPECT_EQ(test::run([&] { return mctp_pldm_register(&other, &ctx); }).out, text);
        EXPECT_EQ(libc.live_blocks(), 0u);
        init();
        ctx.mctp = in_place;
        init();
        expect_deinit_frees_all();
    }
}

TEST_F(PldmOwnership, AnotherContextOnTheSameEndpointDoesNotOwnIt) {
    mctp_ctx* const own = init();
    pldm_ctx second{};
    ASSERT_EQ(mctp_pldm_register(own, &second), 0);
    EXPECT_EQ(pldm_terminus_deinit(&second), 0);
    EXPECT_EQ(libc.live_blocks(), 1u);
    expect_tid(3);
    expect_deinit_frees_all();
}

TEST_F(PldmOwnership, ATerminusIsBroughtUpAnewFromItsOwnEndpoint) {
    init();
    const Outcome outcome = test::run([&] { return pldm_terminus_init(&ctx, ctx.mctp); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, kDangerous);
    EXPECT_EQ(ctx.mctp->bus, config.bus);
    EXPECT_EQ(libc.live_blocks(), 1u);
    expect_tid(4);
    expect_deinit_frees_all();
}

TEST_F(PldmOwnership, AFailedBringUpKeepsTheEndpointAndItsOwner) {
    mctp_ctx* const own = init();
    mctp_ctx wrong = config;
    wrong.binding_kind = 1;
    EXPECT_EQ(pldm_terminus_init(&ctx, &wrong), -1);
    libc.fail_allocation(1);
    EXPECT_EQ(pldm_terminus_init(&ctx, &config), -112);
    libc.fail_allocation(1);
    EXPECT_EQ(test::run([&] { return discover_pldm_terminus(&ctx, &config); }).result, -1);
    EXPECT_EQ(mctp_pldm_register(nullptr, &ctx), -1);
    EXPECT_EQ(ctx.last_error.cause, SIDEBAND_CAUSE_ARGUMENT);
    EXPECT_EQ(ctx.mctp, own);
    EXPECT_EQ(libc.live_blocks(), 1u);
    expect_tid(5);
    expect_deinit_frees_all();
}

// ---- Pointers that lead nowhere ----

TEST_F(PldmOwnership, TheStaleEndpointOfADiscoveryIsNeitherFreedNorFollowed) {
    mctp_ctx mine = config;
    const auto discover = [&] {
        ctx = pldm_ctx{};
        test::Endpoint device({test::hex("00 00 02 05")});
        test::run([&] { return discover_pldm_terminus(&ctx, &config); });
        EXPECT_NE(ctx.mctp, nullptr);
        EXPECT_EQ(libc.live_blocks(), 0u);
    };
    discover();
    expect_deinit_frees_all();
    discover();
    EXPECT_EQ(test::run([&] { return pldm_init(&ctx); }).out, kDangerous);
    discover();
    EXPECT_EQ(test::run([&] { return mctp_pldm_register(&mine, &ctx); }).out, kDangerous);
    discover();
    EXPECT_EQ(test::run([&] { return discover_pldm_terminus(&ctx, &config); }).result, -1);
    discover();
    init();
    expect_tid(6);
    expect_deinit_frees_all();
}

TEST_F(PldmOwnership, TheGarbageOfAContextThatNobodyZeroedIsNotFreed) {
    for (unsigned fill = 0; fill <= 255; fill++) {
        std::memset(static_cast<void*>(&ctx), static_cast<int>(fill), sizeof ctx);
        ctx.mctp = nullptr;
        EXPECT_EQ(pldm_terminus_deinit(&ctx), 0);
        std::memset(static_cast<void*>(&ctx), static_cast<int>(fill), sizeof ctx);
        ctx.mctp = nullptr;
        EXPECT_EQ(pldm_init(&ctx), 0);
        EXPECT_EQ(ctx.owned.endpoint, nullptr);
    }
}

}  // namespace
