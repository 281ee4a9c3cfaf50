// SPDX-License-Identifier: Apache-2.0
// The PLDM exchange: instance IDs, retries, pauses, completion codes and what is printed.
#include <gtest/gtest.h>
#include <sideband/pldm.h>

#include <algorithm>
#include <memory>

#include "pldm/pldm_fixture.h"
#include "support/endpoint.h"

namespace {

using test::Bytes;
using test::MctpAnswer;
using test::Outcome;
using test::operator+;
using Sleeps = std::vector<uint32_t>;
using Texts = std::vector<std::string>;

class PldmTransfer : public test::PldmTest {
protected:
    /// Exchanges this request, in a buffer of its own, into response.
    Outcome transfer(const Bytes& message) {
        request = message;
        return test::run([&] {
            return ctx.transfer_op(&ctx, static_cast<uint32_t>(request.size()),
                                   static_cast<int32_t>(response.size()), request.data(),
                                   response.data());
        });
    }

    Bytes request;
    Bytes response = Bytes(8, 0);
};

TEST_F(PldmTransfer, ReturnsZeroNotTheLengthAndTellsTheLengthInTheContext) {
    endpoint.answer({"00 00 02 00 07"});
    const Outcome outcome = transfer(test::hex("80 00 02"));
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(response, test::hex("00 00 02 00 07 00 00 00"));
    EXPECT_EQ(ctx.response_length, 5);
    EXPECT_EQ(ctx.last_command, 2);
    EXPECT_EQ(ctx.instance_id, 1);
    EXPECT_EQ(endpoint.messages(), Texts{"80 00 02"});
    EXPECT_EQ(endpoint.calls[0].capacity, 8);
    EXPECT_EQ(libc.sleeps, Sleeps());
}

TEST_F(PldmTransfer, CompletionCodeIsNotClearedOnSuccess) {
    ctx.completion_code = 0x83;
    endpoint.answer({"00 00 02 00"});
    EXPECT_EQ(transfer(test::hex("80 00 02")).result, 0);
    EXPECT_EQ(ctx.completion_code, 0x83);
}

TEST_F(PldmTransfer, InstanceIdIsStampedIntoTheLowFiveBitsAlone) {
    ctx.instance_id = 0x15;
    endpoint.answer({"00 00 02 00", "00 00 02 00"});
    transfer(test::hex("ff 00 02"));
    EXPECT_EQ(request, test::hex("f5 00 02"));
    transfer(test::hex("00 00 02"));
    EXPECT_EQ(request, test::hex("16 00 02"));
    EXPECT_EQ(endpoint.messages(), (Texts{"f5 00 02", "16 00 02"}));
}

TEST_F(PldmTransfer, InstanceId31IsFollowedByCounter32AndStamp0) {
    ctx.instance_id = 31;
    endpoint.answer({"1f 00 02 00", "00 00 02 00"});
    transfer(test::hex("80 00 02"));
    EXPECT_EQ(ctx.instance_id, 32);
    transfer(test::hex("80 00 02"));
    EXPECT_EQ(ctx.instance_id, 33);
    EXPECT_EQ(endpoint.messages(), (Texts{"9f 00 02", "80 00 02"}));
}

TEST_F(PldmTransfer, InstanceCounterWrapsAt256) {
    ctx.instance_id = 255;
    endpoint.answer({"1f 00 02 00"});
    transfer(test::hex("80 00 02"));
    EXPECT_EQ(ctx.instance_id, 0);
    EXPECT_EQ(endpoint.messages(), Texts{"9f 00 02"});
}

TEST_F(PldmTransfer, HeaderOfTheResponseIsNotCompared) {
    endpoint.answer({"7f 3f 55 00"});
    EXPECT_EQ(transfer(test::hex("80 00 02")).result, 0);
}

TEST_F(PldmTransfer, OneFailureIsNotRetriedButSleepsAndPrints) {
    endpoint.answers.push_back(MctpAnswer::failure());
    const Outcome outcome = transfer(test::hex("80 00 02"));
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out,
              "do retrying to xfer PLDM messages - 0\n"
              "failed to xfer PLDM messages\n");
    EXPECT_EQ(libc.sleeps, Sleeps{100000});
    EXPECT_EQ(ctx.completion_code, 0x30);
    EXPECT_EQ(ctx.last_command, 2);
    EXPECT_EQ(ctx.instance_id, 1);
    EXPECT_EQ(endpoint.calls.size(), 1u);
}

