// SPDX-License-Identifier: Apache-2.0
// The update agent's last requests, and those at any time: activation, status, cancelling.
#include <gtest/gtest.h>

#include <cstdio>
#include <utility>

#include "pldm/update/commands_fixture.h"

namespace {

using test::FwCommandTest;
using test::kComponent;
using test::MctpAnswer;
using test::Outcome;
using test::Texts;

// ---- ActivateFirmware ----

class PldmActivateFirmware : public FwCommandTest {
protected:
    Outcome activate(std::string_view answer) { return answered(pldm_activate_firmware, answer); }

    static std::string component_with_method(const char* methods) {
        return std::string("0a 00 01 01 44 33 22 11 00 00 ") + methods +
               " 40 00 00 00 34 12 00 00 01 00";
    }
};

TEST_F(PldmActivateFirmware, SendsBitOneOfTheActivationMethodsWhereItIs) {
    const std::pair<const char*, const char*> pairs[] = {
        {"00 00", "00"}, {"02 00", "02"}, {"fd ff", "00"}, {"ff ff", "02"}};
    for (const auto& [methods, sent] : pairs) {
        set_components({component_with_method(methods)});
        ctx.pldm.instance_id = 0;
        const Outcome outcome = activate("00 05 1a 00 2c 01");
        EXPECT_EQ(outcome.result, 0);
        EXPECT_EQ(outcome.out, "activate fw completion code: 0\nactivation time: 12c\n");
        EXPECT_EQ(endpoint.messages().back(), std::string("80 05 1a ") + sent);
        EXPECT_EQ(endpoint.calls.back().capacity, 6);
    }
}

TEST_F(PldmActivateFirmware, TheFirstComponentThatIsForTheDeviceDecides) {
    set_components({"", component_with_method("02 00"), component_with_method("00 00")});
    EXPECT_EQ(activate("00 05 1a 00 00 00").result, 0);
    EXPECT_EQ(endpoint.messages(), Texts{"80 05 1a 02"});
}

TEST_F(PldmActivateFirmware, FiveCodesGiveMinusOne) {
    static uint8_t code;
    set_components({kComponent});
    ctx.pldm.transfer_op = [](pldm_ctx*, uint32_t, int32_t, uint8_t*, uint8_t* response) {
        response[3] = code;
        return -57;
    };
    for (unsigned value = 0; value < 256; value++) {
        code = static_cast<uint8_t>(value);
        const bool named =
            value == 0x80 || value == 0x84 || value == 0x85 || value == 0x8B || value == 0x8C;
        char text[64];
        std::snprintf(text, sizeof text, "activate fw completion code: %x\n", value);
        const Outcome outcome = test::run([&] { return pldm_activate_firmware(&ctx); });
        EXPECT_EQ(outcome.result, named ? -1 : -57) << value;
        EXPECT_EQ(outcome.out, text);
    }
}

TEST_F(PldmActivateFirmware, IsAskedTenTimes) {
    set_components({kComponent});
    EXPECT_EQ(test::run([&] { return pldm_activate_firmware(&ctx); }).result, -1);
    EXPECT_EQ(endpoint.calls.size(), 10u);
}

TEST_F(PldmActivateFirmware, AnAnswerThatIsCutIsRefused) {
    set_components({kComponent});
    expect_whole_answer_needed(pldm_activate_firmware, "00 05 1a 00 00 00",
                               "pldm_activate_firmware");
}

TEST_F(PldmActivateFirmware, WithoutAnyComponentNothingIsSent) {
    EXPECT_EQ(pldm_activate_firmware(&ctx), -1);
    set_components({"", ""});
    EXPECT_EQ(pldm_activate_firmware(&ctx), -1);
    EXPECT_EQ(test::port().syslog, (Texts{"pldm_activate_firmware, no component\n",
                                          "pldm_activate_firmware, no component\n"}));
    expect_unusable_contexts_refused(pldm_activate_firmware);
}

// ---- GetStatus ----

class PldmGetStatus : public FwCommandTest {};

constexpr const char* kStatus = "00 05 1b 00 03 02 01 0a 64 c8 81 02 03 04";

TEST_F(PldmGetStatus, PrintsTheState) {
    const Outcome outcome = answered(pldm_get_status, kStatus);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out,
              "state: 3\npre state: 2\naux state: 1\naux state status: 10\npercentage: 100\n"
              "reason_code : 200\nupdate option flags 129\n");
    EXPECT_EQ(endpoint.messages(), Texts{"80 05 1b"});
    EXPECT_EQ(endpoint.calls[0].capacity, 14);
}

