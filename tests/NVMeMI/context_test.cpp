// SPDX-License-Identifier: Apache-2.0
// The life of an NVMe-MI context: what it copies, owns and frees, and how its two forms differ.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <optional>
#include <utility>

#include "NVMeMI/nvme_fixture.h"

namespace {

using test::Bytes;
using test::checked;
using test::Endpoint;
using test::hex;
using test::mi_response;
using test::Outcome;
using test::port;
using test::Texts;
using test::to_hex;
using test::operator+;

/// nvmemi_init() or nvmemi_init_for_MARV().
struct Form {
    const char* name;
    int32_t (*init)(nvmemi_ctx*, const mctp_ctx*);
    uint32_t route;
};

class NvmeContext : public test::PlatformTest, public testing::WithParamInterface<Form> {
protected:
    ~NvmeContext() override { nvmemi_deinit(&ctx); }

    Outcome init(decltype(Form::init) form) {
        return test::run([&] { return form(&ctx, &config); });
    }
    Outcome init() { return init(GetParam().init); }
    Outcome ask_port_1() {
        return test::run([&] { return nvmemi_config_get_smbus_freq(&ctx, 1, &frequency); });
    }

    mctp_ctx config = test::smbus_context();
    nvmemi_ctx ctx{};
    uint8_t frequency = 0xEE;
};

using NvmeForms = NvmeContext;

INSTANTIATE_TEST_SUITE_P(Form, NvmeForms,
                         testing::Values(Form{"Plain", nvmemi_init, 1180648},
                                         Form{"Marv", nvmemi_init_for_MARV, 0}),
                         [](const auto& info) { return std::string(info.param.name); });

// ---- Both forms ----

TEST_P(NvmeForms, TheConfigurationIsCopiedIntoAnEndpointOfItsOwn) {
    config = test::whole_configuration();
    const mctp_ctx before = config;
    const Outcome outcome = init();
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(std::memcmp(&before, &config, sizeof config), 0);
    ASSERT_NE(ctx.mctp, nullptr);
    test::expect_configured(*ctx.mctp, config);
    EXPECT_NE(ctx.mi_request, nullptr);
    EXPECT_EQ(libc.live_blocks(), 1u);
}

TEST_P(NvmeForms, TheLibrarysOwnMembersAreSetWhateverTheConfigurationSays) {
    config.unit_size = 96;
    config.msg_type = 0x7E;
    config.skip_discovery = 0;
    config.route = 55;
    EXPECT_EQ(init().result, 0);
    EXPECT_EQ(ctx.mctp->unit_size, 64);
    EXPECT_EQ(ctx.mctp->msg_type, 4);
    EXPECT_EQ(ctx.mctp->skip_discovery, 1);
    EXPECT_EQ(ctx.mctp->route, GetParam().route);
    EXPECT_EQ(port().trace, Texts()) << "nothing is looked for";
}

TEST_P(NvmeForms, CountersOfTheConfigurationAreLeftBehind) {
    config.tag = 6;
    config.instance_id = 9;
    config.tx_seq = 3;
    std::memset(config.uuid, 0x11, sizeof config.uuid);
    EXPECT_EQ(init().result, 0);
    EXPECT_EQ(ctx.mctp->tag, 0);
    EXPECT_EQ(ctx.mctp->instance_id, 0);
    EXPECT_EQ(ctx.mctp->tx_seq, 0);
    EXPECT_EQ(Bytes(ctx.mctp->uuid, ctx.mctp->uuid + 16), Bytes(16));
}

TEST_P(NvmeForms, WithoutMemoryTheSetUpFails) {
    libc.fail_allocation(1);
    const Outcome outcome = init();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "cannot alloc m_ctx\n");
    EXPECT_EQ(ctx.mctp, nullptr);
    EXPECT_EQ(port().trace, Texts());
    EXPECT_EQ(ask_port_1().result, -1);
    EXPECT_EQ(nvmemi_deinit(&ctx), 0);
}