TEST_F(PldmTransfer, EveryNegativeResultOfTheEndpointIsAFailure) {
    for (int32_t result : {-1, -2, -112, INT32_MIN}) {
        endpoint.answers.push_back(MctpAnswer::failure(result));
        EXPECT_EQ(transfer(test::hex("80 00 02")).result, -1) << result;
    }
}

TEST_F(PldmTransfer, NotReadyToOtherCommandsThan1AIsAFailure) {
    endpoint.answer({"00 05 10 04"});
    const Outcome outcome = transfer(test::hex("80 05 10"));
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out,
              "do retrying to xfer PLDM messages - 0\n"
              "failed to xfer PLDM messages\n");
    EXPECT_EQ(ctx.completion_code, 0x30);
    EXPECT_EQ(ctx.instance_id, 1);
    EXPECT_EQ(libc.sleeps, Sleeps{100000});
}

TEST_F(PldmTransfer, NineTimesNotReadyThenSuccessForCommand1A) {
    ctx.instance_id = 9;
    for (int i = 0; i < 9; i++) {
        endpoint.answer({"09 05 1a 04"});
    }
    endpoint.answer({"09 05 1a 00 10 00"});
    const Outcome outcome = transfer(test::hex("80 05 1a 01"));
    EXPECT_EQ(outcome.result, 0);
    std::string expected;
    for (int i = 0; i < 9; i++) {
        expected += "do retrying to xfer PLDM messages - " + std::to_string(i) + "\n";
    }
    EXPECT_EQ(outcome.out, expected);
    EXPECT_EQ(endpoint.messages(), Texts(10, "89 05 1a 01"));
    EXPECT_EQ(libc.sleeps, Sleeps(9, 100000));
    EXPECT_EQ(ctx.instance_id, 10);
    EXPECT_EQ(ctx.completion_code, 0);
    EXPECT_EQ(ctx.response_length, 6);
}

TEST_F(PldmTransfer, TenTimesNotReadyExhaustsCommand1A) {
    for (int i = 0; i < 11; i++) {
        endpoint.answer({"00 05 1a 04"});
    }
    const Outcome outcome = transfer(test::hex("80 05 1a 01"));
    EXPECT_EQ(outcome.result, -1);
    EXPECT_TRUE(
        outcome.out.ends_with("do retrying to xfer PLDM messages - 9\n"
                              "failed to xfer PLDM messages\n"))
        << outcome.out;
    EXPECT_EQ(endpoint.calls.size(), 10u);
    EXPECT_EQ(libc.sleeps, Sleeps(10, 100000));
    EXPECT_EQ(ctx.completion_code, 0x30);
    EXPECT_EQ(ctx.instance_id, 1);
}

TEST_F(PldmTransfer, TransportFailuresAndNotReadyShareTheTenAttempts) {
    endpoint.answers.push_back(MctpAnswer::failure());
    endpoint.answer({"00 05 1a 04"});
    // What the failed attempt left in the buffer is replaced by the answer.
    endpoint.answer({"00 05 1a 00"});
    EXPECT_EQ(transfer(test::hex("80 05 1a 00")).result, 0);
    EXPECT_EQ(endpoint.calls.size(), 3u);
    EXPECT_EQ(ctx.instance_id, 1);
}

TEST_F(PldmTransfer, AnErrorAnswerToCommand1AIsNotRetried) {
    endpoint.answer({"00 05 1a 85"});
    EXPECT_EQ(transfer(test::hex("80 05 1a 00")).result, -1);
    EXPECT_EQ(endpoint.calls.size(), 1u);
    EXPECT_EQ(ctx.completion_code, 0x85);
}