TEST_F(PldmGetStatus, GivesTheResultOfTheTransfer) {
    expect_whole_answer_needed(pldm_get_status, kStatus, "pldm_get_status");
    fail_exchanges(-57);
    const Outcome outcome = test::run([&] { return pldm_get_status(&ctx); });
    EXPECT_EQ(outcome.result, -57);
    EXPECT_EQ(outcome.out, "");
}

TEST_F(PldmGetStatus, NeedsAUsableContext) {
    expect_unusable_contexts_refused(pldm_get_status);
}

// ---- CancelUpdateComponent, CancelUpdate ----

struct CancelCommand {
    const char* name;
    int32_t (*call)(pldm_fw_update_ctx*);
    const char* code;
    int32_t capacity;
    uint8_t state;  ///< afterwards
    uint8_t component;
    Texts machine;
};

class PldmCancel : public FwCommandTest, public ::testing::WithParamInterface<CancelCommand> {
protected:
    PldmCancel() {
        ctx.state = 4;
        ctx.component_index = 6;
    }

    std::string answer(const char* completion) const {
        return std::string("00 05 ") + GetParam().code + " " + completion;
    }
    Outcome cancel(std::initializer_list<const char*> completions) {
        for (const char* completion : completions) {
            endpoint.answers.push_back(MctpAnswer::of(test::hex(answer(completion))));
        }
        return test::run([&] { return GetParam().call(&ctx); });
    }

    void expect_untouched() {
        EXPECT_EQ(ctx.state, 4);
        EXPECT_EQ(ctx.component_index, 6);
        EXPECT_TRUE(machine.empty());
    }
    void expect_cancelled() {
        EXPECT_EQ(ctx.state, GetParam().state);
        EXPECT_EQ(ctx.component_index, GetParam().component);
        EXPECT_EQ(machine, GetParam().machine);
    }
};

TEST_P(PldmCancel, SucceedsAtOnce) {
    const Outcome outcome = cancel({"00"});
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(endpoint.messages(), Texts{std::string("80 05 ") + GetParam().code});
    EXPECT_EQ(endpoint.calls[0].capacity, GetParam().capacity);
    EXPECT_TRUE(libc.sleeps.empty());
    expect_cancelled();
}

TEST_P(PldmCancel, ABusyDeviceIsAskedAgainAfterASecond) {
    EXPECT_EQ(cancel({"86", "86", "00"}).result, 0);
    EXPECT_EQ(endpoint.calls.size(), 3u);
    EXPECT_EQ(libc.sleeps, (std::vector<uint32_t>{1000000, 1000000}));
    expect_cancelled();
}

TEST_P(PldmCancel, AThirdBusyAnswerGivesMinusOneAfterTwoOneSecondSleeps) {
    EXPECT_EQ(cancel({"86", "86", "86", "00"}).result, -1);
    EXPECT_EQ(endpoint.calls.size(), 3u);
    EXPECT_EQ(libc.sleeps, (std::vector<uint32_t>{1000000, 1000000}));
    expect_untouched();
}

TEST_P(PldmCancel, ADeviceOutsideUpdateModeGivesMinusOneAtOnce) {
    EXPECT_EQ(cancel({"80", "00"}).result, -1);
    EXPECT_EQ(endpoint.calls.size(), 1u);
    expect_untouched();
}

TEST_P(PldmCancel, AFailedExchangeGivesItsResult) {
    EXPECT_EQ(cancel({"84", "00"}).result, -1);
    EXPECT_EQ(endpoint.calls.size(), 1u);
    fail_exchanges(-57);
    EXPECT_EQ(test::run([&] { return GetParam().call(&ctx); }).result, -57);
    expect_untouched();
}

TEST_P(PldmCancel, ACodeThatIsBusyOnceAndGoneTheNextTimeIsNotSeenAgain) {
    endpoint.answers = {MctpAnswer::of(test::hex(answer("86"))), MctpAnswer::failure()};
    EXPECT_EQ(test::run([&] { return GetParam().call(&ctx); }).result, -1);
    EXPECT_EQ(endpoint.calls.size(), 2u);
    expect_untouched();
}

TEST_P(PldmCancel, NeedsAUsableContext) {
    expect_unusable_contexts_refused(GetParam().call);
}

INSTANTIATE_TEST_SUITE_P(
    Commands, PldmCancel,
    ::testing::Values(CancelCommand{"CancelUpdateComponent",
                                    pldm_cancel_update_component,
                                    "1c",
                                    4,
                                    2,
                                    7,
                                    {"state 2 component 7"}},
                      CancelCommand{"CancelUpdate", pldm_cancel_update, "1d", 13, 0, 6, {}}),
    [](const auto& tested) { return std::string(tested.param.name); });

}  // namespace
