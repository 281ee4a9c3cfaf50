// SPDX-License-Identifier: Apache-2.0
// The update agent's requests: bytes sent, texts, results, marks, and the state that follows.
#include <gtest/gtest.h>

#include <utility>

#include "pldm/update/commands_fixture.h"

namespace {

using test::Bytes;
using test::FwCommandTest;
using test::kComponent;
using test::Outcome;
using test::Texts;

/// Standard output of pldm_transfer() for a code that is not 0.
std::string refused(const char* command, const char* code) {
    return std::string("command:0x") + command + " is not successful, completion code:0x" + code +
           "\n";
}

// ---- RequestUpdate ----

class PldmRequestUpdate : public FwCommandTest {
protected:
    PldmRequestUpdate() {
        add_record(1, "22.41");
        add_record(3, "two", test::counting(0x0112));
        ctx.max_transfer_size = 0x12345678;
        ctx.component_num = 0x0203;
    }

    Outcome request(std::string_view answer) {
        return answered(pldm_request_firmware_update, answer);
    }
};

TEST_F(PldmRequestUpdate, OffersThePackageAndGoesOnInStateOne) {
    const Outcome outcome = request("00 05 10 00 34 12 01");
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(endpoint.messages(),
              Texts{"80 05 10 78 56 34 12 03 02 01 12 01 01 05 32 32 2e 34 31"});
    EXPECT_EQ(endpoint.calls[0].capacity, 7);
    EXPECT_EQ(ctx.fd_metadata_len, 0x1234);
    EXPECT_EQ(ctx.fd_will_send_pkg_data, 1);
    EXPECT_EQ(machine, Texts{"state 1 component 0"});
}

TEST_F(PldmRequestUpdate, AnAnswerThatIsTooShortIsWhyTheUpdateFailed) {
    EXPECT_EQ(request("00 05 10 00 34 12").result, -1);
    EXPECT_EQ(ctx.last_error.cause, SIDEBAND_CAUSE_MALFORMED);
    EXPECT_EQ(ctx.last_error.command, 0x10);
}

TEST_F(PldmRequestUpdate, AnyRecordButTheFirstIsRemarkedUpon) {
    ctx.record_index = 1;
    const Outcome outcome = request("00 05 10 00 00 00 00");
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out,
              "Warning. record[1] component image has something wrong\n"
              "component_image_string_type = 3\n"
              "component_image_string_len  = 3\n"
              "component_image_set_ver_string = two\n");
    EXPECT_EQ(endpoint.messages(), Texts{"80 05 10 78 56 34 12 03 02 01 12 01 03 03 74 77 6f"});
}

TEST_F(PldmRequestUpdate, ADeviceInUpdateModeIsToldToCancel) {
    endpoint.answer({"00 05 10 81", "00 05 1d 00 00 00 00 00 00 00 00 00 00"});
    ctx.state = 3;
    const Outcome outcome = test::run([&] { return pldm_request_firmware_update(&ctx); });
    EXPECT_EQ(outcome.result, -2);
    EXPECT_EQ(outcome.out, refused("10", "81") + "in update mode!\n");
    EXPECT_EQ(endpoint.messages().back(), "81 05 1d");
    EXPECT_EQ(ctx.state, 0);
    EXPECT_TRUE(machine.empty());
}

TEST_F(PldmRequestUpdate, ADeviceInUpdateModeThatDoesNotCancelGivesTheSameResult) {
    EXPECT_EQ(request("00 05 10 81").result, -2);
    EXPECT_EQ(endpoint.calls.size(), 2u);
}

TEST_F(PldmRequestUpdate, ADeviceUnableToInitiateLeavesMark56) {
    const Outcome outcome = request("00 05 10 8a");
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.out, refused("10", "8a") + "unable initiate update\n");
    EXPECT_EQ(ctx.pldm.completion_code, 0x56);
    EXPECT_TRUE(machine.empty());
}

