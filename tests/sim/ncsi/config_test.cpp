// SPDX-License-Identifier: Apache-2.0
// The keys of a network controller in a board file, and what is wrong with them.
#include "controller_fixture.h"
#include "sim/pldm/terminus_fixture.h"

namespace {

using namespace sim_test;
using NcsiBoardFile = Ncsi;

TEST_F(NcsiBoardFile, Faults) {
    open_controller(R"({"id": 0, "channels": [{"id": 0}]})", R"("unsupported": ["get_card_tlv"],
        "faults": [
        {"kind": "codes", "command": "clear_initial_state", "response": 1, "reason": 3},
        {"kind": "no_answer", "command": "clear_initial_state", "at": 2},
        {"kind": "other_command", "command": "get_link_status", "value": "0x81", "count": 0},
        {"kind": "truncate", "command": "select_package", "length": 16},
        {"kind": "over_long", "command": "deselect_package", "bytes": 2},
        {"kind": "other_channel", "command": "other", "value": 5}])");
    EXPECT_EQ(clear(0x00), "00 01 00 03");
    EXPECT_EQ(clear(0x00), kSilence);
    EXPECT_EQ(clear(0x00), kDone);
    const std::string rest = " 00 00000000 00000000 00000000";
    EXPECT_EQ(packet("00 01 00 01 0a 00 00" + rest).substr(12, 5), "81 00");
    EXPECT_EQ(packet("00 01 00 01 01 1f 00" + rest).size(), 16 * 3 - 1u);
    EXPECT_EQ(packet("00 01 00 01 02 1f 00" + rest).size(), 26 * 3 - 1u);
    EXPECT_EQ(packet("00 01 00 01 15 00 00" + rest).substr(12, 5), "95 05");
    EXPECT_EQ(command(0x50, 0x1F, kGetTlv), kUnsupported);
}

TEST_F(NcsiBoardFile, ErrorsNameLineAndKey) {
    const std::string at = "devices[0].controller.";
    auto refused = [](const std::string& packages, const std::string& keys = "") {
        const std::string text = refusal_of(controller_with(packages, keys));
        return text.substr(text.find(' ') + 1);
    };
    EXPECT_EQ(refusal_of(board_with(R"({"name": "n", "type": "ncsi", "bus": 3, "address": 100})")),
              "10: devices[0].controller: is missing");
    EXPECT_EQ(refused(R"({"id": 8, "channels": []})"),
              at + "packages[0].id: must be a whole number from 0 to 7");
    EXPECT_EQ(refused(R"({"id": 1, "channels": []}, {"id": 1, "channels": []})"),
              at + "packages[1].id: appears twice");
    EXPECT_EQ(refused(R"({"id": 1})"), at + "packages[0].channels: is missing");
    EXPECT_EQ(refused(R"({"id": 1, "channels": [{"id": 8}]})"),
              at + "packages[0].channels[0].id: must be a whole number from 0 to 7");
    EXPECT_EQ(refused(R"({"id": 1, "channels": [{"id": 0, "speed": 16}]})"),
              at + "packages[0].channels[0].speed: must be a whole number from 0 to 15");
    EXPECT_EQ(refused(R"({"id": 1, "channels": [{"id": 0, "mac": "00"}]})"),
              at + "packages[0].channels[0].mac: must have 6 bytes");
    EXPECT_EQ(refused("", R"("unsupported": ["reset"])"),
              at + "unsupported[0]: is not a command that is known here");
    EXPECT_EQ(refused("", R"("faults": [{"kind": "codes", "command": "other", "reason": 1}])"),
              at + "faults[0].response: is missing");
    EXPECT_EQ(refused("", R"("temperatures": [{"id": 0, "waveform":
                            {"shape": "constant", "value": 256}}])"),
              at + "temperatures[0].waveform: must stay within 0 to 255");
}

TEST_F(NcsiBoardFile, OtherDevicesAreNoControllers) {
    open(terminus_with("\"tid\": 1"));
    EXPECT_EQ(board->ncsi("p"), nullptr);
    EXPECT_EQ(board->ncsi("q"), nullptr);
}

}  // namespace
