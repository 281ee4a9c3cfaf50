// SPDX-License-Identifier: Apache-2.0
// Tests of what the tool says of an update that fails, step by step.
#include "tests/tools/update/firmware_bench.h"

namespace {

using tool::Json;
using tool_test::card_package;
using tool_test::expect_error;
using tool_test::file_of;
using tool_test::FirmwareBoard;
using tool_test::holds_request;
using tool_test::one_document;
using tool_test::Outcome;
using tool_test::parse_json;
using tool_test::TemporaryFile;

constexpr uint8_t kCancelUpdate = 0x1D;

/// A fault of the card and what the tool makes of it.
struct Trouble {
    const char* name;
    const char* kind;
    const char* command;
    const char* keys;
    bool cancelled;  ///< the device is made to leave update mode at the end
    const char* error;
};

class FwFailure : public ::testing::TestWithParam<Trouble> {};

TEST_P(FwFailure, IsSaidInWordsAndLeavesTheDeviceIdle) {
    const Trouble& trouble = GetParam();
    FirmwareBoard board;
    board.fault(trouble.kind, trouble.command, parse_json(trouble.keys));
    const TemporaryFile package(file_of(card_package()));
    const TemporaryFile capture("");
    const Outcome update =
        board.run({"pldm", "fw-update", "nic0", package.path(), "--capture", capture.path()});
    EXPECT_EQ(update.status, 1);
    EXPECT_EQ(update.err,
              "sideband-sim: pldm fw-update: nic0: " + std::string(trouble.error) + "\n");
    EXPECT_FALSE(tool_test::contains(update.out, "BEFORE")) << update.out;
    EXPECT_EQ(holds_request(capture, kCancelUpdate), trouble.cancelled);
}

INSTANTIATE_TEST_SUITE_P(
    Step, FwFailure,
    ::testing::Values(
        Trouble{"ParametersAreMissing", "no_answer", "get_firmware_parameters", R"({"at": 2})",
                false, "GetFirmwareParameters failed: no answer that can be used (mark 0x55)"},
        Trouble{"UpdateIsRefused", "completion_code", "request_update", R"({"value": 138})", false,
                "RequestUpdate failed: completion code 0x8a (UNABLE_TO_INITIATE_UPDATE) (mark "
                "0x56)"},
        Trouble{"UpdateIsPutOff", "completion_code", "request_update", R"({"value": 142})", false,
                "RequestUpdate failed: completion code 0x8e (RETRY_REQUEST_UPDATE)"},
        Trouble{"UpdateIsNotAnswered", "no_answer", "request_update", "{}", false,
                "RequestUpdate failed: no answer"},
        Trouble{"TableIsRefused", "completion_code", "pass_component_table", R"({"value": 132})",
                true,
                "PassComponentTable failed: completion code 0x84 (INVALID_STATE_FOR_COMMAND) (mark "
                "0x13)"},
        Trouble{"ComponentFails", "completion_code", "update_component", R"({"value": 132})", true,
                "UpdateComponent of component 0 failed: completion code 0x84 "
                "(INVALID_STATE_FOR_COMMAND) (mark 0x14)"},
        Trouble{"ComponentIsRefused", "refuse_component", "update_component", R"({"value": 6})",
                false,
                "component 0 failed: the device refuses it: the device does not support it (code "
                "0x06)"},
        Trouble{"ComponentIsRefusedInNewWords", "refuse_component", "update_component",
                R"({"value": 200})", false, "component 0 failed: the device refuses it: code 0xc8"},
        Trouble{"PieceIsOutOfOrder", "ask", "request_firmware_data",
                R"({"at": 2, "offset": 0, "length": 16})", true,
                "the transfer of component 0 failed: the device's RequestFirmwareData was out of "
                "order, and was answered with completion code 0x83 (INVALID_TRANSFER_LENGTH)"},
        Trouble{"TransferFails", "result", "transfer_complete", R"({"value": 2})", true,
                "the transfer of component 0 failed: the device reports transfer result 0x02 "
                "(version mismatch) (mark 0x57)"},
        Trouble{"VerificationFails", "result", "verify_complete", R"({"value": 9})", true,
                "the verification of component 0 failed: the device reports verify result 0x09 "
                "(time-out) (mark 0x58)"},
        Trouble{"ApplicationFails", "result", "apply_complete", R"({"value": 10})", true,
                "the application of component 0 failed: the device reports apply result 0x0a "
                "(generic error) (mark 0x59)"},
        Trouble{"DeviceGoesSilent", "stall", "request_firmware_data", R"({"at": 3})", true,
                "the transfer of component 0 failed: the device went silent behind its "
                "RequestFirmwareData, or it asks without an end (mark 0x5a)"},
        Trouble{"DeviceDies", "dead", "request_firmware_data", R"({"at": 3})", true,
                "the transfer of component 0 failed: the device went silent behind its "
                "RequestFirmwareData, or it asks without an end (mark 0x5a); the device may still "
                "be in update mode: its answer to CancelUpdate was none"},
        Trouble{"DeviceAsksForEver", "endless", "request_firmware_data", R"({"count": 0})", true,
                "the transfer of component 0 failed: the device went silent behind its "
                "RequestFirmwareData, or it asks without an end (mark 0x5a)"},
        Trouble{"VerificationComesTooEarly", "send_instead", "transfer_complete",
                R"({"value": 23})", true,
                "component 0 failed: the device sent VerifyComplete out of turn: it was still to "
                "ask for data"},
        Trouble{"ActivationFails", "completion_code", "activate_firmware", R"({"value": 133})",
                true, "ActivateFirmware failed: completion code 0x85 (INCOMPLETE_UPDATE)"}),
    [](const ::testing::TestParamInfo<Trouble>& info) { return info.param.name; });

TEST(FwUpdate, OfACardThatThePackageIsNotForIsRefused) {
    tool::Package package = card_package();
    package.records[0].descriptors[0].value = {0xE4, 0x14};
    const TemporaryFile file(file_of(package));
    const std::string error =
        "sideband-sim: pldm fw-update: nic0: the update failed: no device record of the package is "
        "for this device (mark 0x54)";
    const Outcome update = FirmwareBoard().run({"pldm", "fw-update", "nic0", file.path()});
    EXPECT_EQ(update.status, 1);
    EXPECT_EQ(update.err, error + "\n");
    expect_error(FirmwareBoard().run({"pldm", "fw-update", "nic0", file.path(), "--query"}), 1,
                 error);
}

TEST(FwUpdate, OfAComponentThatTheCardDoesNotHaveFails) {
    tool::Package package = card_package();
    package.components[0].identifier = 9;
    const TemporaryFile file(file_of(package));
    EXPECT_EQ(FirmwareBoard().run({"pldm", "fw-update", "nic0", file.path()}).err,
              "sideband-sim: pldm fw-update: nic0: the update failed: the device has no such "
              "component as the package is for\n");
}

TEST(FwUpdate, WithOneOfTwoComponentsRefusedActivatesTheOtherAndFails) {
    FirmwareBoard board;
    board.firmware()["components"].push_back(
        {{"identifier", 2}, {"index", 4}, {"active", "fw2-1.0"}, {"activation_methods", 2}});
    board.fault("refuse_component", "update_component", {{"value", 6}});
    tool::Package package = card_package();
    package.components.push_back(package.components[0]);
    package.components[1].identifier = 2;
    package.records[0].components = {0, 1};
    const TemporaryFile file(file_of(package));
    const TemporaryFile capture("");
    const Outcome update =
        board.run({"pldm", "fw-update", "nic0", file.path(), "--capture", capture.path()});
    EXPECT_EQ(update.status, 1);
    EXPECT_EQ(update.err,
              "sideband-sim: pldm fw-update: nic0: component 0 failed: the device refuses it: the "
              "device does not support it (code 0x06)\n");
    EXPECT_TRUE(holds_request(capture, 0x1A));
}

TEST(FwUpdate, OfATerminusWithoutFirmwareFails) {
    const TemporaryFile file(file_of(card_package()));
    expect_error(
        tool_test::run_on(tool_test::kTestBoard, {"pldm", "fw-update", "dev0", file.path()}), 1,
        "sideband-sim: pldm fw-update: dev0: the update failed: the device does not speak PLDM "
        "firmware update (mark 0x52)");
}

TEST(FwUpdate, OnABoardWithoutASessionOnPcieFails) {
    Json board = parse_json(FirmwareBoard().text());
    board["platform"]["pcie_open_fails"] = true;
    const TemporaryFile file(file_of(card_package()));
    EXPECT_EQ(tool_test::run_on(board.dump(1), {"pldm", "fw-update", "nic0", file.path()}).err,
              "sideband-sim: pldm fw-update: nic0: the update failed: no session on PCIe\n");
}

TEST(FwUpdate, GivesProgramsTheFailedStepAndTheCode) {
    FirmwareBoard board;
    board.fault("completion_code", "request_update", {{"value", 0x8A}});
    const TemporaryFile file(file_of(card_package()));
    const Outcome update = board.run({"pldm", "fw-update", "nic0", file.path(), "--json"});
    EXPECT_EQ(update.status, 1);
    const Json error = one_document(update.out)["error"];
    EXPECT_EQ(error["endpoint"], "nic0");
    EXPECT_EQ(error["operation"], "RequestUpdate");
    EXPECT_EQ(error["completion_code"], 0x8A);
    EXPECT_EQ(error["completion_code_name"], "UNABLE_TO_INITIATE_UPDATE");
    EXPECT_EQ(error["exit_status"], 1);
}

}  // namespace
