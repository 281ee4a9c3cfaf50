// SPDX-License-Identifier: Apache-2.0
// Admin commands against failures and malformed responses: every status, every status code, every
// truncation, every flipped bit.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "NVMeMI/admin_commands.h"

namespace {

using test::admin_response;
using test::AdminCommand;
using test::AdminRoom;
using test::Bytes;
using test::checked;
using test::command_error;
using test::completion;
using test::console;
using test::counting;
using test::hex;
using test::kDoNotRetry;
using test::kMore;
using test::MctpAnswer;
using test::Outcome;
using test::port;
using test::status_response;
using test::Texts;
using test::unsuccess;
using test::operator+;

constexpr uint8_t kAdmin = 0x90;

/// An error of the controller's that all tables of expected texts know.
constexpr uint32_t kSc2Type1 = completion(2, 1);

class NvmeAdminHostile : public test::NvmeTest, public testing::WithParamInterface<AdminCommand> {
protected:
    /// Makes the call with these as the next results of the endpoint's operations. What it may
    /// fill must be as it was unless the result is 0.
    Outcome call_for(std::initializer_list<MctpAnswer> answers) {
        start_over();
        endpoint.answers = answers;
        AdminRoom room(&ctx);
        const Outcome outcome = test::run([&] { return GetParam().call(room); });
        EXPECT_TRUE(outcome.result == 0 || room.untouched());
        EXPECT_TRUE(room.data.intact());
        EXPECT_EQ(libc.live_blocks(), 0u);
        return outcome;
    }
    Outcome call_for(const Bytes& response) { return call_for({MctpAnswer::of(response)}); }

    /// What the console must have: the command's own line, then these.
    static void expect_console(const Texts& texts) {
        Texts expected;
        if (*GetParam().logged != '\0') {
            expected.emplace_back(GetParam().logged);
        }
        expected.insert(expected.end(), texts.begin(), texts.end());
        EXPECT_EQ(console(), expected);
    }

