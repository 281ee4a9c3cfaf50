// SPDX-License-Identifier: Apache-2.0
// The two exchanges: how a request is completed, what a response must be, counter, route, locks.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

#include "ncsi/ncsi_fixture.h"

namespace {

using test::Bytes;
using test::Guarded;
using test::hex;
using test::MctpAnswer;
using test::ncsi_response;
using test::not_successful;
using test::Outcome;
using test::port;
using test::Texts;
using test::to_hex;
using test::operator+;

constexpr uint8_t kType = NCSI_GET_LINK_STATUS;
constexpr uint8_t kMessageChannel = 0x42;

/// A request of this length: header, then 11, 12, ...
Bytes request_of(size_t length, uint8_t type = kType) {
    Bytes bytes = hex("00 01 00 00 00 42 00 00 00 00 00 00 00 00 00 00");
    bytes[4] = type;
    while (bytes.size() < length) {
        bytes.push_back(static_cast<uint8_t>(bytes.size() + 1));
    }
    bytes.resize(length);
    return bytes;
}

/// The exchange of ncsi_init() or that of ncsi_oem_init().
struct Way {
    const char* name;
    int32_t (*exchange)(ncsi_channel*, uint32_t, int32_t, uint8_t*, uint8_t*);
};

int32_t plain(ncsi_channel* channel, uint32_t length, int32_t capacity, uint8_t* request,
              uint8_t* response) {
    return channel->ctx->transfer(channel, length, capacity, request, response);
}

int32_t locked(ncsi_channel* channel, uint32_t length, int32_t capacity, uint8_t* request,
               uint8_t* response) {
    return channel->ctx->oem_transfer(channel->ctx, length, capacity, request, response);
}

class NcsiExchangeTest : public test::NcsiTest {
protected:
    /// Exchanges with room for what the interface says and no more.
    Outcome exchange(decltype(Way::exchange) way, const Bytes& content, int32_t capacity = 24) {
        const auto padded = [](size_t length) { return (length + 3) / 4 * 4; };
        const size_t room = padded(content.size()) + 4;
        const size_t capacity_room = padded(static_cast<size_t>(std::max(capacity, 0)));
        Guarded request(room);
        response = Guarded(capacity_room);
        std::copy(content.begin(), content.end(), request.data());
        const auto length = static_cast<uint32_t>(content.size());
        const Outcome outcome = test::run(
            [&] { return way(&channel, length, capacity, request.data(), response.data()); });
        EXPECT_TRUE(request.intact());
        EXPECT_TRUE(response.intact());
        completed = request.head(room);
        return outcome;
    }

    Guarded response{0};
    Bytes completed;  ///< the request's room after the call
};

class NcsiBothExchanges : public NcsiExchangeTest, public testing::WithParamInterface<Way> {
protected:
    Outcome exchange(const Bytes& content = request_of(16), int32_t capacity = 24) {
        return NcsiExchangeTest::exchange(GetParam().exchange, content, capacity);
    }
    /// Exchanges with this as the answer.
    Outcome exchange_for(MctpAnswer reply) {
        start_over();
        endpoint.answers = {std::move(reply)};
        return exchange();
    }
};

INSTANTIATE_TEST_SUITE_P(Way, NcsiBothExchanges,
                         testing::Values(Way{"Plain", plain}, Way{"Oem", locked}),
                         [](const auto& parameter) { return std::string(parameter.param.name); });

// ---- Requests ----

TEST_P(NcsiBothExchanges, ARequestOf15BytesIsRefusedBeforeAnyBusAccess) {
    const Outcome outcome = exchange(request_of(15));
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "the length of ncsi request is not enough!\n");
    EXPECT_TRUE(endpoint.calls.empty());
    EXPECT_EQ(port().trace, Texts());
    EXPECT_EQ(ctx.iid, 0);
    EXPECT_EQ(to_hex(completed), to_hex(request_of(15) + Bytes(5, 0xA5)));
    EXPECT_TRUE(response.untouched_from(0));
}