TEST_F(PldmTransfer, TheCommandByteAloneDecidesWhateverThePldmType) {
    for (std::string_view header : {"80 00 1a", "80 02 1a", "80 3f 1a"}) {
        endpoint.calls.clear();
        EXPECT_EQ(transfer(test::hex(header)).result, -1);
        EXPECT_EQ(endpoint.calls.size(), 10u) << header;
    }
    endpoint.calls.clear();
    EXPECT_EQ(transfer(test::hex("9a 1a 1b 1a")).result, -1);
    EXPECT_EQ(endpoint.calls.size(), 1u);
}

TEST_F(PldmTransfer, StaleNotReadyInTheBufferCountsWhenNothingCame) {
    // The answer of three bytes would be "too small", were there not a 4 left behind it.
    response[3] = 4;
    endpoint.answer({"00 00 02"});
    const Outcome outcome = transfer(test::hex("80 00 02"));
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out,
              "do retrying to xfer PLDM messages - 0\n"
              "failed to xfer PLDM messages\n");
    EXPECT_EQ(ctx.completion_code, 0x30);
}

TEST_F(PldmTransfer, StaleCompletionCodeIsStoredForAnAnswerOfThreeBytes) {
    response[3] = 0x85;
    endpoint.answer({"00 00 02"});
    const Outcome outcome = transfer(test::hex("80 00 02"));
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "return size(3) is too small\n");
    EXPECT_EQ(ctx.completion_code, 0x85);
    EXPECT_EQ(ctx.response_length, 3);
    EXPECT_EQ(ctx.instance_id, 1);
    EXPECT_EQ(libc.sleeps, Sleeps());
}

TEST_F(PldmTransfer, AnswersBelowFourBytesAreTooSmallEvenWithoutACode) {
    for (int32_t length = 0; length < 4; length++) {
        ctx.completion_code = 0x77;
        endpoint.answers.push_back({length, {}});
        const Outcome outcome = transfer(test::hex("80 00 02"));
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(outcome.out, "return size(" + std::to_string(length) + ") is too small\n");
        EXPECT_EQ(ctx.completion_code, 0);
    }
    EXPECT_EQ(ctx.instance_id, 4);
}

TEST_F(PldmTransfer, OtherCompletionCodesArePrintedAndStored) {
    for (const auto& [code, text] : {std::pair{0x01, "0x1"}, {0x05, "0x5"}, {0xFF, "0xff"}}) {
        endpoint.answers.push_back(
            MctpAnswer::of(test::hex("00 02 21") + Bytes{static_cast<uint8_t>(code)}));
        const Outcome outcome = transfer(test::hex("80 02 21"));
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(outcome.out,
                  std::string("command:0x21 is not successful, completion code:") + text + "\n");
        EXPECT_EQ(ctx.completion_code, code);
    }
    EXPECT_EQ(ctx.instance_id, 3);
    EXPECT_EQ(libc.sleeps, Sleeps());
}

TEST_F(PldmTransfer, LastCommandIsWrittenBeforeEveryAttempt) {
    std::vector<int> seen;
    endpoint.on_call = [&] {
        seen.push_back(ctx.last_command);
        ctx.last_command = 0;
    };
    transfer(test::hex("80 05 1a"));
    EXPECT_EQ(seen, std::vector<int>(10, 0x1A));
}

TEST_F(PldmTransfer, EndpointAndCommandAreReadAnewForEachAttempt) {
    test::FakeEndpoint other;
    other.answer({"00 05 1b 00"});
    endpoint.on_call = [&] {
        ctx.mctp = &other;
        request[2] = 0x1B;
        ctx.instance_id = 7;  // The request is not stamped again.
    };
    EXPECT_EQ(transfer(test::hex("80 05 1a")).result, 0);
    EXPECT_EQ(other.messages(), Texts{"80 05 1b"});
    EXPECT_EQ(ctx.last_command, 0x1B);
    EXPECT_EQ(ctx.instance_id, 8);
}

