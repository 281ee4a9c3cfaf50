// SPDX-License-Identifier: Apache-2.0
// The PLDM header initialisers, and sending and receiving one message.
#include <gtest/gtest.h>
#include <sideband/pldm.h>

#include <array>

#include "pldm/pldm_fixture.h"

namespace {

using test::Bytes;
using test::MctpAnswer;
using test::Outcome;
using Sleeps = std::vector<uint32_t>;

Bytes initialised(int32_t (*init)(uint8_t*)) {
    std::array<uint8_t, 5> buffer;
    buffer.fill(0xEE);
    EXPECT_EQ(init(buffer.data()), 0);
    return Bytes(buffer.begin(), buffer.end());
}

TEST(PldmHeader, RequestsCarryRqAndTheirTypeAndNothingBehindTheHeaderIsTouched) {
    EXPECT_EQ(initialised(pldm_request_init), test::hex("80 00 00 ee ee"));
    EXPECT_EQ(initialised(pldm_monitor_request_init), test::hex("80 02 00 ee ee"));
    EXPECT_EQ(initialised(pldm_FRU_request_init), test::hex("80 04 00 ee ee"));
    EXPECT_EQ(initialised(pldm_fw_update_request_init), test::hex("80 05 00 ee ee"));
}

TEST(PldmHeader, NullRequestsAreRefusedEachInItsOwnWay) {
    EXPECT_EQ(pldm_request_init(nullptr), -1);
    EXPECT_EQ(pldm_monitor_request_init(nullptr), -112);
    EXPECT_EQ(pldm_FRU_request_init(nullptr), -1);
}

TEST(PldmHeader, UpdateAgentResponseTakesInstanceAndCommandOfTheRequest) {
    // Rq, D and the reserved bit of the request do not come back, nor its type.
    const Bytes request = test::hex("fb 3f 15 01 02");
    Bytes response = test::hex("ee ee ee ee");
    pldm_fw_update_response_init(response.data(), request.data());
    EXPECT_EQ(response, test::hex("1b 05 15 ee"));
}

// ---- pldm_recv ----

class PldmRecv : public test::PldmTest {};

TEST_F(PldmRecv, DeliversTheMessageAndReturnsZeroNotALength) {
    endpoint.answer({"85 05 15 00 00"});
    Bytes buffer(16, 0xEE);
    const Outcome outcome = test::run([&] { return ctx.recv_op(&ctx, 16, buffer.data()); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 6), test::hex("85 05 15 00 00 ee"));
    ASSERT_EQ(endpoint.calls.size(), 1u);
    EXPECT_EQ(endpoint.calls[0].capacity, 16);
}

TEST_F(PldmRecv, FirstBufferByteIsOneWhenTheEndpointIsAsked) {
    for (int32_t capacity : {1, 4}) {
        endpoint.calls.clear();
        endpoint.answer({"85"});
        Bytes buffer(4, 0xEE);
        EXPECT_EQ(pldm_recv(&ctx, capacity, buffer.data()), 0);
        EXPECT_EQ(endpoint.messages(), std::vector<std::string>{"01"});
    }
}

TEST_F(PldmRecv, FirstBufferByteIsOneEvenWhenReceivingFails) {
    endpoint.answers.push_back(MctpAnswer::failure(-7));
    Bytes buffer(4, 0xEE);
    const Outcome outcome = test::run([&] { return pldm_recv(&ctx, 4, buffer.data()); });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(buffer, test::hex("01 ee ee ee"));
}

TEST_F(PldmRecv, AnEmptyMessageIsNoFailure) {
    endpoint.answers.push_back({0, {}});
    Bytes buffer(4, 0xEE);
    EXPECT_EQ(pldm_recv(&ctx, 4, buffer.data()), 0);
}

TEST_F(PldmRecv, WithoutRoomTheBufferIsNotTouched) {
    for (int32_t capacity : {0, -1, INT32_MIN}) {
        uint8_t byte = 0xEE;
        endpoint.answers.push_back({0, {}});
        EXPECT_EQ(pldm_recv(&ctx, capacity, &byte), 0);
        EXPECT_EQ(byte, 0xEE) << capacity;
        EXPECT_EQ(endpoint.calls.back().capacity, capacity);
    }
}

TEST_F(PldmRecv, NullArgumentsAndUnboundContextsAreRefusedWithoutAMessage) {
    uint8_t byte = 0xEE;
    const auto refused = [](pldm_ctx* target, uint8_t* buffer) {
        const Outcome outcome = test::run([&] { return pldm_recv(target, 1, buffer); });
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(outcome.out, "");
    };
    refused(&ctx, nullptr);
    refused(nullptr, &byte);
    endpoint.recv = nullptr;
    refused(&ctx, &byte);
    ctx.mctp = nullptr;
    refused(&ctx, &byte);
    EXPECT_EQ(byte, 0xEE);
    EXPECT_TRUE(endpoint.calls.empty());
}

// ---- pldm_send ----

class PldmSend : public test::PldmTest {};

TEST_F(PldmSend, HandsMessageAndTagOwnerOnUnchanged) {
    for (uint8_t tag_owner : {0, 1}) {
        endpoint.answers.push_back({0, {}});
        const Bytes message = test::hex("9f 05 16 01 02 03");
        const Outcome outcome =
            test::run([&] { return ctx.send_op(&ctx, 6, message.data(), tag_owner); });
        EXPECT_EQ(outcome.result, 0);
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(endpoint.calls.back().bytes, message);
        EXPECT_EQ(endpoint.calls.back().tag_owner, tag_owner);
        EXPECT_EQ(endpoint.calls.back().message, message.data());
    }
    EXPECT_EQ(ctx.last_command, 0x16);
    EXPECT_EQ(ctx.instance_id, 0);
    EXPECT_EQ(libc.sleeps, Sleeps());
}

TEST_F(PldmSend, APositiveResultOfTheEndpointIsSuccess) {
    endpoint.answers.push_back({17, {}});
    const Bytes message = test::hex("00 05 15");
    EXPECT_EQ(pldm_send(&ctx, 3, message.data(), 0), 0);
}

TEST_F(PldmSend, OneFailureSleepsPrintsOneRetryLineAndGivesUp) {
    ctx.completion_code = 0x77;
    const Bytes message = test::hex("00 05 15 00");
    const Outcome outcome = test::run([&] { return pldm_send(&ctx, 4, message.data(), 0); });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out,
              "do retrying to send PLDM messages 21 - 0\n"
              "failed to send PLDM messages\n");
    EXPECT_EQ(libc.sleeps, Sleeps{100000});
    EXPECT_EQ(endpoint.calls.size(), 1u);
    EXPECT_EQ(ctx.completion_code, 0x30);
    EXPECT_EQ(ctx.last_command, 0x15);
}