TEST_F(PldmRequestUpdate, ADeviceThatWantsToBeAskedAgainGetsASecondAndTheUnchangedState) {
    const Outcome outcome = request("00 05 10 8e");
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(libc.sleeps, (std::vector<uint32_t>{1000000}));
    EXPECT_EQ(machine, Texts{"state 0 component 0"});
}

TEST_F(PldmRequestUpdate, AnotherCodeAndAFailedExchangeGiveTheResultOfTheTransfer) {
    EXPECT_EQ(request("00 05 10 84").result, -1);
    EXPECT_EQ(ctx.pldm.completion_code, 0x84);
    fail_exchanges(-57);
    EXPECT_EQ(test::run([&] { return pldm_request_firmware_update(&ctx); }).result, -57);
    EXPECT_TRUE(machine.empty());
}

TEST_F(PldmRequestUpdate, AnAnswerThatDidNotComeHasNoCode) {
    endpoint.answers.push_back({-1, test::hex("00 05 10 8a")});
    EXPECT_EQ(test::run([&] { return pldm_request_firmware_update(&ctx); }).result, -1);
    EXPECT_EQ(ctx.pldm.completion_code, PLDM_CC_RETRIES_EXHAUSTED);
}

TEST_F(PldmRequestUpdate, AnAnswerThatIsCutIsRefused) {
    expect_whole_answer_needed(pldm_request_firmware_update, "00 05 10 00 34 12 01",
                               "pldm_request_firmware_update");
    EXPECT_EQ(ctx.fd_metadata_len, 0);
}

TEST_F(PldmRequestUpdate, ARecordThatIsNotThereIsNotAskedFor) {
    for (uint8_t index : {2, 255}) {
        ctx.record_index = index;
        test::port().syslog.clear();
        EXPECT_EQ(pldm_request_firmware_update(&ctx), -1);
        EXPECT_EQ(test::port().syslog, Texts{"pldm_request_firmware_update, no device record " +
                                             std::to_string(index) + "\n"});
    }
    EXPECT_TRUE(endpoint.calls.empty());
    expect_unusable_contexts_refused(pldm_request_firmware_update);
}

TEST_F(PldmRequestUpdate, WithoutRecordsOrTheNameOfOneNothingIsAskedFor) {
    pldm_device_record* const records = std::exchange(ctx.records, nullptr);
    EXPECT_EQ(pldm_request_firmware_update(&ctx), -1);
    ctx.records = records;
    char* const name = std::exchange(ctx.records[0].image_version_string, nullptr);
    EXPECT_EQ(pldm_request_firmware_update(&ctx), -1);
    ctx.records[0].image_version_string = name;
    const std::string line = "pldm_request_firmware_update, no device record 0\n";
    EXPECT_EQ(test::port().syslog, (Texts{line, line}));
    EXPECT_TRUE(endpoint.calls.empty());
    EXPECT_EQ(request("00 05 10 00 00 00 00").result, 0);
}

TEST_F(PldmRequestUpdate, TheLongestStringGoesOutWhole) {
    add_record(1, std::string(255, 'x'));
    ctx.record_index = 2;
    EXPECT_EQ(request("00 05 10 00 00 00 00").result, 0);
    EXPECT_EQ(endpoint.calls[0].bytes.size(), 14u + 255);
    EXPECT_EQ(endpoint.calls[0].bytes[13], 0xFF);
    EXPECT_EQ(endpoint.calls[0].bytes.back(), 'x');
}

// ---- GetDeviceMetaData ----

class PldmGetDeviceMetaData : public FwCommandTest {
protected:
    Outcome get(uint16_t length = 4) {
        return test::run([&] { return pldm_get_device_metadata(&ctx, length); });
    }
};

TEST_F(PldmGetDeviceMetaData, FollowsTheHandlesToTheEnd) {
    endpoint.answer({"00 05 12 00 44 33 22 11 01 a0 a1", "00 05 12 00 88 77 66 55 02 a2 a3",
                     "00 05 12 00 00 00 00 00 04"});
    const Outcome outcome = get();
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(endpoint.messages(), (Texts{"80 05 12 00 00 00 00 01", "81 05 12 44 33 22 11 00",
                                          "82 05 12 88 77 66 55 00"}));
    EXPECT_EQ(endpoint.calls[0].capacity, 13);
}

