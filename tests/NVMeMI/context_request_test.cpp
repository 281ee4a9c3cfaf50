// SPDX-License-Identifier: Apache-2.0
// The request operation: its tries, its patience with a busy endpoint, the room that it believes
// in; and what is made of a response's status.
#include <gtest/gtest.h>

#include <algorithm>

#include "NVMeMI/nvme_fixture.h"

namespace {

using test::Bytes;
using test::checked;
using test::counting;
using test::Guarded;
using test::hex;
using test::kResponseArea;
using test::MctpAnswer;
using test::mi_response;
using test::Outcome;
using test::port;
using test::status_response;
using test::Texts;
using test::to_hex;
using test::unsuccess;
using test::operator+;

using Sleeps = std::vector<uint32_t>;

constexpr uint32_t kWait = 200000;

/// "I need more time."
const Bytes kBusy = status_response(1);

class NvmeExchange : public test::NvmeTest {
protected:
    /// Exchanges with room for what the interface says and no more.
    int32_t exchange(uint32_t capacity = 64, const Bytes& content = counting(15, 0x10)) {
        Guarded request(content.size());
        response = Guarded(capacity);
        std::copy(content.begin(), content.end(), request.data());
        const int32_t result = ctx.mi_request(&ctx, static_cast<uint32_t>(content.size()), capacity,
                                              request.data(), response.data());
        EXPECT_EQ(request.head(content.size()), content);
        EXPECT_TRUE(request.intact());
        EXPECT_TRUE(response.intact());
        EXPECT_TRUE(response.untouched_from(result < 0 ? 0 : static_cast<size_t>(result)));
        return result;
    }
    /// Exchanges with these as the answers.
    int32_t exchange_for(std::initializer_list<MctpAnswer> answers, uint32_t capacity = 64) {
        start_over();
        endpoint.answers = answers;
        return exchange(capacity);
    }
    /// Which operations were called, in turn: a request is 15 bytes, a read has one of the buffer.
    std::string operations() const {
        std::string letters;
        for (const test::MctpCall& call : endpoint.calls) {
            letters += call.bytes.size() == 15 ? 'x' : 'r';
        }
        return letters;
    }

