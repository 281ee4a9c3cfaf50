// SPDX-License-Identifier: Apache-2.0
// The device fails at each step of an update in turn: result, mark and state afterwards, over both
// bindings, and that nothing is left open, locked or lost.
#include <gtest/gtest.h>

#include <ostream>
#include <tuple>

#include "support/errors.h"
#include "update_fixture.h"

namespace {

using board_test::Binding;
using board_test::card_package;
using board_test::UpdateReport;
using board_test::UpdateRun;
using sim::PldmFirmwareFault;
using sim::PldmFirmwareState;
using Kind = sim::PldmFirmwareFault::Kind;

constexpr uint32_t kAlways = 0;
constexpr uint8_t kRetriesExhausted = PLDM_CC_RETRIES_EXHAUSTED;

/// What the card runs afterwards.
enum class Runs { kOld, kBoth, kSecondOnly };

struct Scenario {
    const char* name;
    std::vector<PldmFirmwareFault> faults;
    // What is expected; as written here, a whole update.
    int32_t update = 0;
    uint8_t mark = 0;
    uint8_t state = 6;
    PldmFirmwareState device = PldmFirmwareState::kIdle;
    Runs runs = Runs::kBoth;
    std::string firmware_keys{};  ///< further keys of the device, each with a comma in front
};

void PrintTo(const Scenario& scenario, std::ostream* out) {
    *out << scenario.name;
}

PldmFirmwareFault code(uint8_t command, uint8_t value, uint32_t at = 1, uint32_t count = 1) {
    return {Kind::kCompletionCode, command, at, count, value, 0, 0};
}

PldmFirmwareFault silent(uint8_t command, uint32_t at = 1, uint32_t count = 1) {
    return {Kind::kNoAnswer, command, at, count, 0, 0, 0};
}

PldmFirmwareFault other(uint8_t command, uint8_t value, uint32_t at = 1) {
    return {Kind::kOtherCommand, command, at, 1, value, 0, 0};
}

PldmFirmwareFault cut(uint8_t command, uint32_t length, uint32_t at = 1) {
    return {Kind::kTruncate, command, at, 1, 0, 0, length};
}

PldmFirmwareFault refuse(uint8_t command, uint8_t value, uint32_t at = 1, uint32_t count = 1) {
    return {Kind::kRefuseComponent, command, at, count, value, 0, 0};
}

PldmFirmwareFault report(uint8_t command, uint8_t value) {
    return {Kind::kResult, command, 1, 1, value, 0, 0};
}

PldmFirmwareFault stall(uint8_t command, uint32_t at = 1) {
    return {Kind::kStall, command, at, 1, 0, 0, 0};
}

PldmFirmwareFault dead(uint8_t command, uint32_t at = 1) {
    return {Kind::kDead, command, at, 1, 0, 0, 0};
}

PldmFirmwareFault reset(uint8_t command, uint32_t at = 1) {
    return {Kind::kReset, command, at, 1, 0, 0, 0};
}

PldmFirmwareFault ask(uint32_t offset, uint32_t length) {
    return {Kind::kAsk, sim::kFwRequestFirmwareData, 1, 1, 0, offset, length};
}

PldmFirmwareFault instead(uint8_t command, uint8_t value) {
    return {Kind::kSendInstead, command, 1, 1, value, 0, 0};
}

PldmFirmwareFault endless(uint8_t command) {
    return {Kind::kEndless, command, 1, kAlways, 0, 0, 0};
}

/// Where an update ends, as the scenarios need it.
constexpr auto kIdle = PldmFirmwareState::kIdle;
constexpr auto kLearn = PldmFirmwareState::kLearnComponents;
constexpr auto kReady = PldmFirmwareState::kReadyXfer;
constexpr auto kDownload = PldmFirmwareState::kDownload;
constexpr auto kVerify = PldmFirmwareState::kVerify;

const std::string kFetches = R"(, "get_package_data": true)";
const std::string kMetadata = R"(, "metadata": "00010203040506070809", "metadata_part_size": 4)";

// The check asks for the identifiers once, so that the update's question is the second.
const Scenario kInventory[] = {
    {"IdentifiersRefused", {code(0x01, 0x02, 2)}, -1, 0x54, 0, kIdle, Runs::kOld},
    {"IdentifiersUnanswered", {silent(0x01, 2)}, -1, 0x54, 0, kIdle, Runs::kOld},
    {"IdentifiersCut", {cut(0x01, 3, 2)}, -1, 0x54, 0, kIdle, Runs::kOld},
    {"IdentifiersCutInADescriptor", {cut(0x01, 14, 2)}, -1, 0x54, 0, kIdle, Runs::kOld},
    {"IdentifiersOfAnotherCommand", {other(0x01, 0x02, 2)}},
    {"ParametersRefused", {code(0x02, 0x02)}, -1, 0x55, 0, kIdle, Runs::kOld},
    {"ParametersUnanswered", {silent(0x02)}, -1, 0x55, 0, kIdle, Runs::kOld},
    {"ParametersCut", {cut(0x02, 12)}, -1, 0x55, 0, kIdle, Runs::kOld},
    {"ParametersOfAnotherCommand", {other(0x02, 0x01)}, -1, 0x55, 0, kIdle, Runs::kOld},
    {"ParametersWithoutComponents",
     {},
     0,
     0,
     1,
     kLearn,
     Runs::kOld,
     R"(, "parameters_hex": "000000000000010300004f4c44")"},
    {"ParametersCountLies",
     {},
     0,
     0,
     1,
     kLearn,
     Runs::kOld,
     R"(, "parameters_hex": "00000000ffff010300004f4c44")"},
};

const Scenario kBeginning[] = {
    {"UpdateRefused", {code(0x10, 0x02)}, -1, 0x02, 0, kIdle, Runs::kOld},
    {"UnableToInitiate", {code(0x10, 0x8A)}, -1, 0x56, 0, kIdle, Runs::kOld},
    // The cancellation is answered "not in update mode", once by each of the two that send it.
    {"InUpdateMode", {code(0x10, 0x81)}, -1, 0x80, 0, kIdle, Runs::kOld},
    // A device that says so has not begun, and is not asked again by itself.
    {"RetryRequestUpdate", {code(0x10, 0x8E)}, 0, 0x8E, 0, kIdle, Runs::kOld},
    {"RequestUpdateUnanswered", {silent(0x10)}, -1, kRetriesExhausted, 0, kIdle, Runs::kOld},
    {"RequestUpdateCut", {cut(0x10, 5)}, -1, 0, 0, kLearn, Runs::kOld},
    {"PackageDataWrongHandle",
     {{Kind::kHandle, 0x11, 2, 1, 0x1234, 0, 0}},
     0,
     0,
     6,
     kIdle,
     Runs::kBoth,
     kFetches},
    {"PackageDataWrongFlag",
     {{Kind::kFlag, 0x11, 1, 1, 0, 0, 0}},
     0,
     0,
     6,
     kIdle,
     Runs::kBoth,
     kFetches},
    {"PackageDataNeverFetched", {stall(0x11)}, 0, 0x5A, 3, kIdle, Runs::kOld, kFetches},
    {"MetadataRefused", {code(0x12, 0x8D)}, 0, 0x8D, 6, kIdle, Runs::kBoth, kMetadata},
    {"MetadataUnanswered", {silent(0x12)}, 0, kRetriesExhausted, 6, kIdle, Runs::kBoth, kMetadata},
    {"MetadataCut", {cut(0x12, 6)}, 0, 0, 6, kIdle, Runs::kBoth, kMetadata},
    {"MetadataWithoutEnd", {endless(0x12)}, 0, 0, 6, kIdle, Runs::kBoth, kMetadata},
    {"MetadataLengthLies",
     {},
     0,
     0,
     6,
     kIdle,
     Runs::kBoth,
     kMetadata + R"(, "claimed_metadata_length": 65535)"},
};

const Scenario kComponents[] = {
    {"TableRefused", {code(0x13, 0x80, 1, kAlways)}, 0, 0x80, 1, kLearn, Runs::kOld},
    {"TableUnanswered", {silent(0x13, 1, kAlways)}, 0, 0x13, 1, kLearn, Runs::kOld},
    // The device waits for the end of the table: both components are refused, and the activation.
    {"TableEndUnanswered", {silent(0x13, 2)}, 0, 0x84, 6, kLearn, Runs::kOld},
    {"TableEntryNotLiked", {refuse(0x13, 0x06)}},
    {"ComponentRefused", {refuse(0x14, 0x06)}, 0, 0, 6, kIdle, Runs::kSecondOnly},
    {"BothComponentsRefused", {refuse(0x14, 0x06, 1, kAlways)}, 0, 0x8B, 6, kReady, Runs::kOld},
    // A component that the device knows of and was not offered: it does not activate.
    {"ComponentNotInUpdateMode", {code(0x14, 0x80)}, 0, 0x85, 6, kReady, Runs::kOld},
    {"ComponentUnanswered", {silent(0x14)}, 0, 0x85, 6, kReady, Runs::kOld},
    {"BothComponentsUnanswered", {silent(0x14, 1, kAlways)}, 0, 0x85, 6, kReady, Runs::kOld},
    // The device has begun and waits for data that it does not get.
    {"ComponentAnswerCut", {cut(0x14, 8)}, 0, 0x84, 6, kDownload, Runs::kOld},
};

// A device that nobody hears for two minutes gives its update up.
const Scenario kTransfer[] = {
    {"NoPiece", {stall(0x15)}, 0, 0x5A, 3, kIdle, Runs::kOld},
    {"OnePieceOnly", {stall(0x15, 2)}, 0, 0x5A, 3, kIdle, Runs::kOld},
    {"DeadAtTheFirstPiece", {dead(0x15)}, 0, 0x5A, 3, kIdle, Runs::kOld},
    {"ResetAtTheSecondPiece", {reset(0x15, 2)}, 0, 0x5A, 3, kIdle, Runs::kOld},
    {"PieceBehindTheFile", {ask(0x7FFFFFFF, 56)}, 0, 0, 3, kDownload, Runs::kOld},
    {"PieceBeyond32Bits", {ask(0xFFFFFFF0, 56)}, 0, 0, 3, kDownload, Runs::kOld},
    {"PieceTooShort", {ask(0, 31)}, 0, 0, 3, kDownload, Runs::kOld},
    {"PieceWithoutLength", {ask(0, 0)}, 0, 0, 3, kDownload, Runs::kOld},
    {"PieceTooLong", {ask(0, 129)}, 0, 0, 3, kDownload, Runs::kOld},
    {"PieceOutOfItsTurn", {ask(150, 56)}},
    {"PieceTwice", {{Kind::kRepeat, 0x15, 1, 1, 0, 0, 0}}},
    {"PieceRequestCut", {cut(0x15, 5)}, 0, 0, 3, kDownload, Runs::kOld},
    {"DataWithoutEnd", {endless(0x15)}, 0, 0x5A, 3, kDownload, Runs::kOld},
    {"TransferFailed", {report(0x16, 0x02)}, 0, 0x57, 6, kIdle, Runs::kSecondOnly},
    {"TransferNeverComplete", {stall(0x16)}, 0, 0x5A, 3, kIdle, Runs::kOld},
    {"ResetAtTransferComplete", {reset(0x16)}, 0, 0x5A, 3, kIdle, Runs::kOld},
    {"TransferCompleteTwice", {instead(0x17, 0x16)}},
    {"UnknownRequest", {instead(0x16, 0x1F)}, 0, 0x5A, 3, kIdle, Runs::kOld},
    {"VerifyBeforeTransferComplete", {instead(0x16, 0x17)}, 0, 0, 3, kDownload, Runs::kOld},
    {"ApplyBeforeVerify", {instead(0x17, 0x18)}, 0, 0, 4, kVerify, Runs::kOld},
    {"VerifyFailed", {report(0x17, 0x03)}, 0, 0x58, 6, kIdle, Runs::kSecondOnly},
    {"NeverVerified", {stall(0x17)}, 0, 0x5A, 4, kIdle, Runs::kOld},
    {"ApplyFailed", {report(0x18, 0x05)}, 0, 0x59, 6, kIdle, Runs::kSecondOnly},
    {"AppliedWithOtherActivation", {report(0x18, 0x01)}},
    {"NeverApplied", {stall(0x18)}, 0, 0x5A, 5, kIdle, Runs::kOld},
};

// The code of the cancellation does not take the place of the mark of the step that failed.
const Scenario kEnd[] = {
    {"CancelRefused", {report(0x16, 0x02), code(0x1C, 0x80)}, 0, 0x57, 3, kDownload, Runs::kOld},
    {"CancelBusyTwice",
     {report(0x16, 0x02), code(0x1C, 0x86, 1, 2)},
     0,
     0x57,
     6,
     kIdle,
     Runs::kSecondOnly},
    {"CancelBusyThrice",
     {report(0x16, 0x02), code(0x1C, 0x86, 1, 3)},
     0,
     0x57,
     3,
     kDownload,
     Runs::kOld},
    {"CancelUnanswered", {report(0x16, 0x02), silent(0x1C)}, 0, 0x57, 3, kDownload, Runs::kOld},
    {"ActivationNotInUpdateMode", {code(0x1A, 0x80)}, 0, 0x80, 6, kReady, Runs::kOld},
    {"ActivationInvalidState", {code(0x1A, 0x84)}, 0, 0x84, 6, kReady, Runs::kOld},
    {"ActivationIncomplete", {code(0x1A, 0x85)}, 0, 0x85, 6, kReady, Runs::kOld},
    {"ActivationNotRequired", {code(0x1A, 0x8B)}, 0, 0x8B, 6, kReady, Runs::kOld},
    {"ActivationNotSelfContained", {code(0x1A, 0x8C)}, 0, 0x8C, 6, kReady, Runs::kOld},
    {"ActivationOtherCode", {code(0x1A, 0x05)}, 0, 0x05, 6, kReady, Runs::kOld},
    {"ActivationAskedAgain", {silent(0x1A)}},
    {"ActivationUnanswered",
     {silent(0x1A, 1, kAlways)},
     0,
     kRetriesExhausted,
     6,
     kReady,
     Runs::kOld},
    {"ActivationAnswerCut", {cut(0x1A, 5)}},
};

class FailedStep : public UpdateRun,
                   public ::testing::WithParamInterface<std::tuple<Binding, Scenario>> {};

TEST_P(FailedStep, LeavesResultMarkAndStateAndNothingElse) {
    const auto& [binding, scenario] = GetParam();
    open_card(binding, scenario.firmware_keys);
    tool::Package package = card_package();
    package.records[0].package_data = board_test::image_of(9, 200);
    provide(package);
    device->set_faults(scenario.faults);
    const UpdateReport report = update();
    EXPECT_EQ(report.check, 0) << report.log;
    EXPECT_EQ(report.update, scenario.update);
    EXPECT_EQ(report.mark, scenario.mark);
    EXPECT_EQ(report.state, scenario.state);
    EXPECT_EQ(device->state(), scenario.device);
    const bool second = scenario.runs != Runs::kOld;
    EXPECT_EQ(component_version(0), scenario.runs == Runs::kBoth ? "new-1" : "old-1");
    EXPECT_EQ(component_version(1), second ? "new-2" : "old-2");
    EXPECT_EQ(device->active().text, second ? "NEW" : "OLD");
    // The device activates what it has, but its answer cannot be read.
    const bool is_cut = std::string(scenario.name) == "ActivationAnswerCut";
    EXPECT_EQ(report.error.cause == SIDEBAND_CAUSE_NONE, scenario.runs == Runs::kBoth && !is_cut)
        << test::said(report.error);
    if (HasFailure()) {
        std::puts(report.out.c_str());
        std::puts(report.log.c_str());
    }
}

std::string scenario_name(const ::testing::TestParamInfo<std::tuple<Binding, Scenario>>& info) {
    const auto& [binding, scenario] = info.param;
    return std::string(scenario.name) + (binding == Binding::kSmbus ? "OverSmbus" : "OverPcie");
}

/// A device that goes on asking for package data behind the last part: its request comes across
/// what the agent does next.
class StrayRequest : public UpdateRun {
protected:
    UpdateReport update_over(Binding binding) {
        open_card(binding, kFetches);
        tool::Package package = card_package();
        package.records[0].package_data = board_test::image_of(9, 200);
        provide(package);
        device->set_faults({endless(0x11)});
        return update();
    }
};

TEST_F(StrayRequest, IsTakenForTheAnswerToPassComponentTableOverSmbus) {
    // The fifth request has handle 4, which stands where an answer has "not ready".
    const UpdateReport report = update_over(Binding::kSmbus);
    EXPECT_EQ(report.update, 0);
    EXPECT_EQ(report.mark, 0x13);
    EXPECT_EQ(report.state, 6);
    EXPECT_EQ(device->active().text, "NEW");
    EXPECT_EQ(component_version(0), "new-1");
}

TEST_F(StrayRequest, IsRefusedInTheDownloadOverPcie) {
    const UpdateReport report = update_over(Binding::kPcie);
    EXPECT_EQ(report.update, 0);
    EXPECT_EQ(report.mark, 0);
    EXPECT_EQ(report.state, 3);
    EXPECT_NE(report.out.find("PLDM_FW_UPDATE_INVALID_TRANSFER_OPERATION_FLAG FAIL\n"),
              std::string::npos);
    EXPECT_EQ(device->active().text, "OLD");
}

const auto kBindings = ::testing::Values(Binding::kSmbus, Binding::kPcie);

INSTANTIATE_TEST_SUITE_P(Inventory, FailedStep,
                         ::testing::Combine(kBindings, ::testing::ValuesIn(kInventory)),
                         scenario_name);
INSTANTIATE_TEST_SUITE_P(Beginning, FailedStep,
                         ::testing::Combine(kBindings, ::testing::ValuesIn(kBeginning)),
                         scenario_name);
INSTANTIATE_TEST_SUITE_P(Components, FailedStep,
                         ::testing::Combine(kBindings, ::testing::ValuesIn(kComponents)),
                         scenario_name);
INSTANTIATE_TEST_SUITE_P(Transfer, FailedStep,
                         ::testing::Combine(kBindings, ::testing::ValuesIn(kTransfer)),
                         scenario_name);
INSTANTIATE_TEST_SUITE_P(End, FailedStep, ::testing::Combine(kBindings, ::testing::ValuesIn(kEnd)),
                         scenario_name);

/// A device that asks for nothing any more keeps an update for minutes, unless there is a limit.
class LimitedUpdate : public UpdateRun {};

TEST_F(LimitedUpdate, EndsWithItsTimeLimit) {
    open_card(Binding::kSmbus);
    provide(card_package());
    device->set_faults({stall(0x15)});
    mctp_ctx config = context_of("nic0");
    mctp_set_deadline(&config, 20000);
    pldm_fw_update_ctx ctx{};
    ctx.max_transfer_size = 128;
    test::Capture out;
    ASSERT_EQ(pldm_fw_update_init(&ctx, &config), 0);
    const uint64_t start_us = board->now_us();
    EXPECT_EQ(pldm_nic_update(path.c_str(), &ctx, nullptr, 0), 0);
    EXPECT_EQ(ctx.pldm.completion_code, 0x5A);
    EXPECT_EQ(pldm_fw_update_last_error(&ctx)->cause, SIDEBAND_CAUSE_DEADLINE)
        << test::said(*pldm_fw_update_last_error(&ctx));
    EXPECT_GT(board->now_us() - start_us, 18'000'000u);
    EXPECT_LT(board->now_us() - start_us, 22'000'000u);
    pldm_free_ua_resource(&ctx);
}

TEST_F(LimitedUpdate, ThatHasTimeEnoughIsDone) {
    open_card(Binding::kSmbus);
    provide(card_package());
    mctp_ctx config = context_of("nic0");
    mctp_set_deadline(&config, 20000);
    pldm_fw_update_ctx ctx{};
    ctx.max_transfer_size = 128;
    test::Capture out;
    ASSERT_EQ(pldm_fw_update_init(&ctx, &config), 0);
    EXPECT_EQ(pldm_nic_update(path.c_str(), &ctx, nullptr, 0), 0);
    EXPECT_EQ(pldm_fw_update_last_error(&ctx)->cause, SIDEBAND_CAUSE_NONE);
    EXPECT_EQ(device->active().text, "NEW");
    pldm_free_ua_resource(&ctx);
}

}  // namespace
