// SPDX-License-Identifier: Apache-2.0
// Answers that are not those of the request: passed over with MCTP_STRICT_PLDM, taken without.
#include <gtest/gtest.h>
#include <sideband/pldm.h>
#include <sideband/pldm_monitor.h>

#include <ctime>
#include <utility>

#include "pldm/pldm_fixture.h"
#include "support/offset_table.h"

namespace {

using test::Bytes;
using test::MctpAnswer;
using test::Outcome;
using test::operator+;
using Texts = std::vector<std::string>;

constexpr const char* kRequest = "85 02 11 01 00 00";
constexpr const char* kAnswer = "05 02 11 00 77";
constexpr const char* kNoneAnswers =
    "pldm_transfer, none of the messages that came answers command 0x11\n";

class PldmStrict : public test::PldmTest {
protected:
    PldmStrict() { endpoint.strict = MCTP_STRICT_PLDM; }

    /// Exchanges a GetSensorReading with instance ID 5.
    Outcome transfer() {
        request = test::hex(kRequest);
        response.assign(8, 0);
        endpoint.calls.clear();
        ctx.instance_id = 5;
        return test::run([&] {
            return ctx.transfer_op(&ctx, static_cast<uint32_t>(request.size()),
                                   static_cast<int32_t>(response.size()), request.data(),
                                   response.data());
        });
    }

    void answer_stale(size_t count) {
        for (size_t i = 0; i < count; ++i) {
            endpoint.answer({"04 02 11 00 aa"});
        }
    }

    Bytes request;
    Bytes response;
};

/// Each differs from the answer in one field of the header, or is too short to have one.
const std::pair<const char*, const char*> kStale[] = {
    {"instance ID", "04 02 11 00 aa"}, {"Rq", "85 02 11 00 aa"},
    {"D", "45 02 11 00 aa"},           {"type", "05 04 11 00 aa"},
    {"version", "05 42 11 00 aa"},     {"command", "05 02 10 00 aa"},
    {"no command", "05 02"},           {"nothing", ""},
};

TEST_F(PldmStrict, TheAnswerIsTakenAtOnce) {
    endpoint.answer({kAnswer});
    EXPECT_EQ(transfer().result, 0);
    EXPECT_EQ(ctx.response_length, 5);
    EXPECT_EQ(endpoint.messages(), Texts{kRequest});
}

TEST_F(PldmStrict, WhatIsNoAnswerIsPassedOver) {
    for (const auto& [field, stale] : kStale) {
        SCOPED_TRACE(field);
        endpoint.answer({stale, kAnswer});
        const Outcome outcome = transfer();
        EXPECT_EQ(outcome.result, 0);
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(test::to_hex(std::span(response).first(5)), kAnswer);
        EXPECT_EQ(ctx.response_length, 5);
        EXPECT_EQ(ctx.instance_id, 6);
        ASSERT_EQ(endpoint.calls.size(), 2u) << "the request is sent once";
        EXPECT_EQ(endpoint.calls[1].capacity, 8);
    }
}

TEST_F(PldmStrict, WhatIsPassedOverLeavesNothingBehindTheAnswer) {
    endpoint.answer({"04 02 11 00 aa bb cc dd", kAnswer});
    EXPECT_EQ(transfer().result, 0);
    EXPECT_EQ(test::to_hex(response), "05 02 11 00 77 00 00 00");
    endpoint.answer({"04 02 11 00 aa bb cc dd", "04 02 11 00 aa bb", kAnswer});
    EXPECT_EQ(transfer().result, 0);
    EXPECT_EQ(test::to_hex(response), "05 02 11 00 77 00 00 00");
}

TEST_F(PldmStrict, TheReadingOfAnotherAnswerIsNoPartOfThisOne) {
    // A reading of four bytes that comes late, and one of a byte: 0x2a.
    endpoint.answer(
        {"1f 02 11 00 04 00 00 01 01 01 78 56 34 12", "00 02 11 00 00 00 00 01 01 01 2a"});
    uint32_t reading = 0;
    EXPECT_EQ(test::run([&] { return pldm_get_sensor_reading(&ctx, 1, &reading); }).result, 0);
    EXPECT_EQ(reading, 0x2AU);
}

TEST_F(PldmStrict, WithoutTheBitItIsTaken) {
    endpoint.strict = MCTP_STRICT_ALL & ~MCTP_STRICT_PLDM;
    for (const auto& [field, stale] : kStale) {
        SCOPED_TRACE(field);
        endpoint.answers.clear();
        endpoint.answer({stale, kAnswer});
        const bool whole = test::hex(stale).size() >= 4;
        EXPECT_EQ(transfer().result, whole ? 0 : -1);
        EXPECT_EQ(endpoint.calls.size(), 1u);
        EXPECT_EQ(endpoint.answers.size(), 1u);
        EXPECT_EQ(response[4], whole ? 0xAA : 0);
    }
}

TEST_F(PldmStrict, ALengthBeyondTheRoomIsNotBelieved) {
    endpoint.answer({"04 02 11 00 aa"});
    endpoint.answers.push_back({100, test::hex("05 02 10 00 aa 00 00 00")});
    endpoint.answers.push_back({100, test::hex("05 02 11 00 77 00 00 00")});
    EXPECT_EQ(transfer().result, 0);
    EXPECT_EQ(test::to_hex(std::span(response).first(5)), kAnswer);
    EXPECT_EQ(endpoint.calls.size(), 3u);
}

TEST_F(PldmStrict, TheReservedBitIsNotLookedAt) {
    endpoint.answer({"25 02 11 00 77"});
    EXPECT_EQ(transfer().result, 0);
    EXPECT_EQ(endpoint.calls.size(), 1u);
}

TEST_F(PldmStrict, AnAnswerWithoutCompletionCodeIsTooShortAsEver) {
    endpoint.answer({"05 02 11"});
    const Outcome outcome = transfer();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "return size(3) is too small\n");
}

