// SPDX-License-Identifier: Apache-2.0
// The three exchanges over SMBus: tag, lock, delays, and what each makes of a failure.
#include <sideband/mctp.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/capture.h"
#include "support/endpoint.h"
#include "support/scripted_platform.h"

namespace {

using test::Bytes;
using test::Endpoint;
using test::Guarded;
using test::hex;
using test::port;
using test::ready_context;
using test::smbus_context;
using test::operator+;
using Lines = std::vector<std::string>;

const Bytes kRequest = hex("80 02");
const Bytes kResponse = hex("00 02 00 1D 00 00");

/// Exchanges into a guarded buffer.
class ExchangeTest : public test::PlatformTest {
protected:
    int32_t xfer(mctp_ctx& ctx, const Bytes& request, int32_t capacity) {
        Guarded buffer(static_cast<size_t>(std::max(capacity, 0)));
        int32_t result = ctx.xfer(&ctx, static_cast<uint32_t>(request.size()), capacity,
                                  request.data(), buffer.data());
        EXPECT_TRUE(buffer.intact());
        response = buffer.head(static_cast<size_t>(std::max(result, 0)));
        EXPECT_TRUE(result < 0 || buffer.untouched_from(static_cast<size_t>(result)));
        return result;
    }

    /// The tag and TO bits of the last packet written.
    static uint8_t last_tag_bits() { return port().written_packets().back()[3] & 0x0F; }