    Guarded response{0};
};

// ---- Tries ----

TEST_F(NvmeExchange, RequestAndResponseAreHandedThrough) {
    EXPECT_EQ(exchange_for({MctpAnswer::of(mi_response(hex("01 02 03"), hex("aa bb")))}), 9);
    EXPECT_EQ(to_hex(response.head(9)), "88 00 00 00 01 02 03 aa bb");
    EXPECT_EQ(endpoint.messages(), (Texts{"10 11 12 13 14 15 16 17 18 19 1a 1b 1c 1d 1e"}));
    EXPECT_EQ(endpoint.calls[0].capacity, 64);
    EXPECT_EQ(libc.sleeps, Sleeps());
}

TEST_F(NvmeExchange, AnExchangeIsTriedThreeTimes) {
    const MctpAnswer good = MctpAnswer::of(mi_response());
    for (int32_t failure : {-1, -2, -57, INT32_MIN, 0}) {
        SCOPED_TRACE(failure);
        const MctpAnswer bad = MctpAnswer::failure(failure);
        EXPECT_EQ(exchange_for({bad, good}), 7);
        EXPECT_EQ(operations(), "xx");
        EXPECT_EQ(exchange_for({bad, bad, good}), 7);
        EXPECT_EQ(operations(), "xxx");
        EXPECT_EQ(exchange_for({bad, bad, bad, good}), -1);
        EXPECT_EQ(operations(), "xxx");
        EXPECT_EQ(libc.sleeps, Sleeps());
    }
}

TEST_F(NvmeExchange, OneByteEndsTheTries) {
    EXPECT_EQ(exchange_for({MctpAnswer::of(hex("88"))}), 1);
    EXPECT_EQ(operations(), "x");
}

TEST_F(NvmeExchange, EveryTryHasTheSameRequestAndRoom) {
    EXPECT_EQ(exchange_for({}, 19), -1);
    ASSERT_EQ(endpoint.calls.size(), 3u);
    for (const test::MctpCall& call : endpoint.calls) {
        EXPECT_EQ(call.bytes, counting(15, 0x10));
        EXPECT_EQ(call.capacity, 19);
    }
}

// ---- More processing required ----

TEST_F(NvmeExchange, ABusyEndpointIsReadAfter200Milliseconds) {
    EXPECT_EQ(exchange_for({MctpAnswer::of(kBusy), MctpAnswer::of(mi_response(hex("07 08 09")))}),
              7);
    EXPECT_EQ(to_hex(response.head(7)), "88 00 00 00 07 08 09");
    EXPECT_EQ(operations(), "xr");
    EXPECT_EQ(endpoint.calls[1].capacity, 64);
    EXPECT_EQ(libc.sleeps, Sleeps{kWait});
}

TEST_F(NvmeExchange, ABusyEndpointThatAnswersAtTheSecondOrThirdReadIsWaitedFor) {
    const MctpAnswer busy = MctpAnswer::of(kBusy);
    const MctpAnswer good = MctpAnswer::of(mi_response());
    EXPECT_EQ(exchange_for({busy, MctpAnswer::failure(), good}), 7);
    EXPECT_EQ(operations(), "xrr");
    EXPECT_EQ(libc.sleeps, (Sleeps{kWait, kWait}));
    EXPECT_EQ(exchange_for({busy, MctpAnswer::failure(-9), MctpAnswer::failure(), good}), 7);
    EXPECT_EQ(operations(), "xrrr");
    EXPECT_EQ(libc.sleeps, (Sleeps{kWait, kWait, kWait}));
}

TEST_F(NvmeExchange, MoreProcessingThenSilenceForThreeReadsGivesMinusOneAfter600Milliseconds) {
    EXPECT_EQ(exchange_for({MctpAnswer::of(kBusy)}), -1);
    EXPECT_EQ(operations(), "xrrr");
    EXPECT_EQ(libc.sleeps, (Sleeps{kWait, kWait, kWait}));
}

TEST_F(NvmeExchange, ASecondMoreProcessingAnswerIsHandedBackAsItIs) {
    EXPECT_EQ(exchange_for({MctpAnswer::of(kBusy), MctpAnswer::of(status_response(1, hex("04 05"))),
                            MctpAnswer::of(mi_response())}),
              6);
    EXPECT_EQ(to_hex(response.head(6)), "88 00 00 01 04 05");
    EXPECT_EQ(operations(), "xr");
    EXPECT_EQ(libc.sleeps, Sleeps{kWait});
}

TEST_F(NvmeExchange, AnEmptyReadEndsTheWait) {
    EXPECT_EQ(exchange_for({MctpAnswer::of(kBusy), MctpAnswer::of({})}), 0);
    EXPECT_EQ(operations(), "xr");
}

TEST_F(NvmeExchange, AMoreProcessingStatusCountsWhateverTheExchangeGave) {
    for (int32_t result : {-1, 0, 4, INT32_MAX}) {
        SCOPED_TRACE(result);
        EXPECT_EQ(exchange_for({{result, kBusy}, MctpAnswer::of(mi_response())}), 7);
        EXPECT_EQ(operations(), "xr");
    }
}

TEST_F(NvmeExchange, MoreProcessingAtTheSecondTryIsWaitedForAsWell) {
    EXPECT_EQ(
        exchange_for({MctpAnswer::failure(), MctpAnswer::of(kBusy), MctpAnswer::of(mi_response())}),
        7);
    EXPECT_EQ(operations(), "xxr");
}

TEST_F(NvmeExchange, ThreeBytesCarryNoStatus) {
    EXPECT_EQ(exchange_for({MctpAnswer::of(hex("01 01 01"))}), 3);
    EXPECT_EQ(libc.sleeps, Sleeps());
}

TEST_F(NvmeExchange, TheStatusOfAnEarlierExchangeIsForgotten) {
    EXPECT_EQ(exchange_for({MctpAnswer::of(kBusy), MctpAnswer::of(kBusy)}), 7);
    EXPECT_EQ(exchange_for({MctpAnswer::of(hex("88 00 00"))}), 3);
    EXPECT_EQ(operations(), "x");
}

// ---- Room ----

TEST_F(NvmeExchange, AResponseOfExactlyTheCapacityIsAccepted) {
    for (uint32_t capacity : {1u, 4u, 7u, 19u, 39u, 4115u}) {
        SCOPED_TRACE(capacity);
        Bytes body = mi_response(Bytes(3), counting(5000, 1));
        body.resize(capacity);
        EXPECT_EQ(exchange_for({MctpAnswer::of(body)}, capacity), static_cast<int32_t>(capacity));
        EXPECT_EQ(response.head(capacity), body);
        EXPECT_EQ(operations(), "x");
    }
}

TEST_F(NvmeExchange, AResponseOneByteLongerThanTheCapacityIsRefused) {
    for (int32_t capacity : {1, 4, 7, 19, 39, 4115}) {
        SCOPED_TRACE(capacity);
        Bytes body = mi_response(Bytes(3), counting(5000, 1));
        body.resize(static_cast<size_t>(capacity));
        EXPECT_EQ(exchange_for({{capacity + 1, body}}, static_cast<uint32_t>(capacity)), -1);
        EXPECT_EQ(operations(), "x") << "it came: it is not asked for again";
    }
}

TEST_F(NvmeExchange, ALateResponseLongerThanTheCapacityIsRefused) {
    EXPECT_EQ(exchange_for({MctpAnswer::of(kBusy), {8, mi_response()}}, 7), -1);
    EXPECT_EQ(exchange_for({MctpAnswer::of(kBusy), {7, mi_response()}}, 7), 7);
}

TEST_F(NvmeExchange, LengthsThatLieAreRefused) {
    for (int32_t length : {65, 5120, 5121, 1 << 30, INT32_MAX}) {
        SCOPED_TRACE(length);
        EXPECT_EQ(exchange_for({{length, mi_response()}}, 64), -1);
    }
}

TEST_F(NvmeExchange, MoreThanTheReceiveAreaIsNeverAskedForNorBelieved) {
    const auto area = static_cast<int32_t>(kResponseArea);
    for (uint32_t capacity : {5119u, 5120u, 5121u, 6000u, 70000u}) {
        SCOPED_TRACE(capacity);
        const int32_t room = std::min(static_cast<int32_t>(capacity), area);
        const Bytes body = mi_response(Bytes(3), counting(static_cast<size_t>(room) - 7));
        EXPECT_EQ(exchange_for({MctpAnswer::of(body)}, capacity), room);
        EXPECT_EQ(endpoint.calls[0].capacity, room);
        EXPECT_EQ(exchange_for({{room + 1, body}}, capacity), -1);
    }
}

TEST_F(NvmeExchange, CapacitiesBeyondAnySizeAreCutToTheReceiveArea) {
    Bytes request = counting(15);
    Guarded room(kResponseArea);
    for (uint32_t capacity : {0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(capacity);
        start_over();
        answer({mi_response()});
        EXPECT_EQ(ctx.mi_request(&ctx, 15, capacity, request.data(), room.data()), 7);
        EXPECT_EQ(endpoint.calls[0].capacity, 5120);
    }
    EXPECT_TRUE(room.intact());
}

TEST_F(NvmeExchange, WithoutRoomNothingCanCome) {
    EXPECT_EQ(exchange_for({MctpAnswer::of({}), MctpAnswer::of({}), MctpAnswer::of({})}, 0), -1);
    EXPECT_EQ(operations(), "xxx");
    EXPECT_EQ(exchange_for({{1, hex("88")}}, 0), -1);
}

// ---- Arguments ----

TEST_F(NvmeExchange, WithoutContextEndpointOrBuffersNothingIsCalled) {
    Bytes request = counting(15);
    Bytes room(64);
    const nvmemi_request_op exchange = ctx.mi_request;
    EXPECT_EQ(exchange(nullptr, 15, 64, request.data(), room.data()), -1);
    EXPECT_EQ(exchange(&ctx, 15, 64, nullptr, room.data()), -1);
    EXPECT_EQ(exchange(&ctx, 15, 64, request.data(), nullptr), -1);
    nvmemi_ctx other{};
    EXPECT_EQ(exchange(&other, 15, 64, request.data(), room.data()), -1);
    mctp_ctx incomplete = endpoint;
    incomplete.xfer = nullptr;
    other.mctp = &incomplete;
    EXPECT_EQ(exchange(&other, 15, 64, request.data(), room.data()), -1);
    incomplete = endpoint;
    incomplete.recv = nullptr;
    EXPECT_EQ(exchange(&other, 15, 64, request.data(), room.data()), -1);
    EXPECT_TRUE(endpoint.calls.empty());
}

TEST_F(NvmeExchange, AContextWithoutRequestOperationSendsNothing) {
    ctx.mi_request = nullptr;
    const Outcome outcome = test::run([&] { return nvmemi_reset(&ctx); });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "send reset command; no response as expected\n");
    EXPECT_TRUE(endpoint.calls.empty());
}

// ---- A caller's own operation ----

/// Says that more came than there is room for.
int32_t boast(nvmemi_ctx*, uint32_t, uint32_t capacity, uint8_t*, uint8_t* response) {
    const Bytes body = mi_response(hex("01 00 00"));
    std::copy_n(body.begin(), std::min<size_t>(capacity, body.size()), response);
    return INT32_MAX;
}

TEST_F(NvmeExchange, AnotherOperationsLengthIsNotBelievedBeyondTheRoom) {
    ctx.mi_request = boast;
    uint8_t frequency = 0;
    EXPECT_EQ(nvmemi_config_get_smbus_freq(&ctx, 0, &frequency), 0);
    EXPECT_EQ(frequency, 1);
}

int32_t fail_oddly(nvmemi_ctx*, uint32_t, uint32_t, uint8_t*, uint8_t*) {
    return -2000000000;
}

TEST_F(NvmeExchange, AnotherOperationsFailureIsAFailure) {
    ctx.mi_request = fail_oddly;
    const Outcome outcome = test::run([&] { return nvmemi_config_get_health_status_change(&ctx); });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "fail to get NVMe-MI config\n");
}