TEST_P(NvmeForms, AnUnknownBindingFailsAndTheEndpointStaysAllocated) {
    for (uint8_t kind : Bytes{1, 4, 0xFF}) {
        SCOPED_TRACE(int{kind});
        config.binding_kind = kind;
        const Outcome outcome = init();
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(outcome.out, "");
        ASSERT_NE(ctx.mctp, nullptr);
        EXPECT_EQ(libc.live_blocks(), 1u);
        EXPECT_EQ(ctx.mctp->unit_size, 64);
        EXPECT_EQ(nvmemi_deinit(&ctx), 0);
        EXPECT_EQ(libc.live_blocks(), 0u);
    }
}

TEST_P(NvmeForms, ACommandOverAnEndpointWithoutBindingFails) {
    config.binding_kind = 9;
    EXPECT_EQ(init().result, -1);
    const Outcome outcome = ask_port_1();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "fail to get NVMe-MI config\n");
    EXPECT_EQ(frequency, 0xEE);
    EXPECT_EQ(port().trace, Texts());
}

TEST_P(NvmeForms, NullArgumentsAreRefused) {
    EXPECT_EQ(GetParam().init(nullptr, &config), -1);
    EXPECT_EQ(GetParam().init(&ctx, nullptr), -1);
    EXPECT_EQ(ctx.mctp, nullptr);
    EXPECT_EQ(libc.allocations(), 0);
}

TEST_P(NvmeForms, TheReadParameterIsHandedToEverySlaveRead) {
    EXPECT_EQ(init().result, 0);
    const Endpoint drive({checked(mi_response(hex("02 00 00")))}, false);
    EXPECT_EQ(ask_port_1().result, 0);
    ASSERT_EQ(port().slave_reads.size(), 1u);
    EXPECT_EQ(port().slave_reads[0].param, GetParam().route);
    EXPECT_EQ(frequency, 2);
}

TEST_P(NvmeForms, EveryCommandAsksForAnIntegrityCheckWhateverTheTypeWas) {
    EXPECT_EQ(init().result, 0);
    const Endpoint drive({checked(mi_response()), checked(mi_response())}, false);
    EXPECT_EQ(ask_port_1().result, 0);
    EXPECT_EQ(ctx.mctp->msg_type, 0x84);
    ctx.mctp->msg_type = 0x01;
    EXPECT_EQ(ask_port_1().result, 0);
    EXPECT_EQ(ctx.mctp->msg_type, 0x84);
    EXPECT_EQ(drive.types, hex("84 84"));
}

TEST_P(NvmeForms, TheTagGoesOnFromCommandToCommand) {
    EXPECT_EQ(init().result, 0);
    const Endpoint drive([](uint8_t, const Bytes&) { return checked(mi_response()); });
    for (unsigned i = 1; i <= 9; i++) {
        port().writes.clear();
        EXPECT_EQ(ask_port_1().result, 0);
        ASSERT_EQ(port().written_packets().size(), 1u);
        EXPECT_EQ(port().written_packets()[0][3], 0xC8 | (i & 7)) << i;
    }
}

// ---- Initialised again ----

TEST_P(NvmeForms, InitialisingAgainFreesWhatTheFirstOneTook) {
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(init().result, 0);
        ASSERT_NE(ctx.mctp, nullptr);
        EXPECT_EQ(libc.live_blocks(), 1u);
    }
    EXPECT_EQ(nvmemi_deinit(&ctx), 0);
    EXPECT_EQ(libc.live_blocks(), 0u);
}

TEST_P(NvmeForms, AFailedSetUpIsTriedAgain) {
    config.binding_kind = 9;
    EXPECT_EQ(init().result, -1);
    EXPECT_EQ(init().result, -1);
    EXPECT_EQ(libc.live_blocks(), 1u);
    config.binding_kind = MCTP_BINDING_KIND_SMBUS;
    EXPECT_EQ(init().result, 0);
    EXPECT_EQ(libc.live_blocks(), 1u);
    const Endpoint drive({checked(mi_response(hex("02 00 00")))}, false);
    EXPECT_EQ(ask_port_1().result, 0);
    EXPECT_EQ(frequency, 2);
}