TEST_F(PldmGetDeviceMetaData, OnePartMayBeAll) {
    endpoint.answer({"00 05 12 00 01 00 00 00 05 a0"});
    EXPECT_EQ(get(0xFFFF).result, 0);
    EXPECT_EQ(endpoint.calls.size(), 1u);
    EXPECT_EQ(endpoint.calls[0].capacity, 0xFFFF + 9);
}

TEST_F(PldmGetDeviceMetaData, GivesUpAfterSevenRounds) {
    for (int i = 0; i < 8; i++) {
        endpoint.answer({"00 05 12 00 01 00 00 00 02"});
    }
    const Outcome outcome = get();
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, "Get Device Metadata Timeout\n");
    EXPECT_EQ(endpoint.calls.size(), 7u);
}

TEST_F(PldmGetDeviceMetaData, AnyRefusalEndsItWithSuccess) {
    const std::pair<const char*, const char*> refusals[] = {
        {"8d", ""},
        {"84", ""},
        {"90", "invlaid data transfer handle\n"},
        {"91", "invlaid transfer operation flag\n"},
        {"01", ""}};
    for (const auto& [code, text] : refusals) {
        endpoint.calls.clear();
        endpoint.answer({std::string("00 05 12 ") + code});
        const Outcome outcome = get();
        EXPECT_EQ(outcome.result, 0);
        EXPECT_EQ(outcome.out, refused("12", *code == '0' ? code + 1 : code) + text);
        EXPECT_EQ(endpoint.calls.size(), 1u);
    }
    EXPECT_EQ(get().result, 0);  // no answer at all
}

TEST_F(PldmGetDeviceMetaData, ACodeThatWasPassedThroughEndsItToo) {
    ctx.pldm.transfer_op = [](pldm_ctx*, uint32_t, int32_t, uint8_t*, uint8_t* response) {
        response[3] = 0x90;
        return 0;
    };
    EXPECT_EQ(get().out, "invlaid data transfer handle\n");
}

/// An operation that passes a completion code through with all of an answer that has more to come.
template <uint8_t code>
int32_t pass_through(pldm_ctx* ctx, uint32_t /*length*/, int32_t /*capacity*/, uint8_t* /*request*/,
                     uint8_t* response) {
    const Bytes answer = {0x00, 0x05, 0x12, code, 0x01, 0x00, 0x00, 0x00, 0x02};
    std::copy(answer.begin(), answer.end(), response);
    ++ctx->tid;  // counts the exchanges
    return 0;
}

TEST_F(PldmGetDeviceMetaData, TheCodesThatMeanThatThereIsNoMoreEndIt) {
    for (const pldm_transfer_op passes :
         {pass_through<0x8D>, pass_through<0x84>, pass_through<0x90>, pass_through<0x91>}) {
        ctx.pldm.tid = 0;
        ctx.pldm.transfer_op = passes;
        EXPECT_EQ(get().out.find("Timeout"), std::string::npos);
        EXPECT_EQ(ctx.pldm.tid, 1);
    }
    ctx.pldm.tid = 0;
    ctx.pldm.transfer_op = pass_through<0x01>;
    EXPECT_EQ(get().out, "Get Device Metadata Timeout\n") << "any other code does not";
    EXPECT_EQ(ctx.pldm.tid, 7);
}

TEST_F(PldmGetDeviceMetaData, AnAnswerWithoutItsFlagEndsIt) {
    endpoint.answer({"00 05 12 00 01 00 00 00"});
    EXPECT_EQ(get().result, 0);
    EXPECT_EQ(endpoint.calls.size(), 1u);
    EXPECT_EQ(test::port().syslog,
              Texts{"pldm_get_device_metadata, response of 8 bytes is too short\n"});
}