// ---- Status ----

class NvmeStatus : public test::NvmeTest {
protected:
    /// A command that has nothing but a status.
    Outcome status_of(const Bytes& body) {
        start_over();
        // Again and again: a busy endpoint is read once more.
        answer({body, body});
        return test::run([&] { return nvmemi_config_get_health_status_change(&ctx); });
    }
};

TEST_F(NvmeStatus, EveryStatusButInvalidParameterIsPrintedAndReturned) {
    EXPECT_EQ(status_of(status_response(0)).result, 0);
    EXPECT_EQ(status_of(status_response(0)).out, "");
    for (unsigned status = 1; status < 256; status++) {
        if (status == 4) {
            continue;
        }
        SCOPED_TRACE(status);
        const Outcome outcome = status_of(status_response(static_cast<uint8_t>(status)));
        EXPECT_EQ(outcome.result, static_cast<int32_t>(status));
        EXPECT_EQ(outcome.out, unsuccess(status));
        EXPECT_EQ(port().console, Texts());
    }
}

TEST_F(NvmeStatus, AnInvalidParameterIsLocatedByByteAndBit) {
    const auto located = [&](const Bytes& location) {
        const Outcome outcome = status_of(status_response(4, location));
        EXPECT_EQ(outcome.result, 4);
        EXPECT_EQ(port().console, Texts());
        return outcome.out;
    };
    const std::string text = "[print_resp_error:48] Invalid parameter at request byte ";
    EXPECT_EQ(located(hex("00 00 00")), text + "0, bit 0\n");
    EXPECT_EQ(located(hex("03 07 00")), text + "0x7, bit 3\n");
    EXPECT_EQ(located(hex("07 ff 00")), text + "0xff, bit 7\n");
    EXPECT_EQ(located(hex("f8 01 ff")), text + "0x1, bit 0\n");
    EXPECT_EQ(located(hex("ff 80 12")), text + "0x80, bit 7\n");
    EXPECT_EQ(located(hex("05 0a")), text + "0xa, bit 5\n");
}