TEST_P(NvmeForms, InitialisingAgainWithoutMemoryFreesWhatTheFirstOneTook) {
    EXPECT_EQ(init().result, 0);
    libc.fail_allocation(1);
    EXPECT_EQ(init().out, "cannot alloc m_ctx\n");
    EXPECT_EQ(ctx.mctp, nullptr);
    EXPECT_EQ(libc.live_blocks(), 0u);
}

TEST_P(NvmeForms, TheEndpointOfTheFirstOneMayBeThePrototypeOfTheSecond) {
    EXPECT_EQ(init().result, 0);
    EXPECT_EQ(GetParam().init(&ctx, ctx.mctp), 0);
    test::expect_configured(*ctx.mctp, config);
    EXPECT_EQ(libc.live_blocks(), 1u);
}

TEST_P(NvmeForms, AContextThatNobodyHasZeroedHasItsGarbageNotFreed) {
    std::memset(static_cast<void*>(&ctx), 0xA5, sizeof ctx);
    EXPECT_EQ(init().result, 0);
    test::expect_configured(*ctx.mctp, config);
    EXPECT_EQ(libc.live_blocks(), 1u);
}

TEST_P(NvmeForms, AnEndpointThatWasPutThereByHandIsNotFreed) {
    mctp_ctx own = config;
    ctx.mctp = &own;
    EXPECT_EQ(init().result, 0);
    EXPECT_NE(ctx.mctp, &own);
    mctp_ctx* const taken = std::exchange(ctx.mctp, nullptr);
    EXPECT_EQ(init().result, 0);
    EXPECT_EQ(libc.live_blocks(), 2u) << "the caller has taken one away";
    std::free(taken);
}

// ---- Life's end ----

TEST_F(NvmeContext, DeinitFreesTheEndpointOnce) {
    EXPECT_EQ(init(nvmemi_init).result, 0);
    EXPECT_EQ(libc.live_blocks(), 1u);
    EXPECT_EQ(nvmemi_deinit(&ctx), 0);
    EXPECT_EQ(ctx.mctp, nullptr);
    EXPECT_EQ(libc.live_blocks(), 0u);
    EXPECT_EQ(nvmemi_deinit(&ctx), 0);
    EXPECT_EQ(nvmemi_deinit(nullptr), 0);
}

TEST_F(NvmeContext, ADeinitialisedContextSendsNothing) {
    EXPECT_EQ(init(nvmemi_init).result, 0);
    EXPECT_EQ(nvmemi_deinit(&ctx), 0);
    const Outcome outcome = ask_port_1();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "fail to get NVMe-MI config\n");
    EXPECT_EQ(port().trace, Texts());
}

TEST_F(NvmeContext, AContextCanBeInitialisedAgain) {
    EXPECT_EQ(init(nvmemi_init).result, 0);
    EXPECT_EQ(nvmemi_deinit(&ctx), 0);
    EXPECT_EQ(init(nvmemi_init_for_MARV).result, 0);
    EXPECT_EQ(ctx.mctp->route, 0u);
    EXPECT_EQ(libc.live_blocks(), 1u);
}

// ---- Bindings ----

TEST_F(NvmeContext, InitTakesEachBinding) {
    for (uint8_t kind :
         {MCTP_BINDING_KIND_SMBUS, MCTP_BINDING_KIND_PCIE, MCTP_BINDING_KIND_SL8_SMBUS}) {
        SCOPED_TRACE(int{kind});
        config.binding_kind = kind;
        EXPECT_EQ(init(nvmemi_init).result, 0);
        EXPECT_NE(ctx.mctp->xfer, nullptr);
        EXPECT_EQ(ctx.mctp->unit_size, 64);
        EXPECT_EQ(nvmemi_deinit(&ctx), 0);
    }
}

TEST_F(NvmeContext, MarvNeedsPecByTheController) {
    for (uint8_t kind : {MCTP_BINDING_KIND_PCIE, MCTP_BINDING_KIND_SL8_SMBUS}) {
        SCOPED_TRACE(int{kind});
        config.binding_kind = kind;
        EXPECT_EQ(init(nvmemi_init_for_MARV).result, -1);
        ASSERT_NE(ctx.mctp, nullptr);
        EXPECT_EQ(ctx.mctp->xfer, nullptr);
        EXPECT_EQ(nvmemi_deinit(&ctx), 0);
    }
}