TEST_P(NcsiBothExchanges, ShorterRequestsAreRefusedAsWell) {
    for (size_t length = 0; length < 15; length++) {
        SCOPED_TRACE(length);
        const Outcome outcome = exchange(request_of(length));
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(outcome.out, "the length of ncsi request is not enough!\n");
    }
    EXPECT_TRUE(endpoint.calls.empty());
    EXPECT_EQ(port().trace, Texts());
}

TEST_P(NcsiBothExchanges, ARequestOf17BytesGoesOutAs24Bytes) {
    answer({ncsi_response(kType, kMessageChannel)});
    const Outcome outcome = exchange(request_of(17));
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, "");
    // Between payload and checksum stands what the caller left there.
    EXPECT_EQ(endpoint.messages(), Texts{"00 01 00 01 0a 42 00 00 00 00 00 00 00 00 00 00 "
                                         "11 a5 a5 a5 00 00 00 00"});
    EXPECT_EQ(endpoint.calls[0].bytes, completed);
}

TEST_P(NcsiBothExchanges, RequestsArePaddedToFourAndGetAChecksumFieldOfZeros) {
    const std::pair<size_t, size_t> lengths[] = {{16, 20}, {18, 24}, {19, 24}, {20, 24},
                                                 {21, 28}, {24, 28}, {36, 40}, {255, 260}};
    for (const auto& [length, sent] : lengths) {
        SCOPED_TRACE(length);
        start_over();
        answer({ncsi_response(kType, kMessageChannel)});
        EXPECT_EQ(exchange(request_of(length)).result, 0);
        ASSERT_EQ(endpoint.calls.size(), 1u);
        const Bytes& bytes = endpoint.calls[0].bytes;
        ASSERT_EQ(bytes.size(), sent);
        EXPECT_EQ(Bytes(bytes.end() - 4, bytes.end()), Bytes(4));
        EXPECT_TRUE(std::equal(bytes.begin() + 4, bytes.begin() + static_cast<long>(length),
                               request_of(length).begin() + 4));
    }
}

TEST_P(NcsiBothExchanges, RequestsTooLongForAnMctpLengthAreRefused) {
    for (uint32_t length :
         {uint32_t{INT32_MAX} - 7, uint32_t{INT32_MAX}, 0x80000000u, UINT32_MAX}) {
        Guarded request(32), room(24);
        const Outcome outcome = test::run(
            [&] { return GetParam().exchange(&channel, length, 24, request.data(), room.data()); });
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(outcome.out, "");
        EXPECT_TRUE(request.untouched_from(0));
    }
    EXPECT_TRUE(endpoint.calls.empty());
    EXPECT_EQ(port().trace, Texts());
}

TEST_P(NcsiBothExchanges, TheCapacityIsPaddedToFour) {
    const std::pair<int32_t, int32_t> capacities[] = {{INT32_MIN, 0}, {-1, 0}, {0, 0},   {1, 4},
                                                      {3, 4},         {4, 4},  {21, 24}, {23, 24},
                                                      {24, 24},       {25, 28}};
    for (const auto& [capacity, passed_down] : capacities) {
        SCOPED_TRACE(capacity);
        start_over();
        exchange(request_of(16), capacity);
        ASSERT_EQ(endpoint.calls.size(), 1u);
        EXPECT_EQ(endpoint.calls[0].capacity, passed_down);
    }
}

TEST_P(NcsiBothExchanges, ACapacityThatCannotBePaddedIsCutToAMultipleOfFour) {
    for (int32_t capacity : {INT32_MAX, INT32_MAX - 1, INT32_MAX - 2, INT32_MAX - 3}) {
        start_over();
        answer({ncsi_response(kType, kMessageChannel)});
        Bytes request = request_of(20);
        Guarded room(24);
        EXPECT_EQ(GetParam().exchange(&channel, 16, capacity, request.data(), room.data()), 0);
        ASSERT_EQ(endpoint.calls.size(), 1u);
        EXPECT_EQ(endpoint.calls[0].capacity, 0x7FFFFFFC);
        EXPECT_TRUE(room.intact());
    }
}

// ---- Responses ----