TEST_F(NvmeStatus, AnInvalidParameterWithoutItsLocationIsReportedAtByte0) {
    const std::string text = "[print_resp_error:48] Invalid parameter at request byte ";
    EXPECT_EQ(status_of(status_response(4, {})).out, text + "0, bit 0\n");
    EXPECT_EQ(status_of(status_response(4, hex("05"))).result, 4);
    EXPECT_EQ(status_of(status_response(4, hex("05"))).out, text + "0, bit 5\n");
}

TEST_F(NvmeStatus, AResponseWithoutStatusIsMalformed) {
    for (size_t length : {1u, 2u, 3u}) {
        SCOPED_TRACE(length);
        const Outcome outcome = status_of(Bytes(length, 0x88));
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(outcome.out, "");
        const Texts log{"nvmemi, response of " + std::to_string(length) + " bytes has no status\n"};
        EXPECT_EQ(port().syslog, log);
        EXPECT_EQ(port().console, Texts());
    }
}

TEST_F(NvmeStatus, NothingFromAnOperationOfTheCallersOwnHasNoStatusEither) {
    ctx.mi_request = [](nvmemi_ctx*, uint32_t, uint32_t, uint8_t*, uint8_t*) -> int32_t {
        return 0;
    };
    EXPECT_EQ(test::run([&] { return nvmemi_reset(&ctx); }).result, -1);
    EXPECT_EQ(port().syslog, Texts{"nvmemi, response of 0 bytes has no status\n"});
    EXPECT_EQ(ctx.last_error.cause, SIDEBAND_CAUSE_MALFORMED);
}

TEST_F(NvmeStatus, AnEmptyResponseAfterMoreProcessingIsMalformed) {
    answer({kBusy, {}});
    EXPECT_EQ(test::run([&] { return nvmemi_reset(&ctx); }).result, -1);
}

