// SPDX-License-Identifier: Apache-2.0
// Messages over PCIe: the type byte, routing, tags, result values, and the platform's request.
#include <sideband/mctp.h>
#include <sideband/platform.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "transport/pcie_fixture.h"

namespace {

using test::Bytes;
using test::Guarded;
using test::hex;
using test::port;
using test::operator+;
using test::MctpPcie;

// ---- Send ----

TEST_F(MctpPcie, SendPutsTheTypeByteBeforeTheBody) {
    EXPECT_EQ(send(hex("80 02 11")), 0);
    ASSERT_EQ(port().pcie_requests.size(), 1u);
    const plt_pcie_request& request = port().pcie_requests[0];
    EXPECT_EQ(request.operation, PLT_PCIE_WRITE);
    EXPECT_EQ(message(request), hex("01 80 02 11"));
    EXPECT_EQ(request.bus, 0x41u);
    EXPECT_EQ(request.device, 2u);
    EXPECT_EQ(request.function, 3u);
    EXPECT_EQ(request.param, 0xCAFE1234u);
    EXPECT_EQ(request.session, &ctx);
}

TEST_F(MctpPcie, SendIgnoresThePlatformsResult) {
    for (int result : {-1, 0, 1}) {
        answer(Bytes(), result);
        EXPECT_EQ(send(hex("80 02")), 0);
    }
}

TEST_F(MctpPcie, SendRoutesRoutingTableAndDiscoveryNotifyToTheRootComplex) {
    for (int command = 0; command < 256; command++) {
        EXPECT_EQ(send({0x80, static_cast<uint8_t>(command)}), 0);
        const uint32_t route = command == 0x0A || command == 0x0D ? 0 : 2;
        EXPECT_EQ(ctx.route, route) << command;
        EXPECT_EQ(port().pcie_requests.back().routing, route);
    }
}

TEST_F(MctpPcie, SendRoutesByTheSecondByteOfAnyMessageType) {
    ctx.msg_type = 0x7E;
    EXPECT_EQ(send(hex("00 0A")), 0);
    EXPECT_EQ(ctx.route, 0u);
}

TEST_F(MctpPcie, SendOfABodyWithoutASecondByteIsRoutedById) {
    ctx.route = 0;
    EXPECT_EQ(send(hex("0A")), 0);
    EXPECT_EQ(ctx.route, 2u);
    EXPECT_EQ(ctx.send(&ctx, 0, nullptr, 1), 0);
    EXPECT_EQ(message(port().pcie_requests.back()), hex("01"));
}

TEST_F(MctpPcie, SendLeavesTheTagAlone) {
    ctx.tag = 5;
    EXPECT_EQ(send(hex("80 02")), 0);
    EXPECT_EQ(ctx.tag, 5);
}

TEST_F(MctpPcie, SendCarriesTheTagOfTheLastExchangeOrReceiveAsItStands) {
    ctx.pcie_tag = 0xA5;
    EXPECT_EQ(send(hex("80 02")), 0);
    EXPECT_EQ(port().pcie_requests.back().tag, 0xA5);
    EXPECT_EQ(ctx.pcie_tag, 0xA5);
}

TEST_F(MctpPcie, NeitherSendNorExchangeAppendsAnIntegrityCheck) {
    ctx.msg_type = MCTP_MSG_TYPE_NVME_MI | MCTP_MSG_TYPE_INTEGRITY_CHECK;
    EXPECT_EQ(send(hex("08 00")), 0);
    EXPECT_EQ(message(port().pcie_requests.back()), hex("84 08 00"));
    answer(hex("84 88 00"));
    EXPECT_EQ(xfer(hex("08 00"), 64), 2);
    EXPECT_EQ(message(port().pcie_requests.back()), hex("84 08 00"));
}

TEST_F(MctpPcie, SendFailsWhereItsBindingFails) {
    static const mctp_binding kFailing{[](mctp_section*, int32_t, uint8_t*) { return -7; }, nullptr,
                                       nullptr};
    ctx.binding = &kFailing;
    EXPECT_EQ(send(hex("80 02")), -1);
}

TEST_F(MctpPcie, SendTakesTheLargestMessageAndRefusesALargerOne) {
    EXPECT_EQ(send(test::counting(1035)), 0);
    EXPECT_EQ(message(port().pcie_requests.back()), hex("01") + test::counting(1035));
    EXPECT_EQ(send(test::counting(1036)), -1);
    EXPECT_EQ(ctx.send(&ctx, UINT32_MAX, response.data(), 1), -1);
    EXPECT_EQ(ctx.send(&ctx, 5, nullptr, 1), -1);
    EXPECT_EQ(port().pcie_requests.size(), 1u);
}

// ---- Receive ----

TEST_F(MctpPcie, ReceiveGivesTheBodyAndReturnsZero) {
    answer(hex("01 80 02 11"));
    Guarded buffer(1036);
    EXPECT_EQ(receive(1036, buffer), 0);
    EXPECT_EQ(buffer.head(3), hex("80 02 11"));
    EXPECT_TRUE(buffer.intact());
    EXPECT_EQ(port().pcie_requests[0].operation, PLT_PCIE_READ);
}

TEST_F(MctpPcie, ReceiveHandsOverTheFirstByteOfTheBuffer) {
    answer(hex("01 80"));
    Guarded buffer(1036, 0x7B);
    EXPECT_EQ(receive(1036, buffer), 0);
    EXPECT_EQ(port().pcie_requests[0].message[0], 0x7B);
}

TEST_F(MctpPcie, ReceiveStoresThePeersAddressing) {
    answer(hex("01 80"));
    Guarded buffer(1036);
    EXPECT_EQ(receive(1036, buffer), 0);
    EXPECT_EQ(ctx.binding_eids[0], 0x91);
    EXPECT_EQ(ctx.binding_eids[1], 0x92);
    EXPECT_EQ(ctx.pcie_tag, 0x93);
    EXPECT_EQ(Bytes(ctx.pcie_bdf, ctx.pcie_bdf + 3), hex("94 95 96"));
}

TEST_F(MctpPcie, ReceiveOverwritesTheTagOfTheRecordAndLeavesTheContexts) {
    answer(hex("01 80"));
    ctx.tag = 5;
    Guarded buffer(64);
    EXPECT_EQ(receive(64, buffer), 0);
    EXPECT_EQ(ctx.pcie_tag, 0x93);
    EXPECT_EQ(ctx.tag, 5);
}

TEST_F(MctpPcie, ReceiveWithoutRoomFailsWithoutReading) {
    Guarded buffer(8);
    EXPECT_EQ(ctx.recv(&ctx, 8, nullptr), -1);
    EXPECT_EQ(receive(0, buffer), -1);
    EXPECT_EQ(receive(-1, buffer), -1);
    EXPECT_EQ(port().pcie_requests.size(), 0u);
}

TEST_F(MctpPcie, ReceiveOfNothingOrTheTypeByteAloneFails) {
    for (const Bytes& message : {Bytes(), hex("01")}) {
        answer(message);
        Guarded buffer(64);
        EXPECT_EQ(receive(64, buffer), -1);
    }
    EXPECT_EQ(port().pcie_requests.size(), 2u) << "and is not waited behind";
}

TEST_F(MctpPcie, ReceiveOfMoreThanTheRoomFailsInsideTheBuffer) {
    answer(test::counting(200));
    Guarded buffer(100);
    EXPECT_EQ(receive(100, buffer), -1);
    EXPECT_TRUE(buffer.intact());
    answer(test::counting(100));
    EXPECT_EQ(receive(100, buffer), 0);
    EXPECT_EQ(buffer.head(99), test::counting(99, 1));
    EXPECT_TRUE(buffer.intact());
}

TEST_F(MctpPcie, ReceiveFailsForEveryPlatformResultButOne) {
    for (int result : {0, -1, 2, 1000}) {
        answer(hex("01 80 02"), result);
        Guarded buffer(64);
        EXPECT_EQ(receive(64, buffer), -1) << result;
        EXPECT_TRUE(buffer.untouched_from(0));
    }
}

TEST_F(MctpPcie, ReceiveOfALengthThatNoRecordHoldsFails) {
    for (uint32_t length : {1037u, 65536u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        answer_length(hex("01 80"), length);
        Guarded buffer(2000);
        EXPECT_EQ(receive(2000, buffer), -1) << length;
        EXPECT_TRUE(buffer.intact());
        EXPECT_TRUE(buffer.untouched_from(0));
    }
}

// ---- Exchange ----

TEST_F(MctpPcie, ExchangeGivesTheResponseBodyAndItsLength) {
    answer(hex("01 00 02 00 4A"));
    ctx.tag = 4;
    EXPECT_EQ(xfer(hex("80 02"), 64), 4);
    EXPECT_EQ(response, hex("00 02 00 4A"));
    const plt_pcie_request& request = port().pcie_requests.at(0);
    EXPECT_EQ(request.operation, PLT_PCIE_WRITE_READ);
    EXPECT_EQ(message(request), hex("01 80 02"));
    EXPECT_EQ(request.src_eid, 0x08);
    EXPECT_EQ(request.dest_eid, 0x4Au);
    EXPECT_EQ(request.tag, 5);
    EXPECT_EQ(request.routing, 2);
    EXPECT_EQ(request.bus, 0x41u);
    EXPECT_EQ(request.device, 2u);
    EXPECT_EQ(request.function, 3u);
    EXPECT_EQ(request.param, 0xCAFE1234u);
    EXPECT_EQ(request.session, &ctx);
}

TEST_F(MctpPcie, ExchangeStoresThePeersAddressing) {
    answer(hex("01 00"));
    EXPECT_EQ(xfer(hex("80 02"), 64), 1);
    EXPECT_EQ(ctx.binding_eids[0], 0x91);
    EXPECT_EQ(ctx.binding_eids[1], 0x92);
    EXPECT_EQ(ctx.pcie_tag, 0x93);
    EXPECT_EQ(Bytes(ctx.pcie_bdf, ctx.pcie_bdf + 3), hex("94 95 96"));
}

TEST_F(MctpPcie, ExchangeAdvancesTheTagUpToBitSeven) {
    answer(hex("01 00"));
    for (int tag = 0; tag < 256; tag++) {
        ctx.tag = static_cast<uint8_t>(tag);
        EXPECT_EQ(xfer(hex("80 02"), 8), 1);
        const int expected = tag < 0x80 ? tag + 1 : tag;
        EXPECT_EQ(ctx.tag, expected);
        EXPECT_EQ(port().pcie_requests.back().tag, expected);
    }
}

TEST_F(MctpPcie, ExchangeIsRoutedByIdWhateverTheCommand) {
    answer(hex("01 00"));
    ctx.route = 0;
    EXPECT_EQ(xfer(hex("80 0A 00"), 8), 1);
    EXPECT_EQ(ctx.route, 2u);
    EXPECT_EQ(port().pcie_requests[0].routing, 2);
}

TEST_F(MctpPcie, RoutingTableIsAskedForById) {
    Guarded table(MCTP_ROUTING_TABLE_RESPONSE_SIZE);
    EXPECT_EQ(mctp_get_routing_table_entries(&ctx, 0, table.data()), -1);
    ASSERT_EQ(port().pcie_requests.size(), 1u);
    EXPECT_EQ(port().pcie_requests[0].message[2], 0x0A);
    EXPECT_EQ(port().pcie_requests[0].routing, PLT_PCIE_ROUTE_BY_ID);
    EXPECT_EQ(port().pcie_requests[0].dest_eid, 0x4Au);
}

TEST_F(MctpPcie, ExchangeReturnsMinusTwoWhereThePlatformFails) {
    for (int result : {-1, 0, 2}) {
        answer(hex("01 00 02"), result);
        EXPECT_EQ(xfer(hex("80 02"), 8), -2) << result;
    }
}

TEST_F(MctpPcie, ExchangeReturnsMinusOneWhereNothingCame) {
    answer(Bytes());
    EXPECT_EQ(xfer(hex("80 02"), 8), -1);
}

TEST_F(MctpPcie, ExchangeReturnsZeroForTheTypeByteAlone) {
    answer(hex("01"));
    EXPECT_EQ(xfer(hex("80 02"), 8), 0);
}

TEST_F(MctpPcie, ExchangeCutsTheResponseToTheRoom) {
    answer(hex("01") + test::counting(20));
    EXPECT_EQ(xfer(hex("80 02"), 9), 9);
    EXPECT_EQ(response, test::counting(9));
}

TEST_F(MctpPcie, ExchangeWithoutRoomGivesNothing) {
    answer(hex("01") + test::counting(20));
    EXPECT_EQ(xfer(hex("80 02"), 0), 0);
}

TEST_F(MctpPcie, ExchangeWithoutRoomNeedsNoBuffer) {
    answer(hex("01") + test::counting(20));
    const Bytes request = hex("80 02");
    EXPECT_EQ(ctx.xfer(&ctx, 2, 0, request.data(), nullptr), 0);
    EXPECT_EQ(port().pcie_requests.size(), 1u);
    EXPECT_EQ(ctx.xfer(&ctx, 2, 1, request.data(), nullptr), -1);
    EXPECT_EQ(ctx.last_error.cause, SIDEBAND_CAUSE_ARGUMENT);
    EXPECT_EQ(port().pcie_requests.size(), 1u) << "nothing was sent";
}

TEST_F(MctpPcie, ExchangeWithoutRoomStillTellsWhetherAnAnswerCame) {
    answer(Bytes());
    EXPECT_EQ(xfer(hex("80 02"), 0), -1);
    answer(hex("01 00"), 0);
    EXPECT_EQ(xfer(hex("80 02"), 0), -2);
}

TEST_F(MctpPcie, ExchangeWithANegativeRoomFailsWithoutSending) {
    answer(hex("01 00"));
    const Bytes request = hex("80 02");
    Guarded buffer(8);
    for (int32_t room : {-1, INT32_MIN}) {
        EXPECT_EQ(ctx.xfer(&ctx, 2, room, request.data(), buffer.data()), -1);
    }
    EXPECT_EQ(port().pcie_requests.size(), 0u);
    EXPECT_TRUE(buffer.untouched_from(0));
}

TEST_F(MctpPcie, ExchangeTakesTheLargestMessageBothWays) {
    answer(hex("01") + test::counting(1035));
    EXPECT_EQ(xfer(test::counting(1035, 7), 4096), 1035);
    EXPECT_EQ(response, test::counting(1035));
    EXPECT_EQ(message(port().pcie_requests.at(0)), hex("01") + test::counting(1035, 7));
}

TEST_F(MctpPcie, ExchangeRefusesALargerRequest) {
    EXPECT_EQ(xfer(test::counting(1036), 16), -1);
    EXPECT_EQ(ctx.xfer(&ctx, 5, 16, nullptr, response.data()), -1);
    EXPECT_EQ(port().pcie_requests.size(), 0u);
}

TEST_F(MctpPcie, ExchangeOfALengthThatNoRecordHoldsFails) {
    for (uint32_t length : {1037u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        answer_length(hex("01 80"), length);
        EXPECT_EQ(xfer(hex("80 02"), 2000), -2) << length;
    }
}

TEST_F(MctpPcie, OperationsWithoutABindingFail) {
    Guarded buffer(64);
    static const mctp_binding kEmpty{nullptr, nullptr, nullptr};
    for (const mctp_binding* binding : {static_cast<const mctp_binding*>(nullptr), &kEmpty}) {
        ctx.binding = binding;
        EXPECT_EQ(send(hex("80 02")), -1);
        EXPECT_EQ(receive(64, buffer), -1);
        EXPECT_EQ(ctx.xfer(&ctx, 1, 64, buffer.data(), buffer.data()), -1);
    }
    EXPECT_EQ(port().pcie_requests.size(), 0u);
}

// ---- A caller's own binding ----

/// What went through it, and what it says.
struct {
    std::vector<Bytes> messages;
    int32_t result;
    int32_t offered;
} other;

int32_t other_write(mctp_section* /*section*/, int32_t length, uint8_t* message) {
    other.messages.emplace_back(message, message + length);
    return other.result;
}

int32_t other_transfer(mctp_section* /*section*/, int32_t request_length, int32_t response_length,
                       const uint8_t* request, uint8_t* response) {
    other.messages.emplace_back(request, request + request_length);
    const Bytes answer = hex("01 00 02 00 4A");
    std::copy_n(answer.begin(),
                std::min<size_t>(answer.size(), static_cast<size_t>(response_length)), response);
    return other.result;
}

TEST_F(MctpPcie, AnotherBindingHasTheWholeMessageAndItsResultCounts) {
    static const mctp_binding kOther{other_write, pcie_mctp_binding.read, other_transfer};
    ctx.binding = &kOther;
    other = {{}, 0, 0};
    EXPECT_EQ(send(hex("80 02")), 0);
    other.result = -7;
    EXPECT_EQ(send(hex("80 03")), -1);
    other.result = 5;
    EXPECT_EQ(xfer(hex("80 04"), 64), 4);
    EXPECT_EQ(response, hex("00 02 00 4A"));
    other.result = 3;
    EXPECT_EQ(xfer(hex("80 05"), 2), 2);
    EXPECT_EQ(response, hex("00 02"));
    other.result = 5000;
    EXPECT_EQ(xfer(hex("80 06"), 2), 4999)
        << "what it says, and no byte more than there is room for";
    other.result = -3;
    EXPECT_EQ(xfer(hex("80 07"), 64), -4);
    EXPECT_EQ(other.messages,
              (std::vector<Bytes>{hex("01 80 02"), hex("01 80 03"), hex("01 80 04"),
                                  hex("01 80 05"), hex("01 80 06"), hex("01 80 07")}));
    EXPECT_EQ(port().pcie_requests.size(), 0u);
}

int32_t other_read(mctp_section* /*section*/, int32_t length, uint8_t* message) {
    other.offered = length;
    const Bytes answer = hex("01") + test::counting(PLT_PCIE_MESSAGE_SIZE - 1);
    std::copy(answer.begin(), answer.end(), message);
    return other.result;
}

TEST_F(MctpPcie, AnotherBindingReadsNoMoreThanTheLargestMessage) {
    static const mctp_binding kOther{other_write, other_read, other_transfer};
    ctx.binding = &kOther;
    for (const uint32_t strict : {0U, MCTP_STRICT_INTEGRITY}) {
        ctx.strict = strict;
        other.result = PLT_PCIE_MESSAGE_SIZE;
        Guarded buffer(4096);
        EXPECT_EQ(receive(4096, buffer), 0);
        EXPECT_EQ(buffer.head(1035), test::counting(1035));
        EXPECT_EQ(other.offered, PLT_PCIE_MESSAGE_SIZE) << "what is there, not what was asked for";
        for (const int32_t claimed : {PLT_PCIE_MESSAGE_SIZE + 1, 4096, INT32_MAX}) {
            other.result = claimed;
            Guarded untouched(4096);
            EXPECT_EQ(receive(4096, untouched), -1) << claimed;
            EXPECT_TRUE(untouched.untouched_from(0)) << claimed;
            EXPECT_EQ(ctx.last_error.cause, SIDEBAND_CAUSE_MALFORMED) << claimed;
        }
    }
}

TEST_F(MctpPcie, AnotherBindingsExchangeStoresNoMoreThanTheLargestMessage) {
    constexpr size_t kLargestBody = PLT_PCIE_MESSAGE_SIZE - 1;
    static const mctp_binding kOther{other_write, other_read, other_transfer};
    ctx.binding = &kOther;
    other.result = 5000;
    const Bytes request = hex("80 04");
    Guarded buffer(4096);
    EXPECT_EQ(ctx.xfer(&ctx, 2, 4096, request.data(), buffer.data()), 4999);
    EXPECT_EQ(buffer.head(kLargestBody), hex("00 02 00 4A") + Bytes(kLargestBody - 4));
    EXPECT_TRUE(buffer.untouched_from(kLargestBody));
}

}  // namespace