TEST_P(NcsiBothExchanges, CodesOfZeroAreASuccess) {
    answer({ncsi_response(kType, kMessageChannel)});
    const Outcome outcome = exchange();
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(ctx.response_length, 24);
    EXPECT_EQ(to_hex(response.head(24)),
              "00 01 00 01 8a 42 00 04 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
    EXPECT_EQ(port().syslog, Texts());
}

TEST_P(NcsiBothExchanges, AResponseWhoseTypeHasNoBit7IsRejected) {
    Bytes reply = ncsi_response(kType, kMessageChannel);
    reply[4] = kType;
    const Outcome outcome = exchange_for(MctpAnswer::of(reply));
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "the command code in the response(a) is not right.");
}

TEST_P(NcsiBothExchanges, EveryOtherTypeIsRejected) {
    for (unsigned type = 0; type < 256; type++) {
        SCOPED_TRACE(type);
        Bytes reply = ncsi_response(kType, kMessageChannel);
        reply[4] = static_cast<uint8_t>(type);
        const Outcome outcome = exchange_for(MctpAnswer::of(reply));
        if (type == 0x8A) {
            EXPECT_EQ(outcome.result, 0);
            continue;
        }
        char text[64];
        std::snprintf(text, sizeof text, "the command code in the response(%x) is not right.",
                      type);
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(outcome.out, text);
        EXPECT_EQ(port().syslog, Texts());
    }
}

TEST_P(NcsiBothExchanges, TheChannelOfAResponseIsNotAskedFor) {
    for (unsigned id = 0; id < 256; id++) {
        const Bytes reply = ncsi_response(kType, static_cast<uint8_t>(id));
        const Outcome outcome = exchange_for(MctpAnswer::of(reply));
        EXPECT_EQ(outcome.result, 0) << id;
        EXPECT_EQ(outcome.out, "");
    }
    EXPECT_EQ(port().syslog, Texts());
}

TEST_P(NcsiBothExchanges, ASuccessOfExactly16BytesCountsAsFailure) {
    Bytes reply = ncsi_response(kType, kMessageChannel);
    reply.resize(16);
    const Outcome outcome = exchange_for(MctpAnswer::of(reply));
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "compleition is not successful(0,0) or return size(10) is too small\n");
    EXPECT_EQ(ctx.response_length, 16);
}

TEST_P(NcsiBothExchanges, ASuccessNeedsItsCodesWhole) {
    for (size_t length = 1; length <= 24; length++) {
        SCOPED_TRACE(length);
        Bytes reply = ncsi_response(kType, kMessageChannel);
        reply.resize(length);
        const Outcome outcome = exchange_for(MctpAnswer::of(reply));
        EXPECT_EQ(outcome.result, length >= 20 ? 0 : -1);
        if (length < 5) {
            EXPECT_EQ(outcome.out, "the command code in the response(0) is not right.");
        } else {
            const auto size = static_cast<int32_t>(length);
            EXPECT_EQ(outcome.out, length < 20 ? not_successful(0, 0, size) : "");
        }
    }
}

TEST_P(NcsiBothExchanges, CodesThatDidNotComeAreNotReadFromTheCallersBuffer) {
    Bytes reply = ncsi_response(kType, kMessageChannel, {}, 0x0003, 0x7FFF);
    reply.resize(17);
    const Outcome outcome = exchange_for(MctpAnswer::of(reply));
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, not_successful(0, 0, 17));
    EXPECT_TRUE(response.untouched_from(17));
}

TEST_P(NcsiBothExchanges, CodesOtherThanZeroAreFailuresAndStayInTheResponse) {
    const std::pair<uint16_t, uint16_t> codes[] = {
        {0x0003, 0x7FFF}, {0x0001, 0x0000}, {0x0000, 0x0001}, {0x0100, 0x0000},
        {0x0000, 0x8000}, {0xFFFF, 0xFFFF}, {0x1234, 0x5678},
    };
    for (const auto& [code, reason] : codes) {
        SCOPED_TRACE(code);
        const Bytes reply = ncsi_response(kType, kMessageChannel, {}, code, reason);
        const Outcome outcome = exchange_for(MctpAnswer::of(reply));
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(outcome.out, not_successful(code, reason, 24));
        EXPECT_EQ(to_hex(response.head(24)), to_hex(reply));
    }
    EXPECT_EQ(
        exchange_for(MctpAnswer::of(ncsi_response(kType, kMessageChannel, {}, 0x1234, 0xABCD))).out,
        "compleition is not successful(1234,abcd) or return size(18) is too small\n");
}