TEST_F(PldmStrict, NotReadyOfAnotherRequestIsPassedOver) {
    endpoint.answer({"04 02 11 04", "05 02 11 00"});
    EXPECT_EQ(transfer().result, 0);
    endpoint.answer({"05 02 11 04"});
    EXPECT_EQ(transfer().result, -1);
    EXPECT_EQ(ctx.completion_code, PLDM_CC_RETRIES_EXHAUSTED);
}

TEST_F(PldmStrict, WhatHasNoCommandAnswersNotEvenCommandZero) {
    Bytes base = test::hex("80 00 00");
    response.assign(8, 0);
    endpoint.answer({"00 00", "00", "00 00 00 2a"});
    const Outcome outcome =
        test::run([&] { return pldm_transfer(&ctx, 3, 8, base.data(), response.data()); });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(ctx.completion_code, 0x2A);
    EXPECT_EQ(ctx.response_length, 4);
    EXPECT_EQ(endpoint.calls.size(), 3u);
}

TEST_F(PldmStrict, WithoutRoomForAHeaderNothingIsPassedOver) {
    request = test::hex(kRequest);
    response.assign(2, 0);
    ctx.instance_id = 5;
    endpoint.answers.push_back({2, test::hex("04 02")});
    endpoint.answer({kAnswer});
    const Outcome outcome =
        test::run([&] { return pldm_transfer(&ctx, 6, 2, request.data(), response.data()); });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "return size(2) is too small\n");
    EXPECT_EQ(ctx.last_error.cause, SIDEBAND_CAUSE_MALFORMED);
    EXPECT_EQ(endpoint.calls.size(), 1u);
}

TEST_F(PldmStrict, ThirtyOneArePassedOver) {
    answer_stale(31);
    endpoint.answer({kAnswer});
    EXPECT_EQ(transfer().result, 0);
    EXPECT_EQ(endpoint.calls.size(), 32u);
}

TEST_F(PldmStrict, MoreEndTheExchange) {
    answer_stale(32);
    endpoint.answer({kAnswer});
    const Outcome outcome = transfer();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "do retrying to xfer PLDM messages - 0\nfailed to xfer PLDM messages\n");
    EXPECT_EQ(endpoint.calls.size(), 32u);
    EXPECT_EQ(ctx.completion_code, PLDM_CC_RETRIES_EXHAUSTED);
    EXPECT_EQ(ctx.response_length, -1);
    EXPECT_EQ(ctx.instance_id, 6);
    EXPECT_EQ(test::port().syslog, Texts{kNoneAnswers});
}

TEST_F(PldmStrict, AFailedReceiveEndsTheExchange) {
    answer_stale(1);
    endpoint.answers.push_back(MctpAnswer::failure());
    EXPECT_EQ(transfer().result, -1);
    EXPECT_EQ(endpoint.calls.size(), 2u);
    endpoint.recv = nullptr;
    answer_stale(1);
    EXPECT_EQ(transfer().result, -1);
    EXPECT_EQ(ctx.response_length, -1);
    EXPECT_EQ(endpoint.calls.size(), 1u);
}