TEST_F(PldmSend, Command1ASucceedsAtTheTenthAttempt) {
    for (int i = 0; i < 9; i++) {
        endpoint.answers.push_back(MctpAnswer::failure());
    }
    endpoint.answers.push_back({0, {}});
    ctx.completion_code = 0x77;
    const Bytes message = test::hex("80 05 1a 00");
    const Outcome outcome = test::run([&] { return pldm_send(&ctx, 4, message.data(), 1); });
    EXPECT_EQ(outcome.result, 0);
    std::string expected;
    for (int i = 0; i < 9; i++) {
        expected += "do retrying to send PLDM messages 26 - " + std::to_string(i) + "\n";
    }
    EXPECT_EQ(outcome.out, expected);
    EXPECT_EQ(libc.sleeps, Sleeps(9, 100000));
    EXPECT_EQ(endpoint.calls.size(), 10u);
    EXPECT_EQ(ctx.completion_code, 0x77);
}

TEST_F(PldmSend, Command1AIsGivenUpAfterTenAttempts) {
    const Bytes message = test::hex("80 05 1a 00");
    const Outcome outcome = test::run([&] { return pldm_send(&ctx, 4, message.data(), 1); });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_TRUE(
        outcome.out.ends_with("do retrying to send PLDM messages 26 - 9\n"
                              "failed to send PLDM messages\n"))
        << outcome.out;
    EXPECT_EQ(libc.sleeps, Sleeps(10, 100000));
    EXPECT_EQ(endpoint.calls.size(), 10u);
    EXPECT_EQ(ctx.completion_code, 0x30);
}