    /// A response that was not usable: the ordinary failure, and what the log says.
    void expect_lost(const Outcome& outcome, const Texts& log) {
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(outcome.out, GetParam().lost);
        expect_console({});
        EXPECT_EQ(port().syslog, log);
    }
};

INSTANTIATE_TEST_SUITE_P(Every, NvmeAdminHostile, testing::ValuesIn(test::admin_commands()),
                         test::name_of);

// ---- Failed exchanges ----

TEST_P(NvmeAdminHostile, ThreeFailedExchangesAreAFailure) {
    for (int32_t failure : {-1, -57, INT32_MIN, 0}) {
        const MctpAnswer silence = MctpAnswer::failure(failure);
        expect_lost(call_for({silence, silence, silence}), {});
        EXPECT_EQ(endpoint.calls.size(), 3u);
        EXPECT_EQ(libc.sleeps.size(), 0u);
    }
}

TEST_P(NvmeAdminHostile, TheRequestIsTheSameInEveryAttempt) {
    const MctpAnswer silence = MctpAnswer::failure();
    EXPECT_EQ(call_for({silence, silence, MctpAnswer::of(admin_response())}).result, 0);
    ASSERT_EQ(endpoint.calls.size(), 3u);
    EXPECT_EQ(endpoint.calls[0].bytes, endpoint.calls[1].bytes);
    EXPECT_EQ(endpoint.calls[0].bytes, endpoint.calls[2].bytes);
}

TEST_P(NvmeAdminHostile, MoreThanTheRoomIsAFailure) {
    const auto room = static_cast<size_t>(GetParam().capacity);
    EXPECT_EQ(call_for(admin_response(Bytes(room - 19))).result, 0);
    expect_lost(call_for(admin_response(Bytes(room - 18))), {});
    expect_lost(call_for({MctpAnswer{INT32_MAX, admin_response()}}), {});
}

TEST_P(NvmeAdminHostile, NoContextIsAFailure) {
    start_over();
    const auto fails = [&](nvmemi_ctx* at) {
        AdminRoom room(at);
        const Outcome outcome = test::run([&] { return GetParam().call(room); });
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(outcome.out, GetParam().lost);
        EXPECT_TRUE(room.untouched());
    };
    fails(nullptr);
    nvmemi_ctx empty{};
    fails(&empty);
    empty.mctp = &endpoint;
    fails(&empty);
    EXPECT_TRUE(endpoint.calls.empty());
}

TEST_P(NvmeAdminHostile, ALengthThatARequestOperationMakesUpIsCutToTheRoom) {
    ctx.mi_request = [](nvmemi_ctx*, uint32_t, uint32_t capacity, uint8_t*, uint8_t* response) {
        std::fill_n(response, capacity, uint8_t{0});
        return INT32_MAX;
    };
    AdminRoom room(&ctx);
    EXPECT_EQ(test::run([&] { return GetParam().call(room); }).result, 0);
    EXPECT_TRUE(room.data.intact());
}

// ---- Status ----

TEST_P(NvmeAdminHostile, EveryStatusIsReportedAndReturned) {
    for (unsigned status = 2; status < 256; status++) {
        SCOPED_TRACE(status);
        const Outcome outcome =
            call_for(status_response(static_cast<uint8_t>(status), hex("05 0b 00"), kAdmin));
        EXPECT_EQ(outcome.result, static_cast<int32_t>(status));
        EXPECT_EQ(outcome.out, "");
        expect_console({status == 4
                            ? "[print_resp_error:58] Invalid parameter at request byte 0xb, bit 5\n"
                            : unsuccess(status)});
        EXPECT_EQ(endpoint.calls.size(), 1u);
    }
}

TEST_P(NvmeAdminHostile, AStatusCountsWhateverTheCompletionSays) {
    Bytes response = admin_response({}, kSc2Type1);
    response[3] = 0x02;
    const Outcome outcome = call_for(response);
    EXPECT_EQ(outcome.result, 2);
    EXPECT_EQ(outcome.out, "");
    expect_console({unsuccess(2)});
}

TEST_P(NvmeAdminHostile, OnlyByteAndBitOfTheLocationArePrinted) {
    const std::pair<const char*, const char*> locations[] = {
        {"00 00 00 00", "0, bit 0"},    {"f8 00 ff ff", "0, bit 0"}, {"ff ff ff ff", "0xff, bit 7"},
        {"02 1b 00 00", "0x1b, bit 2"}, {"07", "0, bit 7"},          {"", "0, bit 0"},
    };
    for (const auto& [word, text] : locations) {
        EXPECT_EQ(call_for(status_response(4, hex(word), kAdmin)).result, 4);
        expect_console({std::string("[print_resp_error:58] Invalid parameter at request byte ") +
                        text + "\n"});
    }
}

TEST_P(NvmeAdminHostile, MoreProcessingIsWaitedForAndThenAnswered) {
    const Bytes later = status_response(1, Bytes(3), kAdmin);
    const Outcome outcome = call_for({MctpAnswer::of(later), MctpAnswer::of(admin_response())});
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, GetParam().done);
    expect_console({});
    EXPECT_EQ(libc.sleeps, (std::vector<uint32_t>{200000}));
    EXPECT_EQ(endpoint.calls.size(), 2u);
}

TEST_P(NvmeAdminHostile, ASecondMoreProcessingIsTheAnswer) {
    const Bytes later = status_response(1, Bytes(3), kAdmin);
    const Outcome outcome = call_for({MctpAnswer::of(later), MctpAnswer::of(later)});
    EXPECT_EQ(outcome.result, 1);
    EXPECT_EQ(outcome.out, "");
    expect_console({unsuccess(1)});
}

TEST_P(NvmeAdminHostile, SilenceAfterMoreProcessingIsAFailure) {
    expect_lost(call_for(status_response(1, Bytes(3), kAdmin)), {});
    EXPECT_EQ(libc.sleeps, (std::vector<uint32_t>{200000, 200000, 200000}));
}

// ---- Completion ----

