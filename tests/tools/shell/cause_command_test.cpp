// SPDX-License-Identifier: Apache-2.0
// Tests of why commands failed, for what takes more than a fault on the bus: settings of the board,
// answers that a device makes up, files. Each cause in the tool's line and its JSON.
#include "tests/tools/tool_runner.h"
#include "tests/tools/update/firmware_bench.h"

namespace {

using tool::Json;
using tool_test::one_document;
using tool_test::Outcome;
using tool_test::run_on;
using tool_test::TemporaryFile;
using Strings = std::vector<std::string>;

struct Case {
    const char* name;
    std::string board;
    Strings command;
    std::string operation;  ///< the beginning of the message
    std::string reason;     ///< the rest of it
    const char* cause;
};

std::string board_of(const std::string& device, const std::string& keys = "") {
    return R"({"name": "causes", "buses": [{"bus": 1}], )" + keys + R"("devices": [)" + device +
           "]}";
}

/// A device that gives these answers and no others.
std::string replay(const std::string& exchanges) {
    return board_of(R"({"name": "dev0", "type": "replay", "bus": 1, "address": "0x40",
                        "exchanges": [)" +
                    exchanges + "]}");
}

const std::string kGpu = R"({"name": "dev0", "type": "pldm", "bus": 1, "address": "0x40", )";

const Case kCases[] = {
    {"Argument",
     board_of(kGpu + R"("eid": 12, "unit_size": 121})"),
     {"pldm", "info", "dev0"},
     "dev0: Get Endpoint ID failed: ",
     "an argument or a setting is out of range",
     "argument"},
    {"ShortAnswer",
     board_of(kGpu + R"("eid": 12, "faults": [{"kind": "truncate", "bytes": 4}]})"),
     {"pldm", "info", "dev0"},
     "dev0: Get Endpoint ID failed: ",
     "the answer has 2 bytes only",
     "malformed-answer"},
    {"NoPacket",
     board_of(kGpu + R"("eid": 12, "faults": [{"kind": "truncate", "bytes": 255}]})"),
     {"pldm", "info", "dev0"},
     "dev0: Get Endpoint ID failed: ",
     "what came is no answer",
     "malformed-answer"},
    {"Code",
     replay(R"({"message_type": 0, "request": "8002", "response": "000205"})"),
     {"mctp", "eid", "dev0"},
     "dev0: Get Endpoint ID failed: ",
     "completion code 0x05 (ERROR_UNSUPPORTED_CMD)",
     "device-code"},
    {"EidRefused",
     replay(R"({"message_type": 0, "request": "8002", "response": "000200000000"},
               {"message_type": 0, "request": "81010010", "response": "010100100000"})"),
     {"mctp", "eid", "dev0", "--strict"},
     "dev0: Set Endpoint ID failed: ",
     "the device has refused",
     "refused"},
    {"NotFound",
     board_of(R"({"name": "mpio0", "type": "mpio", "transport": "pcie", "bdf": "00:00.0"})",
              R"("platform": {"mpio_state": "wanted"}, )"),
     {"mctp", "eid", "pcie:47:00.0"},
     "pcie:47:00.0: discovery failed: ",
     "the MPIO's routing table does not list it",
     "not-found"},
    {"Deadline",
     board_of(kGpu + R"("eid": 12})"),
     {"pldm", "info", "dev0", "--timeout", "0.001"},
     "dev0: GetTID failed: ",
     "the time limit has passed",
     "deadline"},
};

class CauseOfCommand : public ::testing::TestWithParam<Case> {};

TEST_P(CauseOfCommand, IsToldInTheLineAndToPrograms) {
    const Case& one = GetParam();
    const Outcome text = run_on(one.board, one.command);
    EXPECT_EQ(text.status, 1);
    EXPECT_EQ(text.out, "");
    Strings for_programs = one.command;
    for_programs.emplace_back("--json");
    const Json error = one_document(run_on(one.board, for_programs).out)["error"];
    const std::string message = error["message"].get<std::string>();
    EXPECT_EQ(text.err,
              "sideband-sim: " + one.command[0] + " " + one.command[1] + ": " + message + "\n");
    EXPECT_EQ(message, one.operation + one.reason);
    EXPECT_EQ(error["cause"], one.cause);
    EXPECT_EQ(error["exit_status"], 1);
}

INSTANTIATE_TEST_SUITE_P(All, CauseOfCommand, ::testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

/// The error of a firmware update, whose one line is its message.
Json failed_update(const std::string& board, const tool::Package& package) {
    const TemporaryFile file(tool_test::file_of(package));
    const Outcome failed = run_on(board, {"pldm", "fw-update", "nic0", file.path(), "--json"});
    EXPECT_EQ(failed.status, 1);
    const Json error = one_document(failed.out)["error"];
    EXPECT_EQ(failed.err,
              "sideband-sim: pldm fw-update: " + error["message"].get<std::string>() + "\n");
    return error;
}

TEST(CauseOfUpdate, IsTheSystemIfThereIsNoSessionOnPcie) {
    Json board = tool_test::parse_json(tool_test::FirmwareBoard().text());
    board["platform"]["pcie_open_fails"] = true;
    const Json error = failed_update(board.dump(1), tool_test::card_package());
    EXPECT_EQ(error["message"], "nic0: the update failed: no session on PCIe");
    EXPECT_EQ(error["cause"], "system");
}

TEST(CauseOfUpdate, IsTheFileIfThePackageIsForAnotherDevice) {
    tool::Package package = tool_test::card_package();
    package.records[0].descriptors[0].value[0] ^= 1;
    const Json error = failed_update(tool_test::FirmwareBoard().text(), package);
    EXPECT_EQ(error["message"],
              "nic0: the update failed: no device record of the package is for this device (mark "
              "0x54)");
    EXPECT_EQ(error["cause"], "file");
}

TEST(CauseOfUpdate, IsTheCodeOfTheDevice) {
    tool_test::FirmwareBoard board;
    board.fault("completion_code", "request_update", {{"value", 0x8A}});
    const Json error = failed_update(board.text(), tool_test::card_package());
    EXPECT_EQ(error["cause"], "device-code");
    EXPECT_EQ(error["completion_code"], 0x8A);
}

}  // namespace