TEST_F(NvmeStatus, ASecondMoreProcessingAnswerIsTheCommandsStatus) {
    const Outcome outcome = status_of(kBusy);
    EXPECT_EQ(outcome.result, 1);
    EXPECT_EQ(outcome.out, "Response unsuccess (1h)\n");
    EXPECT_EQ(endpoint.calls.size(), 2u);
}

// ---- Over SMBus ----

class NvmeExchangeSmbus : public test::NvmeSmbusTest {
protected:
    int32_t read_list() {
        const uint32_t nmd0 = NVMEMI_DS(NVMEMI_DTYP_CONTROLLER_LIST, 0, 0);
        return nvmemi_read_nvmemi_data_structure(&ctx, &nmd0, list.data(), 64, &length);
    }

    Guarded list{64};
    uint16_t length = 0xEEEE;
};

TEST_F(NvmeExchangeSmbus, MoreProcessingThenSilenceWaits600MillisecondsWithTheBusFree) {
    const Outcome outcome = exchange({kBusy}, [&] { return nvmemi_reset(&ctx); });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "send reset command; no response as expected\n");
    EXPECT_EQ(port().trace_of({"lock", "unlock", "write", "read", "sleep"}),
              (Texts{"lock bus 3", "write", "read", "unlock bus 3", "sleep 200000", "lock bus 3",
                     "read fails", "unlock bus 3", "sleep 200000", "lock bus 3", "read fails",
                     "unlock bus 3", "sleep 200000", "lock bus 3", "read fails", "unlock bus 3"}));
}

TEST_F(NvmeExchangeSmbus, ASilentDriveIsAskedThreeTimesWithATagOfItsOwnEach) {
    const Outcome outcome = exchange({}, [&] { return nvmemi_reset(&ctx); });
    EXPECT_EQ(outcome.result, -1);
    ASSERT_EQ(packets().size(), 3u);
    EXPECT_EQ(packets()[0].substr(0, 11), "01 1d 08 c9");
    EXPECT_EQ(packets()[1].substr(0, 11), "01 1d 08 ca");
    EXPECT_EQ(packets()[2].substr(0, 11), "01 1d 08 cb");
    EXPECT_EQ(port().trace_of({"lock"}).size(), 3u);
}

TEST_F(NvmeExchangeSmbus, AListIsDeliveredWithoutItsIntegrityCheck) {
    const Outcome outcome = exchange({mi_response(hex("06 00 00"), hex("02 00 01 00 05 00"))},
                                     [&] { return read_list(); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(length, 6);
    EXPECT_EQ(to_hex(list.head(7)), "02 00 01 00 05 00 a5");
}

TEST_F(NvmeExchangeSmbus, AnIntegrityCheckIsNoPartOfAStructure) {
    for (uint8_t claimed : {7, 10}) {
        SCOPED_TRACE(int{claimed});
        const Outcome outcome =
            exchange({mi_response(Bytes{claimed, 0, 0}, hex("02 00 01 00 05 00"))},
                     [&] { return read_list(); });
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(length, 0xEEEE);
        EXPECT_TRUE(list.untouched_from(0));
    }
}

TEST_F(NvmeExchangeSmbus, BytesThatAreNoIntegrityCheckBelongToTheResponse) {
    const test::Endpoint drive({mi_response(hex("06 00 00"), hex("02 00 01 00 05 00"))}, false);
    EXPECT_EQ(read_list(), 0);
    EXPECT_EQ(length, 6);
    EXPECT_EQ(to_hex(list.head(6)), "02 00 01 00 05 00");
}

TEST_F(NvmeExchangeSmbus, AStatusAloneIsTakenWithAndWithoutItsIntegrityCheck) {
    EXPECT_EQ(exchange({status_response(5, {})}, [&] { return nvmemi_reset(&ctx); }).result, 5);
    const test::Endpoint drive({status_response(5, {})}, false);
    EXPECT_EQ(test::run([&] { return nvmemi_reset(&ctx); }).result, 5);
}

TEST_F(NvmeExchangeSmbus, AnIntegrityCheckIsNoStatus) {
    // An empty body: its check happens to stand where a status would.
    const Outcome outcome = exchange({Bytes{}}, [&] { return nvmemi_reset(&ctx); });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(port().syslog, (Texts{"nvmemi, response of 0 bytes has no status\n"}));
}

TEST_F(NvmeExchangeSmbus, AResponseInSeveralPacketsIsPutTogether) {
    Bytes data = hex("38 00") + counting(60, 0x40);
    const Outcome outcome =
        exchange({mi_response(hex("3e 00 00"), data)}, [&] { return read_list(); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(length, 62);
    EXPECT_EQ(list.head(62), data);
    EXPECT_EQ(port().trace_of({"read"}).size(), 2u);
}

}  // namespace