TEST_F(PldmGetDeviceMetaData, WithoutMemoryOrAContextNothingIsSent) {
    libc.fail_allocation(1);
    EXPECT_EQ(pldm_get_device_metadata(&ctx, 4), -1);
    expect_unusable_contexts_refused(
        [](pldm_fw_update_ctx* c) { return pldm_get_device_metadata(c, 4); });
}

// ---- UpdateComponent ----

class PldmUpdateComponent : public FwCommandTest {
protected:
    static int32_t first(pldm_fw_update_ctx* ctx) { return pldm_update_component_table(ctx, 0); }
    Outcome update(std::string_view answer) { return answered(first, answer); }

    /// UpdateOptionFlags of the last request, as hex.
    std::string options() const {
        const Bytes& bytes = endpoint.calls.back().bytes;
        return test::to_hex({bytes.data() + 16, 4});
    }
};

constexpr const char* kAccepted = "00 05 14 00 00 00 00 00 00 00 2c 01";
constexpr const char* kComponentText =
    "classification : a,\nidentifier : 101,\nclassification_index : 7,\n"
    "component_comparison_stamp : 11223344,\ncomponent_size : 1234,\n";

TEST_F(PldmUpdateComponent, OffersTheComponentAndGoesOnInStateThree) {
    set_components({kComponent});
    ctx.update_list[0].classification_index = 0x107;  // one byte of it fits
    const Outcome outcome = update(kAccepted);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.out, kComponentText);
    EXPECT_EQ(endpoint.messages(),
              Texts{"80 05 14 0a 00 01 01 07 44 33 22 11 34 12 00 00 00 00 00 00 01 02 76 32"});
    EXPECT_EQ(endpoint.calls[0].capacity, 12);
    EXPECT_EQ(ctx.req_fw_data_wait, 300);
    EXPECT_EQ(machine, Texts{"state 3 component 0"});
}

TEST_F(PldmUpdateComponent, AWaitOfZeroBecomesNinetySeconds) {
    set_components({kComponent});
    EXPECT_EQ(update("00 05 14 00 00 00 00 00 00 00 00 00").result, 0);
    EXPECT_EQ(ctx.req_fw_data_wait, 90);
}

TEST_F(PldmUpdateComponent, OnlyBitZeroOfTheOptionsIsPassedOn) {
    const std::string head = "0a 00 01 01 44 33 22 11 ";
    const std::string tail = " 00 00 40 00 00 00 34 12 00 00 01 00";
    const std::pair<const char*, const char*> pairs[] = {{"ff ff", "01 00 00 00"},
                                                         {"fe ff", "00 00 00 00"}};
    for (const auto& [options_of_package, sent] : pairs) {
        set_components({head + options_of_package + tail});
        EXPECT_EQ(update(kAccepted).result, 0);
        EXPECT_EQ(options(), sent);
    }
}

TEST_F(PldmUpdateComponent, WithTheForceFlagSetAForcedUpdateIsAlwaysAskedFor) {
    set_components({kComponent});
    for (int flag : {1, -1, 4}) {
        pldm_force_update_flag = flag;
        EXPECT_EQ(update(kAccepted).result, 0);
        EXPECT_EQ(options(), "01 00 00 00");
    }
    pldm_force_update_flag = 0;
    EXPECT_EQ(update(kAccepted).result, 0);
    EXPECT_EQ(options(), "00 00 00 00");
}

TEST_F(PldmUpdateComponent, ADeviceOutsideUpdateModeGivesMinusOneWithoutTheMark) {
    set_components({kComponent});
    ctx.pldm.transfer_op = [](pldm_ctx*, uint32_t, int32_t, uint8_t*, uint8_t* response) {
        response[3] = 0x80;
        return -57;
    };
    EXPECT_EQ(test::run([&] { return first(&ctx); }).result, -1);
    EXPECT_EQ(ctx.pldm.completion_code, 0);
    EXPECT_TRUE(machine.empty());
}