TEST_F(PldmTransfer, AnEndpointOrOperationTakenAwayMeanwhileEndsTheCall) {
    endpoint.on_call = [&] { endpoint.xfer = nullptr; };
    const mctp_xfer_op xfer = endpoint.xfer;
    EXPECT_EQ(transfer(test::hex("80 05 1a")).result, -1);
    EXPECT_EQ(endpoint.calls.size(), 1u);
    endpoint.xfer = xfer;
    endpoint.on_call = [&] { ctx.mctp = nullptr; };
    EXPECT_EQ(transfer(test::hex("80 05 1a")).result, -1);
    EXPECT_EQ(endpoint.calls.size(), 2u);
}

TEST_F(PldmTransfer, NullArgumentsAreNamedOnStandardOutput) {
    uint8_t byte = 0;
    const auto refused = [](pldm_ctx* target, uint8_t* message, uint8_t* room) {
        const Outcome outcome =
            test::run([&] { return pldm_transfer(target, 3, 4, message, room); });
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(outcome.out, "[pldm_transfer] Null ptr error.\n");
    };
    refused(nullptr, &byte, &byte);
    refused(&ctx, nullptr, &byte);
    refused(&ctx, &byte, nullptr);
    EXPECT_TRUE(endpoint.calls.empty());
    EXPECT_EQ(ctx.instance_id, 0);
}

TEST_F(PldmTransfer, UnboundContextsAreRefusedWithoutAMessageOrAnInstanceId) {
    endpoint.xfer = nullptr;
    Outcome outcome = transfer(test::hex("9f 00 02"));
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "");
    ctx.mctp = nullptr;
    outcome = transfer(test::hex("9f 00 02"));
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(request, test::hex("9f 00 02"));
    EXPECT_EQ(ctx.instance_id, 0);
    EXPECT_EQ(ctx.completion_code, 0);
    EXPECT_EQ(libc.sleeps, Sleeps());
}

TEST_F(PldmTransfer, ARequestWithoutAWholeHeaderIsRefusedWithoutAMessage) {
    for (size_t length = 0; length < 3; length++) {
        const auto exact = std::make_unique<uint8_t[]>(length);
        const Outcome outcome = test::run([&] {
            return pldm_transfer(&ctx, static_cast<uint32_t>(length), 8, exact.get(),
                                 response.data());
        });
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(outcome.out, "");
    }
    EXPECT_TRUE(endpoint.calls.empty());
    EXPECT_EQ(ctx.instance_id, 0);
    EXPECT_EQ(ctx.last_command, 0);
    EXPECT_EQ(ctx.completion_code, 0);
    EXPECT_EQ(libc.sleeps, Sleeps());
}

TEST_F(PldmTransfer, ADeviceThatAnswersWith30LooksLikeOneThatDoesNotAnswer) {
    EXPECT_EQ(transfer(test::hex("80 00 02")).result, -1);
    EXPECT_EQ(ctx.completion_code, PLDM_CC_RETRIES_EXHAUSTED);
    ctx.completion_code = 0;
    endpoint.answer({"00 00 02 30"});
    EXPECT_EQ(transfer(test::hex("80 00 02")).result, -1);
    EXPECT_EQ(ctx.completion_code, PLDM_CC_RETRIES_EXHAUSTED);
}

TEST_F(PldmTransfer, NoCompletionCodeIsReadBehindASmallBuffer) {
    // A 4 in the fourth byte would be "not ready", if it were looked at.
    test::Guarded room(8, 0x04);
    for (int32_t capacity : {3, 1, 0, -1}) {
        request = test::hex("80 05 1a");
        endpoint.answers.push_back({std::max(capacity, 0), {}});
        ctx.completion_code = 0x77;
        const Outcome outcome = test::run(
            [&] { return pldm_transfer(&ctx, 3, capacity, request.data(), room.data()); });
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(outcome.out,
                  "return size(" + std::to_string(std::max(capacity, 0)) + ") is too small\n");
        EXPECT_EQ(ctx.completion_code, 0);
        EXPECT_EQ(endpoint.calls.back().capacity, capacity);
    }
    EXPECT_TRUE(room.intact());
    EXPECT_TRUE(room.untouched_from(0));
    EXPECT_EQ(libc.sleeps, Sleeps());
}