TEST_P(NcsiBothExchanges, ATransportFailureIsSilent) {
    for (int32_t result : {-1, -57, INT32_MIN, 0}) {
        const Outcome outcome = exchange_for({result, ncsi_response(kType, kMessageChannel)});
        EXPECT_EQ(outcome.result, -1) << result;
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(port().syslog, Texts());
    }
}

TEST_P(NcsiBothExchanges, ALengthBeyondTheRoomIsTakenForTheRoom) {
    // Room for 16 bytes, which the codes are behind.
    endpoint.answers.push_back({4096, ncsi_response(kType, kMessageChannel)});
    Outcome outcome = exchange(request_of(16), 16);
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, not_successful(0, 0, 16));
    EXPECT_EQ(ctx.response_length, 16);
    endpoint.answers.push_back({INT32_MAX, ncsi_response(kType, kMessageChannel)});
    outcome = exchange(request_of(16), 20);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(ctx.response_length, 20);
}

TEST_P(NcsiBothExchanges, WhatIsMissingIsRefused) {
    Bytes request = request_of(20);
    Bytes room(24);
    const auto call = [&](uint8_t* from, uint8_t* to) {
        return GetParam().exchange(&channel, 16, 24, from, to);
    };
    EXPECT_EQ(call(nullptr, room.data()), -1);
    EXPECT_EQ(call(request.data(), nullptr), -1);
    endpoint.xfer = nullptr;
    EXPECT_EQ(call(request.data(), room.data()), -1);
    ctx.mctp = nullptr;
    EXPECT_EQ(call(request.data(), room.data()), -1);
    EXPECT_TRUE(endpoint.calls.empty());
    EXPECT_EQ(port().trace, Texts());
    EXPECT_EQ(request, request_of(20));
}

// ---- The plain exchange ----

class NcsiPlainExchange : public NcsiExchangeTest {
protected:
    Outcome exchange(const Bytes& content = request_of(16)) {
        return NcsiExchangeTest::exchange(plain, content);
    }
};

TEST_F(NcsiPlainExchange, TheInstanceIdRunsFrom1To255AndNeverIs0) {
    for (unsigned i = 0; i < 2 * 255 + 1; i++) {
        // Whether or not the exchange succeeds.
        if (i % 2 == 0) {
            endpoint.answers = {MctpAnswer::of(ncsi_response(kType, kMessageChannel))};
        }
        EXPECT_EQ(exchange().result, i % 2 == 0 ? 0 : -1);
        EXPECT_EQ(endpoint.calls.back().bytes[3], i % 255 + 1);
    }
}