    Bytes response;

private:
    test::Capture dumps_;  ///< keeps the traces of dropped packets off the terminal
};

/// Kinds 0 and 3, whose exchanges hold the bus throughout.
class MctpExchange : public ExchangeTest, public ::testing::WithParamInterface<uint8_t> {
protected:
    mctp_ctx ctx = ready_context(GetParam());
};

INSTANTIATE_TEST_SUITE_P(Kind, MctpExchange,
                         ::testing::Values(MCTP_BINDING_KIND_SMBUS, MCTP_BINDING_KIND_SL8_SMBUS),
                         [](const auto& parameter) {
                             return std::string(parameter.param == 0 ? "Smbus" : "Sl8");
                         });

TEST_P(MctpExchange, GivesTheResponseBodyAndItsLength) {
    Endpoint endpoint({kResponse});
    EXPECT_EQ(xfer(ctx, kRequest, 64), 6);
    EXPECT_EQ(response, kResponse);
    EXPECT_EQ(endpoint.requests, std::vector<Bytes>{kRequest});
}

TEST_P(MctpExchange, TheTagAdvancesBeforeEachRequestModuloEight) {
    ctx.tag = 6;
    Endpoint endpoint({kResponse, kResponse, kResponse});
    for (uint8_t tag : {7, 0, 1}) {
        EXPECT_EQ(xfer(ctx, kRequest, 64), 6);
        EXPECT_EQ(last_tag_bits(), 8 | tag);
        EXPECT_EQ(ctx.tag, tag);
    }
}

TEST_P(MctpExchange, ATagAboveSevenIsReduced) {
    ctx.tag = 0x85;
    Endpoint endpoint({kResponse});
    EXPECT_EQ(xfer(ctx, kRequest, 64), 6);
    EXPECT_EQ(last_tag_bits(), 8 | 6);
    EXPECT_EQ(ctx.tag, 6);
}

TEST_P(MctpExchange, HoldsTheBusAcrossRequestAndResponse) {
    Endpoint endpoint({kResponse});
    EXPECT_EQ(xfer(ctx, kRequest, 64), 6);
    EXPECT_EQ(port().trace_of({"lock", "unlock", "mux", "write", "read"}),
              (Lines{"lock bus 3", "mux", "write", "mux", "read", "unlock bus 3"}));
}

TEST_P(MctpExchange, WithoutAResponseWantedItNeitherSleepsNorReads) {
    ctx.i2c_delay_us = 2500;
    for (int32_t length : {0, -1, INT32_MIN}) {
        port().trace.clear();
        EXPECT_EQ(ctx.xfer(&ctx, 2, length, kRequest.data(), nullptr), 0);
        EXPECT_EQ(port().trace_of({"lock", "unlock", "write", "read"}),
                  (Lines{"lock bus 3", "write", "unlock bus 3"}));
    }
    EXPECT_EQ(libc.sleeps, std::vector<uint32_t>());
}

TEST_P(MctpExchange, SleepsBetweenRequestAndResponseWhereAsked) {
    ctx.i2c_delay_us = 2500;
    Endpoint endpoint({kResponse});
    EXPECT_EQ(xfer(ctx, kRequest, 64), 6);
    EXPECT_EQ(port().trace_of({"lock", "unlock", "write", "read", "sleep"}),
              (Lines{"lock bus 3", "write", "sleep 2500", "read", "unlock bus 3"}));
}

TEST_P(MctpExchange, WithoutADelayItDoesNotSleep) {
    Endpoint endpoint({kResponse});
    EXPECT_EQ(xfer(ctx, kRequest, 64), 6);
    EXPECT_EQ(libc.calls["usleep"], 0);
}

TEST_P(MctpExchange, AFailedWriteFailsBeforeAnyReadAndReleasesTheBus) {
    ctx.i2c_delay_us = 2500;
    port().write_results = {-1, -1, -1};
    EXPECT_EQ(xfer(ctx, kRequest, 64), -1);
    EXPECT_EQ(port().trace_of({"lock", "unlock", "write", "read", "sleep"}),
              (Lines{"lock bus 3", "write fails", "write fails", "write fails", "unlock bus 3"}));
    const Lines expected =
        GetParam() == MCTP_BINDING_KIND_SMBUS ? Lines{} : Lines{"Failed to write 2 bytes\n"};
    EXPECT_EQ(port().syslog, expected);
    EXPECT_EQ(ctx.tag, 1) << "the tag has advanced all the same";
}

TEST_P(MctpExchange, AFailedReadFailsAndReleasesTheBus) {
    port().reads = {test::SlaveRead::failure(-110)};
    EXPECT_EQ(xfer(ctx, kRequest, 64), -1);
    EXPECT_EQ(port().trace.back(), "unlock bus 3");
    EXPECT_EQ(port().syslog, Lines());
}

TEST_P(MctpExchange, AResponseOfTheNextTagIsAMismatchAndReadingGoesOn) {
    port().queue({hex("01 08 1D C2 00 EE"), hex("01 08 1D C1 00 AA")});
    EXPECT_EQ(xfer(ctx, kRequest, 64), 1);
    EXPECT_EQ(response, hex("AA"));
    EXPECT_EQ(port().syslog, Lines{"MCTP request tag is 1 but response tag is 2\n"});
}

TEST_P(MctpExchange, AResponseLongerThanTheBufferIsCut) {
    Endpoint endpoint({kResponse});
    EXPECT_EQ(xfer(ctx, kRequest, 3), 3);
    EXPECT_EQ(response, hex("00 02 00"));
}

TEST_P(MctpExchange, ARequestOfTheEndpointsOwnIsTakenForTheResponse) {
    port().queue({hex("01 08 1D CD 05 AA BB")});
    EXPECT_EQ(xfer(ctx, kRequest, 64), 2);
    EXPECT_EQ(response, hex("AA BB"));
    EXPECT_EQ(ctx.tag, 5);
    Endpoint endpoint({kResponse});
    EXPECT_EQ(xfer(ctx, kRequest, 64), 6);
    EXPECT_EQ(last_tag_bits(), 8 | 6) << "counted on from the accepted tag";
}

TEST_P(MctpExchange, LongMessagesGoBothWays) {
    Endpoint endpoint({test::counting(4095)}, false);
    EXPECT_EQ(xfer(ctx, test::counting(4000), 4096), 4095);
    EXPECT_EQ(endpoint.requests, std::vector<Bytes>{test::counting(4000)});
    EXPECT_EQ(response, test::counting(4095));
}

TEST_P(MctpExchange, AFullFinalPacketWithoutEomIsSentAndAnswered) {
    ctx.unit_size = 64;
    Endpoint endpoint({kResponse}, false);
    EXPECT_EQ(xfer(ctx, test::counting(127), 64), 6);
    EXPECT_EQ(endpoint.requests, std::vector<Bytes>{test::counting(127)});
    EXPECT_EQ(port().written_packets().back()[3] & test::kEom, 0);
}

TEST_P(MctpExchange, NeedsNoHeap) {
    Endpoint endpoint({test::counting(4095)}, false);
    EXPECT_EQ(xfer(ctx, test::counting(4095), 4096), 4095);
    EXPECT_EQ(libc.allocations(), 0);
}

TEST_P(MctpExchange, ARefusedLockFailsWithoutTouchingTheBus) {
    port().refused_locks = {"bus 3"};
    Endpoint endpoint({kResponse});
    EXPECT_EQ(xfer(ctx, kRequest, 64), -1);
    EXPECT_EQ(port().trace, Lines{"lock bus 3 fails"});
}

TEST_P(MctpExchange, NeverTakesTheChannelMutex) {
    Endpoint endpoint({kResponse});
    EXPECT_EQ(xfer(ctx, kRequest, 64), 6);
    for (const std::string& event : port().trace) {
        EXPECT_EQ(event.find("channel"), std::string::npos);
    }
}

// ---- The software-PEC exchange goes through the context's own operations ----

using Sl8Exchange = ExchangeTest;

uint32_t sent_length;
uint8_t sent_tag_owner;
int32_t send_result;

int32_t own_send(mctp_ctx*, uint32_t length, const uint8_t*, uint8_t tag_owner) {
    sent_length = length;
    sent_tag_owner = tag_owner;
    port().trace.push_back("own send");
    return send_result;
}

int32_t own_recv(mctp_ctx*, int32_t length, uint8_t* buffer) {
    port().trace.push_back("own recv");
    if (length > 0 && buffer != nullptr) {
        *buffer = 0x77;
    }
    return 1;
}

TEST_F(Sl8Exchange, UsesTheContextsOwnSendAndRecvUnderTheLock) {
    mctp_ctx ctx = ready_context(MCTP_BINDING_KIND_SL8_SMBUS);
    ctx.send = own_send;
    ctx.recv = own_recv;
    send_result = 0;
    EXPECT_EQ(xfer(ctx, kRequest, 64), 1);
    EXPECT_EQ(response, hex("77"));
    EXPECT_EQ(sent_length, 2u);
    EXPECT_EQ(sent_tag_owner, 1);
    EXPECT_EQ(port().trace, (Lines{"lock bus 3", "own send", "own recv", "unlock bus 3"}));
}

TEST_F(Sl8Exchange, AFailedSendIsLoggedWithTheRequestLength) {
    mctp_ctx ctx = ready_context(MCTP_BINDING_KIND_SL8_SMBUS);
    ctx.send = own_send;
    ctx.recv = own_recv;
    send_result = -1;
    EXPECT_EQ(xfer(ctx, test::counting(77), 64), -1);
    EXPECT_EQ(port().syslog, Lines{"Failed to write 77 bytes\n"});
    EXPECT_EQ(port().trace, (Lines{"lock bus 3", "own send", "unlock bus 3"}));
}

TEST_F(Sl8Exchange, NeverSendsAnIntegrityCheck) {
    mctp_ctx ctx = ready_context(MCTP_BINDING_KIND_SL8_SMBUS, 0x84);
    Endpoint endpoint({hex("88 00")}, false);
    EXPECT_EQ(xfer(ctx, hex("08 00"), 64), 2);
    EXPECT_EQ(endpoint.requests, std::vector<Bytes>{hex("08 00")});
}

using SmbusExchange = ExchangeTest;

TEST_F(SmbusExchange, DoesNotUseTheContextsOwnSendAndRecv) {
    mctp_ctx ctx = ready_context(MCTP_BINDING_KIND_SMBUS);
    ctx.send = nullptr;
    ctx.recv = nullptr;
    Endpoint endpoint({kResponse});
    EXPECT_EQ(xfer(ctx, kRequest, 64), 6);
}

TEST_F(SmbusExchange, SendsTheIntegrityCheckWhereTheTypeAsksForIt) {
    mctp_ctx ctx = ready_context(MCTP_BINDING_KIND_SMBUS, 0x84);
    Endpoint endpoint({hex("88 00")}, false);
    EXPECT_EQ(xfer(ctx, hex("08 00"), 64), 2);
    ASSERT_EQ(endpoint.requests.size(), 1u);
    EXPECT_EQ(endpoint.requests[0].size(), 6u);
    const uint32_t crc = test::crc32c(hex("84 08 00"));
    EXPECT_EQ(endpoint.requests[0][2], crc & 0xFF);
    EXPECT_EQ(endpoint.requests[0][5], crc >> 24);
}

// ---- The delayed exchange ----

class DelayedExchange : public ExchangeTest {
protected:
    DelayedExchange() {
        ctx.skip_discovery = 1;
        EXPECT_EQ(mctp_init2_with_i2c_delay(&ctx), 0);
    }
    mctp_ctx ctx = smbus_context();
};

TEST_F(DelayedExchange, ReleasesTheBusBetweenRequestAndResponseAndSleepsAtTheEnd) {
    ctx.i2c_delay_us = 4000;
    Endpoint endpoint({kResponse});
    EXPECT_EQ(xfer(ctx, kRequest, 64), 6);
    EXPECT_EQ(response, kResponse);
    EXPECT_EQ(port().trace_of({"lock", "unlock", "write", "read", "sleep"}),
              (Lines{"lock bus 3", "write", "unlock bus 3", "sleep 4000", "lock bus 3", "read",
                     "unlock bus 3", "sleep 100000"}));
}

TEST_F(DelayedExchange, WithoutADelayOnlyTheFinalSleepRemains) {
    Endpoint endpoint({kResponse});
    EXPECT_EQ(xfer(ctx, kRequest, 64), 6);
    EXPECT_EQ(libc.sleeps, std::vector<uint32_t>{100000});
}

TEST_F(DelayedExchange, AdvancesTheTagModuloEight) {
    ctx.tag = 7;
    Endpoint endpoint({kResponse, kResponse});
    EXPECT_EQ(xfer(ctx, kRequest, 64), 6);
    EXPECT_EQ(last_tag_bits(), 8);
    EXPECT_EQ(xfer(ctx, kRequest, 64), 6);
    EXPECT_EQ(last_tag_bits(), 9);
}

TEST_F(DelayedExchange, AFailedSendReturnsWithoutSleepingOrReading) {
    ctx.i2c_delay_us = 4000;
    port().write_results = {-1, -1, -1};
    EXPECT_EQ(xfer(ctx, kRequest, 64), -1);
    EXPECT_EQ(libc.sleeps, std::vector<uint32_t>());
    EXPECT_EQ(port().slave_reads.size(), 0u);
    EXPECT_EQ(port().syslog, Lines());
}

TEST_F(DelayedExchange, AFailedReceiveIsReturnedAfterTheFinalSleep) {
    EXPECT_EQ(xfer(ctx, kRequest, 64), -1);
    EXPECT_EQ(port().trace.back(), "sleep 100000");
}

TEST_F(DelayedExchange, CallsTheReceiveEvenWhereNoResponseIsWanted) {
    ctx.send = own_send;
    ctx.recv = own_recv;
    send_result = 0;
    EXPECT_EQ(xfer(ctx, kRequest, 0), 1);
    EXPECT_EQ(port().trace, (Lines{"own send", "own recv", "sleep 100000"}));
}

TEST_F(DelayedExchange, WithoutAResponseWantedTheReceiveReadsNothingAndTheSleepRemains) {
    EXPECT_EQ(ctx.xfer(&ctx, 2, 0, kRequest.data(), nullptr), 0);
    EXPECT_EQ(port().trace_of({"write", "read", "sleep"}), (Lines{"write", "sleep 100000"}));
}

TEST_F(DelayedExchange, PassesLengthAndTagOwnerToTheContextsOwnSend) {
    ctx.send = own_send;
    ctx.recv = own_recv;
    send_result = 0;
    EXPECT_EQ(xfer(ctx, test::counting(9), 5), 1);
    EXPECT_EQ(sent_length, 9u);
    EXPECT_EQ(sent_tag_owner, 1);
    EXPECT_EQ(response, hex("77"));
}

TEST_F(DelayedExchange, ARefusedLockFailsEitherHalf) {
    port().refused_locks = {"bus 3"};
    EXPECT_EQ(xfer(ctx, kRequest, 64), -1);
    EXPECT_EQ(port().writes.size(), 0u);
    port().refused_locks.clear();
    port().on_write = [](const test::WriteRecord&) { port().refused_locks = {"bus 3"}; };
    EXPECT_EQ(xfer(ctx, kRequest, 64), -1);
    EXPECT_EQ(port().slave_reads.size(), 0u);
}

}  // namespace