TEST_F(PldmSend, TheCommandByteAloneDecidesWhateverThePldmType) {
    for (std::string_view header : {"80 00 1a", "80 02 1a", "80 3f 1a"}) {
        endpoint.calls.clear();
        const Bytes message = test::hex(header);
        EXPECT_EQ(test::run([&] { return pldm_send(&ctx, 3, message.data(), 1); }).result, -1);
        EXPECT_EQ(endpoint.calls.size(), 10u) << header;
    }
    endpoint.calls.clear();
    const Bytes other = test::hex("9a 1a 1b 1a");
    EXPECT_EQ(test::run([&] { return pldm_send(&ctx, 4, other.data(), 1); }).result, -1);
    EXPECT_EQ(endpoint.calls.size(), 1u);
}

TEST_F(PldmSend, LastCommandIsWrittenBeforeEveryAttempt) {
    std::vector<int> seen;
    endpoint.on_call = [&] {
        seen.push_back(ctx.last_command);
        ctx.last_command = 0;
    };
    const Bytes message = test::hex("80 05 1a");
    test::run([&] { return pldm_send(&ctx, 3, message.data(), 1); });
    EXPECT_EQ(seen, std::vector<int>(10, 0x1A));
}

TEST_F(PldmSend, AnEndpointPutInPlaceMeanwhileGetsTheNextAttempt) {
    test::FakeEndpoint other;
    other.answers.push_back({0, {}});
    endpoint.on_call = [&] { ctx.mctp = &other; };
    const Bytes message = test::hex("80 05 1a");
    EXPECT_EQ(test::run([&] { return pldm_send(&ctx, 3, message.data(), 1); }).result, 0);
    EXPECT_EQ(endpoint.calls.size(), 1u);
    EXPECT_EQ(other.calls.size(), 1u);
}

TEST_F(PldmSend, AnEndpointOrOperationTakenAwayMeanwhileEndsTheCall) {
    const Bytes message = test::hex("80 05 1a");
    const mctp_send_op send = endpoint.send;
    endpoint.on_call = [&] { endpoint.send = nullptr; };
    EXPECT_EQ(test::run([&] { return pldm_send(&ctx, 3, message.data(), 1); }).result, -1);
    EXPECT_EQ(endpoint.calls.size(), 1u);
    endpoint.send = send;
    endpoint.on_call = [&] { ctx.mctp = nullptr; };
    EXPECT_EQ(test::run([&] { return pldm_send(&ctx, 3, message.data(), 1); }).result, -1);
    EXPECT_EQ(endpoint.calls.size(), 2u);
}

TEST_F(PldmSend, BadArgumentsAndUnboundContextsAreRefusedWithoutAMessage) {
    const Bytes message = test::hex("80 05 1a");
    const auto refused = [&](pldm_ctx* target, uint32_t length, const uint8_t* bytes) {
        const Outcome outcome = test::run([&] { return pldm_send(target, length, bytes, 1); });
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(outcome.out, "");
    };
    refused(&ctx, 3, nullptr);
    refused(nullptr, 3, message.data());
    for (uint32_t length = 0; length < 3; length++) {
        const Bytes exact(message.begin(), message.begin() + length);
        refused(&ctx, length, exact.data());
    }
    endpoint.send = nullptr;
    refused(&ctx, 3, message.data());
    ctx.mctp = nullptr;
    refused(&ctx, 3, message.data());
    EXPECT_TRUE(endpoint.calls.empty());
    EXPECT_EQ(libc.sleeps, Sleeps());
    EXPECT_EQ(ctx.completion_code, 0);
    EXPECT_EQ(ctx.last_command, 0);
}

}  // namespace