TEST_F(PldmStrict, ARequestOfTheDeviceDoesNotCostTheAnswerItsTag) {
    endpoint.answer({"80 05 15 00 00 00 00 20 00 00 00", kAnswer});
    endpoint.tag = 7;
    uint8_t tag_of_receive = 0xFF;
    endpoint.on_call = [&] {
        if (endpoint.calls.size() == 1) {
            endpoint.tag = 5;  // a receive leaves the tag of what it took
        } else {
            tag_of_receive = endpoint.tag;
        }
    };
    EXPECT_EQ(transfer().result, 0);
    EXPECT_EQ(tag_of_receive, 0) << "that of the request: 7 and one more";
}

TEST_F(PldmStrict, ThePatientCommandIsAskedAgainWithTheSameInstanceId) {
    endpoint.answer({"1f 05 1a 00", "05 05 1a 04", "05 05 1a 00"});
    Bytes activate = test::hex("80 05 1a 00");
    ctx.instance_id = 5;
    response.assign(8, 0);
    const Outcome outcome =
        test::run([&] { return ctx.transfer_op(&ctx, 4, 8, activate.data(), response.data()); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(endpoint.messages(), (Texts{"85 05 1a 00", "01", "85 05 1a 00"}));
}

// ---- Time ----

int64_t clock_ms;

int give_clock(clockid_t, timespec* now) {
    *now = {};
    now->tv_sec = clock_ms / 1000;
    now->tv_nsec = clock_ms % 1000 * 1000000;
    return 0;
}

struct Timespec64 {
    int64_t seconds;
    int64_t nanoseconds;
};

int give_clock64(clockid_t, Timespec64* now) {
    *now = {clock_ms / 1000, clock_ms % 1000 * 1000000};
    return 0;
}

TEST_F(PldmStrict, TheWaitEndsWithTheTimeLimit) {
    test::Substitute clock[] = {{"clock_gettime", test::address_of(give_clock)},
                                {"__clock_gettime64", test::address_of(give_clock64)}};
    test::patch_offsets(clock);
    clock_ms = 100000;
    endpoint.on_call = [&] { clock_ms += 1600; };
    answer_stale(10);
    EXPECT_EQ(transfer().result, -1);
    // The request, and three receives that begin 0, 1.6 and 3.2 seconds behind its answer.
    EXPECT_EQ(endpoint.calls.size(), 4u);
    endpoint.answers.clear();
    answer_stale(3);
    endpoint.answer({kAnswer});
    EXPECT_EQ(transfer().result, 0);
    test::restore_offsets(clock);
}

// ---- Commands ----

class PldmStrictCommands : public PldmStrict {
protected:
    static constexpr const char* kVersion = "00 00 03 00 00 00 00 00 05 00 f0 f1 f1 11 22 33 44";
};

TEST_F(PldmStrictCommands, GetCommandsAsksForTheVersionOfTheBaseType) {
    ctx.pldm_version = 0xF1F2F3F4;  // of another type
    endpoint.answer({kVersion});
    endpoint.answers.push_back(MctpAnswer::of(test::hex("01 00 05 00") + test::counting(32, 1)));
    EXPECT_EQ(test::run([&] { return pldm_get_commands(&ctx); }).result, 0);
    EXPECT_EQ(endpoint.messages(),
              (Texts{"80 00 03 00 00 00 00 01 00", "81 00 05 00 00 f0 f1 f1"}));
    EXPECT_EQ(ctx.pldm_version, 0xF1F1F000u);
    EXPECT_EQ(Bytes(ctx.base_commands, ctx.base_commands + 32), test::counting(32, 1));
}

TEST_F(PldmStrictCommands, WithoutAVersionTheyAreNotAskedFor) {
    endpoint.answer({"00 00 03 83"});
    EXPECT_EQ(test::run([&] { return pldm_get_commands(&ctx); }).result, -1);
    EXPECT_EQ(endpoint.calls.size(), 1u);
}

TEST_F(PldmStrictCommands, WithoutTheBitVersionZeroIsAskedFor) {
    endpoint.strict = MCTP_STRICT_ALL & ~MCTP_STRICT_PLDM;
    ctx.pldm_version = 0xF1F1F000;
    endpoint.answers.push_back(MctpAnswer::of(test::hex("00 00 05 00") + test::counting(32, 1)));
    EXPECT_EQ(test::run([&] { return pldm_get_commands(&ctx); }).result, 0);
    EXPECT_EQ(endpoint.messages(), Texts{"80 00 05 00 00 00 00 00"});
}

TEST_F(PldmStrictCommands, AContextWithoutEndpointHasNoBits) {
    ctx.mctp = nullptr;
    pass_through(0, test::hex("00 00 05 00") + test::counting(32, 1));
    EXPECT_EQ(test::run([&] { return pldm_get_commands(&ctx); }).result, 0);
}

}  // namespace
