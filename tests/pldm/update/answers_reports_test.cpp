// SPDX-License-Identifier: Apache-2.0
// What a device reports at the end of each step, the agent's acknowledgement and what follows.
#include <gtest/gtest.h>

#include <cstdio>
#include <utility>

#include "pldm/update/agent_fixture.h"

namespace {

using test::Bytes;
using test::FwAnswerTest;
using test::MctpAnswer;
using test::Outcome;
using test::Texts;
using test::operator+;

struct Report {
    const char* name;
    int32_t (*call)(pldm_fw_update_ctx*, const uint8_t*);
    uint8_t code;
    uint8_t state;        ///< in which it is expected
    const char* print;    ///< its first line for a result
    const char* failure;  ///< its line for an error
    uint8_t mark;
};

class PldmReport : public FwAnswerTest, public ::testing::WithParamInterface<Report> {
protected:
    PldmReport() {
        ctx.state = GetParam().state;
        ctx.component_index = 2;
    }

    std::string request(const char* result) const {
        return "9f 05 " + test::to_hex(Bytes{GetParam().code}) + " " + result + " 34 12";
    }
    std::string line(const char* format, unsigned value) const {
        char text[80];
        std::snprintf(text, sizeof text, format, value);
        return text;
    }
    void expect_cancelled(const std::string& cancel_request) const {
        EXPECT_EQ(endpoint.messages().back(), cancel_request);
        EXPECT_EQ(ctx.state, 2);
        EXPECT_EQ(ctx.component_index, 3);
        EXPECT_EQ(machine, Texts{"state 2 component 3"});
    }
};

TEST_P(PldmReport, AnErrorIsAcknowledgedMarkedAndTheComponentCancelled) {
    for (const char* result : {"02", "0a", "ff"}) {
        ctx.component_index = 2;
        ctx.pldm.instance_id = 0;
        ctx.state = GetParam().state;
        machine.clear();
        accept_sends();
        endpoint.answer({"00 05 1c 00"});
        const unsigned value = test::hex(result)[0];
        const Outcome outcome = asked_without_answer(GetParam().call, request(result));
        EXPECT_EQ(outcome.result, -1);
        EXPECT_EQ(outcome.out, line(GetParam().print, value) + line(GetParam().failure, value));
        EXPECT_EQ(endpoint.messages()[endpoint.calls.size() - 2],
                  "1f 05 " + test::to_hex(Bytes{GetParam().code}) + " 00");
        EXPECT_EQ(ctx.pldm.completion_code, GetParam().mark);
        expect_cancelled("80 05 1c");
    }
}

TEST_P(PldmReport, AnAnswerThatCannotBeSentCountsAsResult255) {
    endpoint.answers = {MctpAnswer::failure(), MctpAnswer::of(test::hex("00 05 1c 00"))};
    const Outcome outcome = asked_without_answer(GetParam().call, request("00"));
    EXPECT_EQ(outcome.result, -1);
    EXPECT_TRUE(outcome.out.ends_with(line(GetParam().failure, 255)));
    EXPECT_EQ(ctx.pldm.completion_code, GetParam().mark);
    expect_cancelled("80 05 1c");
}

TEST_P(PldmReport, ACancelThatFailsGivesTheSameResultAndLeavesTheState) {
    accept_sends();
    EXPECT_EQ(asked_without_answer(GetParam().call, request("02")).result, -1);
    EXPECT_EQ(ctx.state, GetParam().state);
    EXPECT_EQ(ctx.component_index, 2);
    EXPECT_EQ(ctx.pldm.completion_code, GetParam().mark);
    EXPECT_TRUE(machine.empty());
}

TEST_P(PldmReport, ACancelThatIsRefusedLeavesTheMarkWhateverTheCode) {
    for (unsigned code = 1; code < 256; code++) {
        const auto byte = static_cast<uint8_t>(code);
        endpoint.answers.assign(4, MctpAnswer::of(test::hex("00 05 1c") + Bytes{byte}));
        endpoint.answers.front() = {0, {}};  // the acknowledgement
        EXPECT_EQ(asked_without_answer(GetParam().call, request("02")).result, -1);
        EXPECT_EQ(ctx.pldm.completion_code, GetParam().mark) << code;
        EXPECT_EQ(ctx.component_index, 2);
    }
    EXPECT_TRUE(machine.empty());
}

TEST_P(PldmReport, ADeviceThatIsBusyBeforeItCancelsLeavesTheMark) {
    accept_sends();
    endpoint.answer({"00 05 1c 86", "00 05 1c 86", "00 05 1c 00"});
    EXPECT_EQ(asked_without_answer(GetParam().call, request("02")).result, -1);
    EXPECT_EQ(ctx.pldm.completion_code, GetParam().mark);
    EXPECT_EQ(machine, Texts{"state 2 component 3"});
}

TEST_P(PldmReport, WithoutATransferOperationTheMarkIsThereAllTheSame) {
    accept_sends();
    ctx.pldm.transfer_op = nullptr;
    EXPECT_EQ(asked_without_answer(GetParam().call, request("02")).result, -1);
    EXPECT_EQ(ctx.pldm.completion_code, GetParam().mark);
    EXPECT_TRUE(machine.empty());
}

TEST_P(PldmReport, UnusableArgumentsAreRefused) {
    expect_unusable_arguments_refused(GetParam().call);
}

INSTANTIATE_TEST_SUITE_P(
    Reports, PldmReport,
    ::testing::Values(Report{"TransferComplete", pldm_transfer_complete, 0x16, 3,
                             "TransferResult: 0x%x\n", "transfer complete with error %d\n", 0x57},
                      Report{"VerifyComplete", pldm_verify_complete, 0x17, 4, "VerifyResult: %x\n",
                             "verify complete with error %d\n", 0x58},
                      Report{"ApplyComplete", pldm_apply_complete, 0x18, 5,
                             "AppleResult: 0x%x - (34,12)\n", "Apply complete with error %d\n",
                             0x59}),
    [](const auto& tested) { return std::string(tested.param.name); });

class PldmSuccessReport : public FwAnswerTest {
protected:
    void expect_success(Call call, std::string_view request, const std::string& text,
                        const char* answer, uint8_t state) {
        const Outcome outcome = asked(call, request);
        EXPECT_EQ(outcome.result, 0);
        EXPECT_EQ(outcome.out, text);
        EXPECT_EQ(sent(), answer);
        EXPECT_EQ(ctx.state, state);
        EXPECT_TRUE(machine.empty());
    }
};

TEST_F(PldmSuccessReport, OfTheTransferGoesToStateFour) {
    ctx.state = 3;
    expect_success(pldm_transfer_complete, "9f 05 16 00", "TransferResult: 0x0\n", "1f 05 16 00",
                   4);
}

TEST_F(PldmSuccessReport, OfTheTransferInAnotherStateIsReportedAndAnsweredAllTheSame) {
    ctx.state = 5;
    expect_success(pldm_transfer_complete, "80 05 16 00",
                   "TransferResult: 0x0\n"
                   "pldm_transfer_complete command not expected, state: 0x5\n",
                   "00 05 16 00", 4);
}

TEST_F(PldmSuccessReport, OfTheVerificationGoesToStateFive) {
    ctx.state = 4;
    expect_success(pldm_verify_complete, "81 05 17 00", "VerifyResult: 0\n", "01 05 17 00", 5);
}

TEST_F(PldmSuccessReport, ResultOneIsOneOfAnApplicationOnly) {
    ctx.state = 3;
    EXPECT_EQ(asked(pldm_transfer_complete, "80 05 16 01").result, -1);
    EXPECT_EQ(asked(pldm_verify_complete, "80 05 17 01").result, -1);
    EXPECT_EQ(asked(pldm_apply_complete, "80 05 18 01 00 00").result, 0);
}

class PldmApplyComplete : public FwAnswerTest {};

TEST_F(PldmApplyComplete, SuccessWithAndWithoutModificationGoesOnWithTheNextComponent) {
    ctx.state = 5;
    ctx.component_index = 1;
    Outcome outcome = asked(pldm_apply_complete, "82 05 18 00 00 00");
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out,
              "AppleResult: 0x0 - (0,0)\nApply complete success ctx->component_index =1\n");
    EXPECT_EQ(sent(), "02 05 18 00");
    outcome = asked(pldm_apply_complete, "82 05 18 01 0a 0b");
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out,
              "AppleResult: 0x1 - (a,b)\nApply complete success ctx->component_index =2\n");
    EXPECT_EQ(machine, (Texts{"state 5 component 2", "state 5 component 3"}));
}

TEST_F(PldmApplyComplete, RequestsNoLongerThanTheirFieldsAreNotReadBehindTheirEnd) {
    const std::pair<FwAnswerTest::Call, const char*> requests[] = {
        {pldm_transfer_complete, "80 05 16 00"},
        {pldm_verify_complete, "80 05 17 00"},
        {pldm_apply_complete, "80 05 18 00 00 00"},
        {pldm_get_package_data, "80 05 11 00 00 00 00 01"}};
    for (const auto& [call, request] : requests) {
        const Bytes exact = test::hex(request);
        const auto answer = call;
        accept_sends();
        const int32_t result = test::run([&] { return answer(&ctx, exact.data()); }).result;
        EXPECT_EQ(result, call == pldm_get_package_data ? -1 : 0);
    }
}

}  // namespace
