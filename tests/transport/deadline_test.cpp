// SPDX-License-Identifier: Apache-2.0
// Time limits of a context: where they are looked at, over SMBus and PCIe, and that none is none.
#include <sideband/mctp.h>

#include <ctime>
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

class Deadline : public test::PlatformTest {
protected:
    int32_t ask(mctp_ctx& ctx) {
        const Bytes request = hex("80 02");
        uint8_t response[64];
        return ctx.xfer(&ctx, 2, sizeof response, request.data(), response);
    }
};

TEST_F(Deadline, IsSetFromNowOnInSecondsAndMilliseconds) {
    mctp_ctx ctx = ready_context();
    EXPECT_EQ(ctx.deadline_s, 0u);
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    mctp_set_deadline(&ctx, 12345);
    const int64_t set = int64_t{ctx.deadline_s} * 1000 + ctx.deadline_ms;
    const int64_t wanted = int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000 + 12345;
    EXPECT_GE(set, wanted);
    EXPECT_LT(set, wanted + 5000);
    EXPECT_LT(ctx.deadline_ms, 1000);
    mctp_set_deadline(&ctx, 0);
    EXPECT_EQ(ctx.deadline_s, 0u);
    EXPECT_EQ(ctx.deadline_ms, 0);
    mctp_set_deadline(nullptr, 5);
}

TEST_F(Deadline, InTheMachinesFirstSecondIsOneAllTheSame) {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    libc.later_ms = -(int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000);
    mctp_ctx ctx = ready_context();
    mctp_set_deadline(&ctx, 1);
    EXPECT_EQ(ctx.deadline_s, 1u) << "0 would be none";
    libc.later_ms += 2000;
    EXPECT_EQ(ask(ctx), -1);
    EXPECT_EQ(said(ctx.last_error), "deadline passed");
    EXPECT_EQ(port().trace_of({"write"}), std::vector<std::string>());
}

TEST_F(Deadline, BeforeItComesNothingIsDifferent) {
    for (const uint8_t kind : {MCTP_BINDING_KIND_SMBUS, MCTP_BINDING_KIND_SL8_SMBUS}) {
        mctp_ctx ctx = ready_context(kind);
        mctp_set_deadline(&ctx, 60000);
        test::Endpoint device({hex("00 02")}, false);
        EXPECT_EQ(ask(ctx), 2);
        EXPECT_EQ(said(ctx.last_error), "no failure");
    }
}

TEST_F(Deadline, BehindItNothingIsSentNorReceived) {
    for (const uint8_t kind : {MCTP_BINDING_KIND_SMBUS, MCTP_BINDING_KIND_SL8_SMBUS}) {
        mctp_ctx ctx = ready_context(kind);
        mctp_set_deadline(&ctx, 1000);
        libc.later_ms += 2000;
        port().trace.clear();
        EXPECT_EQ(ask(ctx), -1);
        EXPECT_EQ(said(ctx.last_error), "deadline passed");
        uint8_t buffer[8];
        EXPECT_EQ(ctx.recv(&ctx, sizeof buffer, buffer), -1);
        EXPECT_EQ(said(ctx.last_error), "deadline passed");
        EXPECT_EQ(port().trace_of({"write", "read", "mux", "power"}), std::vector<std::string>());
        mctp_set_deadline(&ctx, 0);
        test::Endpoint device({hex("00 02")}, false);
        EXPECT_EQ(ask(ctx), 2) << "lifted";
    }
}

TEST_F(Deadline, ThatComesBetweenThePacketsOfAnAnswerEndsTheWait) {
    mctp_ctx ctx = ready_context();
    mctp_set_deadline(&ctx, 1000);
    port().on_read = [this](const test::ReadRecord&) {
        libc.later_ms += 600;
        return test::SlaveRead::of(hex("0F 0A 65 01 08 1D 81 00 AA BB CC DD 00"));
    };
    ctx.unit_size = 5;
    EXPECT_EQ(ask(ctx), -1);
    EXPECT_EQ(said(ctx.last_error), "deadline passed");
    EXPECT_EQ(port().slave_reads.size(), 2u) << "600 ms and 1200 ms behind the request";
}

TEST_F(Deadline, GoesIntoTheSetUpThatIsMadeWithIt) {
    mctp_ctx ctx = test::smbus_context();
    mctp_set_deadline(&ctx, 1000);
    libc.later_ms += 2000;
    EXPECT_EQ(mctp_init2(&ctx), -1);
    EXPECT_EQ(said(ctx.last_error), "deadline passed, in MCTP control command 0x02");
    EXPECT_EQ(port().trace_of({"write", "read"}), std::vector<std::string>());
    EXPECT_TRUE(libc.sleeps.empty());
}

class PcieDeadline : public test::MctpPcie {};

TEST_F(PcieDeadline, BehindItThePlatformIsNotAsked) {
    mctp_set_deadline(&ctx, 1000);
    answer(hex("01 00 02"));
    EXPECT_EQ(xfer(hex("80 02"), 64), 2);
    libc.later_ms += 2000;
    port().trace.clear();
    EXPECT_EQ(xfer(hex("80 02"), 64), -1);
    EXPECT_EQ(said(ctx.last_error), "deadline passed");
    EXPECT_EQ(send(hex("80 02")), -1);
    EXPECT_EQ(said(ctx.last_error), "deadline passed");
    test::Guarded buffer(64);
    EXPECT_EQ(receive(64, buffer), -1);
    EXPECT_EQ(said(ctx.last_error), "deadline passed");
    EXPECT_EQ(port().trace_of({"pcie"}), std::vector<std::string>());
}

}  // namespace