TEST_P(NvmeAdminHostile, EveryStatusCodeReturnsDword3) {
    for (unsigned code = 1; code < 256; code++) {
        const uint32_t type = code % 8;
        const uint32_t dword3 = completion(code, type) | 0x0001ABCDu;
        const Outcome outcome = call_for(admin_response({}, dword3));
        EXPECT_EQ(outcome.result, static_cast<int32_t>(dword3));
        expect_console({command_error(type, code)});
    }
}

TEST_P(NvmeAdminHostile, ACommandErrorIsPrintedAsTheCommandDoes) {
    const Outcome outcome = call_for(admin_response({}, kSc2Type1));
    EXPECT_EQ(outcome.result, 0x02040000);
    EXPECT_EQ(outcome.out, GetParam().failed);
    expect_console({"Command error (SCT:0x1, SC:0x2)\n"});
}

TEST_P(NvmeAdminHostile, DoNotRetryMakesDword3Negative) {
    const Outcome outcome = call_for(admin_response({}, kSc2Type1 | kDoNotRetry));
    EXPECT_EQ(outcome.result, static_cast<int32_t>(0x82040000u));
    EXPECT_LT(outcome.result, 0);
    EXPECT_EQ(outcome.out, GetParam().failed);
    expect_console({"Command error (SCT:0x1, SC:0x2)\n"});
}

TEST_P(NvmeAdminHostile, AStatusCodeOf0IsASuccessWhateverElseDword3Says) {
    for (uint32_t dword3 : {completion(0, 7), kDoNotRetry, 0x0001FFFFu, 0x30000000u, 0xBE01FFFFu}) {
        const Outcome outcome = call_for(admin_response({}, dword3));
        EXPECT_EQ(outcome.result, 0) << dword3;
        EXPECT_EQ(outcome.out, GetParam().done);
        expect_console({});
    }
    EXPECT_EQ(call_for(admin_response({}, kMore)).result, 0);
}

// ---- Malformed responses ----

TEST_P(NvmeAdminHostile, EveryTruncationOfASuccessIsAFailure) {
    for (size_t length = 1; length < 19; length++) {
        SCOPED_TRACE(length);
        Bytes response = admin_response();
        response.resize(length);
        const std::string end = ", response of " + std::to_string(length) + " bytes has no ";
        expect_lost(call_for(response), {length < 4 ? "nvmemi" + end + "status\n"
                                                    : "nvme admin" + end + "completion\n"});
    }
    EXPECT_EQ(call_for(admin_response()).result, 0);
}

TEST_P(NvmeAdminHostile, ATruncatedRefusalIsARefusalOnceItsStatusIsThere) {
    for (size_t length = 1; length <= 19; length++) {
        SCOPED_TRACE(length);
        Bytes response = status_response(0x20, Bytes(15), kAdmin);
        response.resize(length);
        EXPECT_EQ(call_for(response).result, length < 4 ? -1 : 0x20);
    }
}

TEST_P(NvmeAdminHostile, AnIntegrityCheckIsNoPartOfTheCompletion) {
    // 15 bytes and the check are as long as a response with its completion.
    Bytes response = admin_response();
    response.resize(15);
    expect_lost(call_for(checked(response)),
                {"nvme admin, response of 15 bytes has no completion\n"});
}

TEST_P(NvmeAdminHostile, EachFlippedBitHasTheResultThatItsFieldSays) {
    for (size_t bit = 0; bit < size_t{19} * 8; bit++) {
        SCOPED_TRACE(bit);
        Bytes response = admin_response();
        response[bit / 8] ^= static_cast<uint8_t>(1u << bit % 8);
        int32_t expected = response[3];
        if (response[3] == 1) {
            expected = -1;  // More processing, then silence.
        } else if (const uint32_t dword3 = bit >= 120 ? 1u << (bit - 120) : 0; expected == 0) {
            expected = (dword3 & 0x01FE0000u) != 0 ? static_cast<int32_t>(dword3) : 0;
        }
        EXPECT_EQ(call_for(response).result, expected);
    }
}

}  // namespace