TEST_F(PldmTransfer, AnOversizedResultOfTheEndpointIsTakenAtItsWord) {
    // Only what lies in the caller's buffer is looked at.
    endpoint.answers.push_back({INT32_MAX, test::hex("00 00 02 00")});
    EXPECT_EQ(transfer(test::hex("80 00 02")).result, 0);
    EXPECT_EQ(ctx.response_length, INT32_MAX);
}

// ---- Over SMBus ----

class PldmOverSmbus : public test::PlatformTest {
protected:
    PldmOverSmbus() { EXPECT_EQ(mctp_pldm_register(&mctp, &ctx), 0); }

    mctp_ctx mctp = test::ready_context();
    pldm_ctx ctx{};
};

TEST_F(PldmOverSmbus, GetTidExchangesOnePacketEachWay) {
    test::port().queue(
        {test::packet(0x08, 0x1D, test::kSom | test::kEom | 1, test::hex("01 00 00 02 00 2a"))});
    const Outcome outcome = test::run([&] { return pldm_get_tid(&ctx); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(ctx.tid, 0x2A);
    const std::vector<Bytes> packets = test::port().written_packets();
    ASSERT_EQ(packets.size(), 1u);
    EXPECT_EQ(packets[0], test::hex("01 1d 08 c9 01 80 00 02"));
    EXPECT_EQ(test::port().trace_of({"lock", "unlock"}), (Texts{"lock bus 3", "unlock bus 3"}));
}

TEST_F(PldmOverSmbus, ThePauseAfterAFailureIsMadeWithTheBusReleased) {
    EXPECT_EQ(test::run([&] { return pldm_get_tid(&ctx); }).result, -1);
    EXPECT_EQ(test::port().trace_of({"lock", "unlock", "sleep"}),
              (Texts{"lock bus 3", "unlock bus 3", "sleep 100000"}));
}

TEST_F(PldmOverSmbus, EachAttemptOfCommand1ATakesItsOwnTagAndTheSameInstanceId) {
    test::Endpoint device(
        {test::hex("00 05 1a 04"), test::hex("00 05 1a 04"), test::hex("00 05 1a 00 05 00")});
    ctx.instance_id = 3;
    Bytes request = test::hex("80 05 1a 00");
    Bytes response(6, 0);
    const Outcome outcome =
        test::run([&] { return ctx.transfer_op(&ctx, 4, 6, request.data(), response.data()); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(response, test::hex("03 05 1a 00 05 00"));
    EXPECT_EQ(device.requests, std::vector<Bytes>(3, test::hex("83 05 1a 00")));
    const std::vector<Bytes> packets = test::port().written_packets();
    ASSERT_EQ(packets.size(), 3u);
    EXPECT_EQ(packets[0][3], 0xC9);
    EXPECT_EQ(packets[1][3], 0xCA);
    EXPECT_EQ(packets[2][3], 0xCB);
}

TEST_F(PldmOverSmbus, ALongAnswerIsPutTogetherFromItsPackets) {
    // 36 bytes of GetPLDMCommands in packets of 16 message bytes.
    test::Endpoint device({test::hex("00 00 05 00") + test::counting(32, 0x40)});
    device.unit = 16;
    EXPECT_EQ(test::run([&] { return pldm_get_commands(&ctx); }).result, 0);
    EXPECT_EQ(Bytes(ctx.base_commands, ctx.base_commands + 32), test::counting(32, 0x40));
    EXPECT_EQ(ctx.response_length, 36);
}

TEST_F(PldmOverSmbus, ReceiveAndSendUseTheBoundEndpoint) {
    test::port().queue({test::packet(0x08, 0x1D, test::kSom | test::kEom | test::kTo | 2,
                                     test::hex("01 85 05 15 00"))});
    Bytes buffer(16, 0xEE);
    EXPECT_EQ(ctx.recv_op(&ctx, 16, buffer.data()), 0);
    EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 5), test::hex("85 05 15 00 ee"));
    const Bytes answer = test::hex("05 05 15 00");
    EXPECT_EQ(ctx.send_op(&ctx, 4, answer.data(), 0), 0);
    ASSERT_EQ(test::port().written_packets().size(), 1u);
    EXPECT_EQ(test::port().written_packets()[0], test::hex("01 1d 08 c2 01 05 05 15 00"));
}

}  // namespace