TEST_F(PldmUpdateComponent, AFailedExchangeLeavesMark14AndGivesItsResult) {
    set_components({kComponent});
    EXPECT_EQ(update("00 05 14 84").result, -1);
    EXPECT_EQ(ctx.pldm.completion_code, 0x14);
    ctx.pldm.completion_code = 0;
    fail_exchanges(-57);
    EXPECT_EQ(test::run([&] { return first(&ctx); }).result, -57);
    EXPECT_EQ(ctx.pldm.completion_code, 0x14);
    EXPECT_TRUE(machine.empty());
}

TEST_F(PldmUpdateComponent, ARefusalIsExplained) {
    set_components({kComponent, kComponent, kComponent});
    endpoint.answer({"00 05 14 00 01 0b 00 00 00 00 00 00"});
    const Outcome outcome = test::run([&] { return pldm_update_component_table(&ctx, 2); });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_TRUE(
        outcome.out.ends_with("component_size : 1234,\n"
                              "Component will no be updated, response code: 0xb,\n"
                              "Give up component image index = 2\n"));
    EXPECT_EQ(ctx.pldm.last_error.cause, SIDEBAND_CAUSE_REFUSED);
    EXPECT_EQ(ctx.req_fw_data_wait, 0);
    EXPECT_TRUE(machine.empty());
}

TEST_F(PldmUpdateComponent, AnUnknownResponseIsARefusal) {
    set_components({kComponent});
    EXPECT_EQ(update("00 05 14 00 02 00 00 00 00 00 00 00").result, -1);
    EXPECT_EQ(test::port().syslog,
              Texts{"pldm_update_component_table, unknown compatibility response 0x2\n"});
    EXPECT_TRUE(machine.empty());
}

TEST_F(PldmUpdateComponent, AnAnswerThatIsCutIsRefusedWithTheMark) {
    set_components({kComponent});
    expect_whole_answer_needed(first, kAccepted, "pldm_update_component_table");
    EXPECT_EQ(ctx.pldm.completion_code, 0x14);
}

TEST_F(PldmUpdateComponent, AnElementWithoutAComponentIsRefused) {
    set_components({"", kComponent});
    for (uint8_t index : {0, 2, 255}) {
        test::port().syslog.clear();
        EXPECT_EQ(pldm_update_component_table(&ctx, index), -1);
        EXPECT_EQ(test::port().syslog, Texts{"pldm_update_component_table, no component " +
                                             std::to_string(index) + "\n"});
    }
    pldm_fw_update_ctx empty = ctx;
    empty.update_list = nullptr;
    EXPECT_EQ(pldm_update_component_table(&empty, 1), -1);
    EXPECT_TRUE(endpoint.calls.empty());
    expect_unusable_contexts_refused(first);
}

// ---- GetMetaData ----

class PldmGetMetaData : public FwCommandTest {};

TEST_F(PldmGetMetaData, AsksForTheFirstHandleAndDeliversTheResponse) {
    endpoint.answer({"00 05 19 00 01 02 03"});
    uint8_t room[6] = {};
    EXPECT_EQ(test::run([&] { return pldm_get_meta_data(&ctx, room, 6); }).result, 0);
    EXPECT_EQ(endpoint.messages(), Texts{"80 05 19 00 00 00 00 00"});
    EXPECT_EQ(endpoint.calls[0].capacity, 6);
    EXPECT_EQ(test::to_hex(room), "00 05 19 00 01 02");
}

TEST_F(PldmGetMetaData, GivesTheNegativeResultOfTheTransfer) {
    uint8_t room[6] = {};
    for (const auto& [result, expected] : {std::pair(-57, -57), std::pair(5, 0)}) {
        fail_exchanges(result);
        EXPECT_EQ(pldm_get_meta_data(&ctx, room, 6), expected);
    }
    EXPECT_EQ(pldm_get_meta_data(&ctx, nullptr, 6), -1);
    EXPECT_EQ(pldm_get_meta_data(nullptr, room, 6), -1);
    ctx.pldm.transfer_op = nullptr;
    EXPECT_EQ(pldm_get_meta_data(&ctx, room, 6), -1);
}

}  // namespace
