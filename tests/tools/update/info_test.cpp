// SPDX-License-Identifier: Apache-2.0
// Tests of what the tool shows of a card's firmware, honest cards and hostile ones.
#include "tests/tools/update/firmware_bench.h"

namespace {

using tool::Json;
using tool_test::contains;
using tool_test::expect_error;
using tool_test::FirmwareBoard;
using tool_test::one_document;
using tool_test::Outcome;
using tool_test::parse_json;

TEST(FwInfo, ShowsDescriptorsVersionsAndComponents) {
    FirmwareBoard board;
    board.firmware()["pending"] = "1.0.9";
    board.firmware()["components"][0]["pending"] = {{"text", "fw-1.0.9"}, {"stamp", "0x109"}};
    for (const char* card : {"nic0", "nic1"}) {
        const Outcome info = board.run({"pldm", "fw-info", card});
        EXPECT_EQ(info.status, 0);
        EXPECT_EQ(info.err, "");
        EXPECT_EQ(info.out,
                  "Active version   1.0.0\n"
                  "Pending version  1.0.9\n"
                  "Capabilities     0x00000002\n"
                  "\n"
                  "TYPE    NAME           VALUE   DATA\n"
                  "0x0000  PCI Vendor ID  0x15b3  b315\n"
                  "0x0100  PCI Device ID  0x101d  1d10\n"
                  "\n"
                  "CLASS  ID  INDEX  ACTIVE  STAMP       PENDING   STAMP       CAPABILITIES  "
                  "ACTIVATION\n"
                  "   10   1      3  fw-1.0  0x00000100  fw-1.0.9  0x00000109  0x00000004    "
                  "self-contained, AC power cycle\n");
    }
}

TEST(FwInfo, GivesProgramsTheFieldsOfTheStandard) {
    const Outcome info = FirmwareBoard().run({"pldm", "fw-info", "nic0", "--json"});
    EXPECT_EQ(info.status, 0);
    EXPECT_EQ(info.err, "");
    const char* const wanted = R"json({
        "endpoint": "nic0",
        "descriptors": [{"type": "0x0000", "name": "PCI Vendor ID", "data": "b315",
                         "value": "0x15b3"},
                        {"type": "0x0100", "name": "PCI Device ID", "data": "1d10",
                         "value": "0x101d"}],
        "capabilities_during_update": "0x00000002",
        "active_component_image_set_version": "1.0.0",
        "pending_component_image_set_version": "",
        "components": [
          {"component_classification": 10, "component_identifier": 1,
           "component_classification_index": 3,
           "active_component_comparison_stamp": "0x00000100",
           "active_component_version": "fw-1.0", "active_component_release_date": "20240131",
           "pending_component_comparison_stamp": "0x00000000",
           "pending_component_version": "", "pending_component_release_date": "",
           "component_activation_methods": "0x0022",
           "capabilities_during_update": "0x00000004"}]})json";
    EXPECT_EQ(one_document(info.out).dump(), parse_json(wanted).dump());
}

TEST(FwInfo, OfATerminusWithoutFirmwareIsRefusedByTheDevice) {
    expect_error(tool_test::run_on(tool_test::kTestBoard, {"pldm", "fw-info", "dev0"}), 1,
                 "sideband-sim: pldm fw-info: dev0: QueryDeviceIdentifiers failed: completion code "
                 "0x20 (ERROR_INVALID_PLDM_TYPE)");
}

TEST(FwInfo, ShowsWideVersionsAndNoControlCharacters) {
    FirmwareBoard board;
    // ComponentCount 1, image set versions in ASCII and none, then one entry whose active version
    // is UTF-16BE and whose pending one has an escape sequence.
    board.firmware()["parameters_hex"] =
        "00000000"
        "0100"
        "0103"
        "0100"
        "413142"
        "0a00010000"
        "00010000"
        "0504"
        "3230323430313332"
        "00000000"
        "0103"
        "0000000000000000"
        "0100"
        "00000000"
        "0056004c"
        "1b5b4d";
    const Outcome info = board.run({"pldm", "fw-info", "nic0"});
    EXPECT_EQ(info.status, 0) << info.err;
    EXPECT_TRUE(contains(info.out, "Active version   A1B\n")) << info.out;
    EXPECT_TRUE(contains(info.out, "VL")) << info.out;
    EXPECT_TRUE(contains(info.out, "  \\x1b[M  ")) << info.out;
    EXPECT_FALSE(contains(info.out, "\x1b")) << info.out;
    EXPECT_TRUE(contains(info.out, "automatic\n")) << info.out;
}

/// Runs fw-info on a card whose answers are raw.
Outcome run_on_answers(const char* identifiers, const char* parameters) {
    FirmwareBoard board;
    if (identifiers != nullptr) {
        board.firmware().erase("descriptors");
        board.firmware()["identifiers_hex"] = identifiers;
    }
    if (parameters != nullptr) {
        board.firmware()["parameters_hex"] = parameters;
    }
    return board.run({"pldm", "fw-info", "nic0"});
}

TEST(HostileFwInfo, DescriptorsThatLieAreReported) {
    const std::string head =
        "sideband-sim: pldm fw-info: nic0: QueryDeviceIdentifiers failed: the answer is "
        "malformed: ";
    expect_error(run_on_answers("06000000", nullptr), 1, head + "it has 8 bytes only");
    expect_error(run_on_answers("06000000020000020000", nullptr), 1,
                 head + "descriptor 0 of 2 does not end inside it");
    expect_error(run_on_answers("06000000ff00000200b315", nullptr), 1,
                 head + "descriptor 1 of 255 does not end inside it");
    expect_error(run_on_answers("06000000010000ffffb315", nullptr), 1,
                 head + "descriptor 0 of 1 does not end inside it");
}

TEST(HostileFwInfo, AComponentTableThatLiesIsReported) {
    const std::string error =
        "sideband-sim: pldm fw-info: nic0: GetFirmwareParameters failed: the answer is malformed: "
        "the component table does not end inside it";
    // No components in the answer, but one and then 65535 in the count; a string that is longer
    // than what is left; an answer that ends in front of the strings.
    expect_error(run_on_answers(nullptr, "0000000001000101000041"), 1, error);
    expect_error(run_on_answers(nullptr,
                                "00000000ffff01010000"
                                "41"),
                 1, error);
    expect_error(run_on_answers(nullptr,
                                "00000000000001ff0000"
                                "41"),
                 1, error);
    expect_error(run_on_answers(nullptr, "000000"), 1, error);
}

TEST(HostileFwInfo, ADeviceThatDoesNotAnswerIsReported) {
    FirmwareBoard board;
    board.fault("no_answer", "get_firmware_parameters");
    expect_error(board.run({"pldm", "fw-info", "nic0"}), 1,
                 "sideband-sim: pldm fw-info: nic0: GetFirmwareParameters failed: no answer");
}

}  // namespace