TEST_F(NcsiPlainExchange, ARefusedRequestTakesNoInstanceId) {
    ctx.iid = 7;
    exchange(request_of(15));
    EXPECT_EQ(ctx.iid, 7);
    exchange();
    EXPECT_EQ(ctx.iid, 8);
    EXPECT_EQ(to_hex(completed), "00 01 00 07 0a 42 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
}

TEST_F(NcsiPlainExchange, OnlyClearInitialStateWaits500MillisecondsAndTheRouteIsZeroAfterwards) {
    for (unsigned type = 0; type < 256; type++) {
        SCOPED_TRACE(type);
        endpoint.route = 77;
        uint32_t during = 0;
        endpoint.on_call = [&] { during = endpoint.route; };
        exchange(request_of(16, static_cast<uint8_t>(type)));
        EXPECT_EQ(during, type == 0 ? 500u : 77u);
        EXPECT_EQ(endpoint.route, 0u);
    }
}

TEST_F(NcsiPlainExchange, NoLockIsTaken) {
    Texts held{"unset"};
    endpoint.on_call = [&] { held = port().held; };
    exchange();
    EXPECT_EQ(held, Texts());
    EXPECT_EQ(port().trace, Texts());
}

TEST_F(NcsiPlainExchange, NoContextIsRefused) {
    Bytes request = request_of(20);
    Bytes room(24);
    const ncsi_transfer_op transfer = ctx.transfer;
    ncsi_channel stray{};
    EXPECT_EQ(transfer(&stray, 16, 24, request.data(), room.data()), -1);
    EXPECT_EQ(transfer(nullptr, 16, 24, request.data(), room.data()), -1);
}

// ---- The exchange under locks ----

class NcsiOemExchange : public NcsiExchangeTest {
protected:
    Outcome exchange(const Bytes& content = request_of(16)) {
        return NcsiExchangeTest::exchange(locked, content);
    }
};

TEST_F(NcsiOemExchange, TheInstanceIdStays) {
    for (int i = 0; i < 3; i++) {
        exchange();
        EXPECT_EQ(endpoint.calls.back().bytes[3], 1);
        EXPECT_EQ(ctx.iid, 1);
    }
    ctx.iid = 255;
    exchange();
    EXPECT_EQ(to_hex(completed), "00 01 00 ff 0a 42 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
    EXPECT_EQ(ctx.iid, 255);
}

TEST_F(NcsiOemExchange, TheRouteIsLeftAlone) {
    for (uint8_t type : Bytes{NCSI_CLEAR_INITIAL_STATE, NCSI_OEM_COMMAND}) {
        endpoint.route = 77;
        uint32_t during = 0;
        endpoint.on_call = [&] { during = endpoint.route; };
        exchange(request_of(16, type));
        EXPECT_EQ(during, 77u);
        EXPECT_EQ(endpoint.route, 77u);
    }
}

TEST_F(NcsiOemExchange, BothLocksAreHeldAndReleasedInReverseOrder) {
    endpoint.on_call = [] { port().trace.push_back("exchange"); };
    const Texts expected{"lock channel 3", "lock ncsi", "exchange", "unlock ncsi",
                         "unlock channel 3"};
    answer({ncsi_response(kType, kMessageChannel)});
    EXPECT_EQ(exchange().result, 0);
    EXPECT_EQ(port().trace, expected);
    // The next one has no answer.
    port().trace.clear();
    EXPECT_EQ(exchange().result, -1);
    EXPECT_EQ(port().trace, expected);
}

TEST_F(NcsiOemExchange, Bus0StandsForThePlatformsDefaultChannel) {
    endpoint.bus = 0;
    platform.default_i2c_channel = 9;
    answer({ncsi_response(kType, kMessageChannel)});
    EXPECT_EQ(exchange().result, 0);
    EXPECT_EQ(port().trace,
              (Texts{"lock channel 9", "lock ncsi", "unlock ncsi", "unlock channel 9"}));
}

TEST_F(NcsiOemExchange, ARefusedChannelLockFailsTheExchange) {
    port().refused_locks = {"channel 3"};
    answer({ncsi_response(kType, kMessageChannel)});
    const Outcome outcome = exchange();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_TRUE(endpoint.calls.empty());
    EXPECT_EQ(port().trace, Texts{"lock channel 3 fails"});
}

TEST_F(NcsiOemExchange, ARefusedGlobalLockFailsTheExchangeAndReleasesTheChannel) {
    port().refused_locks = {"ncsi"};
    answer({ncsi_response(kType, kMessageChannel)});
    const Outcome outcome = exchange();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_TRUE(endpoint.calls.empty());
    EXPECT_EQ(port().trace, (Texts{"lock channel 3", "lock ncsi fails", "unlock channel 3"}));
}

TEST_F(NcsiOemExchange, NoContextIsRefused) {
    Bytes request = request_of(20);
    Bytes room(24);
    EXPECT_EQ(ctx.oem_transfer(nullptr, 16, 24, request.data(), room.data()), -1);
}

}  // namespace