/// The simplest command over PEC in software, which sends no integrity check.
TEST_F(NvmeContext, PecInSoftwareSendsNoIntegrityCheck) {
    config.binding_kind = MCTP_BINDING_KIND_SL8_SMBUS;
    EXPECT_EQ(init(nvmemi_init).result, 0);
    const Endpoint drive({mi_response(hex("03 00 00"))}, false);
    EXPECT_EQ(ask_port_1().result, 0);
    EXPECT_EQ(frequency, 3);
    ASSERT_EQ(port().written_packets().size(), 1u);
    EXPECT_EQ(to_hex(port().written_packets()[0]),
              "01 1d 08 c9 84 08 00 00 04 00 00 00 01 00 00 01 00 00 00 00");
}

TEST_F(NvmeContext, OverPcieAResponseIsTakenInOnePiece) {
    config.binding_kind = MCTP_BINDING_KIND_PCIE;
    EXPECT_EQ(init(nvmemi_init).result, 0);
    std::string request;
    port().on_pcie = [&](plt_pcie_request& pcie) {
        request = to_hex({pcie.message, pcie.length});
        const Bytes body = hex("84") + mi_response(hex("01 00 00"));
        std::copy(body.begin(), body.end(), pcie.message);
        pcie.length = static_cast<uint32_t>(body.size());
        return 1;
    };
    EXPECT_EQ(ask_port_1().result, 0);
    EXPECT_EQ(frequency, 1);
    EXPECT_EQ(request, "84 08 00 00 04 00 00 00 01 00 00 01 00 00 00 00");
}

// ---- Locks and delays ----

TEST_F(NvmeContext, APlainExchangeHoldsTheBusFromRequestToResponse) {
    config.i2c_delay_us = 1234;
    EXPECT_EQ(init(nvmemi_init).result, 0);
    const Endpoint drive({checked(mi_response())}, false);
    EXPECT_EQ(ask_port_1().result, 0);
    EXPECT_EQ(port().trace_of({"lock", "unlock", "write", "read", "sleep"}),
              (Texts{"lock bus 3", "write", "sleep 1234", "read", "unlock bus 3"}));
}

TEST_F(NvmeContext, AMarvExchangeLocksRequestAndResponseEachByItself) {
    config.i2c_delay_us = 1234;
    EXPECT_EQ(init(nvmemi_init_for_MARV).result, 0);
    const Endpoint drive({checked(mi_response())}, false);
    EXPECT_EQ(ask_port_1().result, 0);
    EXPECT_EQ(port().trace_of({"lock", "unlock", "write", "read", "sleep"}),
              (Texts{"lock bus 3", "write", "unlock bus 3", "sleep 1234", "lock bus 3", "read",
                     "unlock bus 3", "sleep 100000"}));
}

TEST_F(NvmeContext, AMarvExchangeWithoutDelaySleepsOnlyBehindTheResponse) {
    EXPECT_EQ(init(nvmemi_init_for_MARV).result, 0);
    const Endpoint drive({checked(mi_response())}, false);
    EXPECT_EQ(ask_port_1().result, 0);
    EXPECT_EQ(libc.sleeps, (std::vector<uint32_t>{100000}));
}

TEST_F(NvmeContext, AMarvDriveThatNeedsTimeIsReadUnderALockOfItsOwn) {
    EXPECT_EQ(init(nvmemi_init_for_MARV).result, 0);
    const std::vector<Bytes> bodies{test::status_response(1), mi_response(hex("02 00 00"))};
    for (const Bytes& body : bodies) {
        port().queue(
            {test::packet(0x08, 0x1D, test::kSom | test::kEom | 1, hex("84") + checked(body))});
    }
    EXPECT_EQ(ask_port_1().result, 0);
    EXPECT_EQ(frequency, 2);
    EXPECT_EQ(port().trace_of({"lock", "unlock", "write", "read", "sleep"}),
              (Texts{"lock bus 3", "write", "unlock bus 3", "lock bus 3", "read", "unlock bus 3",
                     "sleep 100000", "sleep 200000", "lock bus 3", "read", "unlock bus 3"}));
}

}  // namespace
