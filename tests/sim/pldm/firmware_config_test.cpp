// SPDX-License-Identifier: Apache-2.0
// The keys of a firmware device in a board file, and what is wrong with them.
#include "firmware_fixture.h"

namespace {

using namespace sim_test;
using Kind = sim::PldmFirmwareFault::Kind;

/// What is wrong with a "firmware" object: line within it, key, text.
std::string firmware_refusal(const std::string& keys) {
    const std::string text = refusal_of(terminus_with("\"firmware\": {" + keys + "}"));
    const std::string path = "devices[0].firmware";
    const size_t at = text.find(path);
    return at == std::string::npos ? text : text.substr(at + path.size());
}

std::string fault_refusal(const std::string& keys) {
    return firmware_refusal("\"faults\": [{" + keys + "}]");
}

TEST(FirmwareFile, FaultsAreRead) {
    sim::BoardError error;
    auto board = sim::Board::parse(terminus_with(R"("firmware": {"faults": [
        {"kind": "completion_code", "command": "request_update", "value": "0x8e"},
        {"kind": "ask", "command": 21, "at": 2, "count": 0, "offset": 7, "length": 9},
        {"kind": "send_instead", "command": "transfer_complete", "value": "apply_complete"}]})"),
                                   error);
    ASSERT_TRUE(board) << error.message("board");
    const std::vector<sim::PldmFirmwareFault>& faults = board->firmware("p")->settings().faults;
    ASSERT_EQ(faults.size(), 3u);
    EXPECT_EQ(faults[0].kind, Kind::kCompletionCode);
    EXPECT_EQ(faults[0].command, 0x10);
    EXPECT_EQ(faults[0].at, 1u);
    EXPECT_EQ(faults[0].count, 1u);
    EXPECT_EQ(faults[0].value, 0x8Eu);
    EXPECT_EQ(faults[1].kind, Kind::kAsk);
    EXPECT_EQ(faults[1].command, 0x15);
    EXPECT_EQ(faults[1].at, 2u);
    EXPECT_EQ(faults[1].count, 0u);
    EXPECT_EQ(faults[1].offset, 7u);
    EXPECT_EQ(faults[1].length, 9u);
    EXPECT_EQ(faults[2].kind, Kind::kSendInstead);
    EXPECT_EQ(faults[2].value, 0x18u);
}

TEST(FirmwareFile, MistakesAreNamed) {
    EXPECT_EQ(firmware_refusal(R"("size": 1)"), ".size: no such key");
    EXPECT_EQ(firmware_refusal(R"("active": 5)"), ".active: must be an object");
    EXPECT_EQ(firmware_refusal(R"("active": ")" + std::string(256, 'x') + "\""),
              ".active: must have at most 255 bytes of text");
    EXPECT_EQ(firmware_refusal(R"("active": {"text": "1", "date": "2024"})"),
              ".active.date: must have 8 characters");
    EXPECT_EQ(firmware_refusal(R"("identifiers_hex": "00", "descriptors": [])"),
              ".descriptors: cannot stand beside identifiers_hex");
    EXPECT_EQ(firmware_refusal(R"("descriptors": [{"type": "isbn", "hex": ""}])"),
              ".descriptors[0].type: must be a whole number from 0 to 65535");
    EXPECT_EQ(firmware_refusal(R"("components": [{"identifier": 1}])"),
              ".components[0].active: is missing");
    EXPECT_EQ(firmware_refusal(R"("components": [{"identifier": 1, "active": "1",
        "expect_hex": "00", "expect_file": "x"}])"),
              ".components[0].expect_file: cannot stand beside expect_hex");
    EXPECT_EQ(firmware_refusal(R"("order": "sorted")"),
              ".order: must be one of ascending, descending, interleaved, random");
    EXPECT_EQ(fault_refusal(R"("kind": "dead")"), ".faults[0].command: is missing");
    EXPECT_EQ(fault_refusal(R"("kind": "ask", "command": "get_status")"),
              ".faults[0].command: does not go with that kind");
    EXPECT_EQ(fault_refusal(R"("kind": "result", "command": 22)"), ".faults[0].value: is missing");
    EXPECT_EQ(fault_refusal(R"("kind": "stall", "command": 22, "at": 0)"),
              ".faults[0].at: must be a whole number from 1 to 1000000000");
    EXPECT_EQ(fault_refusal(R"("kind": "stall", "command": 22, "value": 1)"),
              ".faults[0].value: no such key");
}

}  // namespace
