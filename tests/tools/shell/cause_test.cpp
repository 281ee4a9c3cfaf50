// SPDX-License-Identifier: Apache-2.0
// Tests of why a command failed: each cause on a simulated board, in the tool's line and its JSON.
#include "tests/tools/tool_runner.h"

namespace {

using tool::Json;
using tool_test::expect_error;
using tool_test::one_document;
using tool_test::Outcome;
using tool_test::run_on;

struct Case {
    const char* name;
    const char* keys;    ///< of the board
    const char* faults;  ///< of the device
    const char* endpoint;
    const char* reason;
    const char* cause;
};

const Case kCases[] = {
    {"NotAcknowledged", "", R"({"kind": "no_ack"})", "gpu0", "no acknowledge from i2c:1:0x40",
     "not-acknowledged"},
    {"NobodyThere", "", "", "i2c:1:0x42", "no acknowledge from i2c:1:0x42", "not-acknowledged"},
    {"NothingCame", "", R"({"kind": "lost"})", "gpu0", "no answer", "no-answer"},
    {"NoSuchBus", "", "", "i2c:9:0x40", "no such bus", "no-bus"},
    {"NoPower", R"("power": {"main": false}, )", "", "gpu0", "the host's main power is off",
     "no-power"},
    {"WrongPec", "", R"({"kind": "bad_pec"})", "gpu0", "the answer came with a bad PEC",
     "wrong-checksum"},
    {"WrongTag", "", R"({"kind": "wrong_tag"})", "gpu0",
     "the answer carries message tag 2 instead of 1", "wrong-tag"},
};

std::string board_of(const Case& one) {
    return std::string(R"({"name": "causes", )") + one.keys + R"("buses": [{"bus": 1}],
        "devices": [{"name": "gpu0", "type": "pldm", "bus": 1, "address": "0x40", "eid": 12,
                     "faults": [)" +
           one.faults + "]}]}";
}

class Cause : public ::testing::TestWithParam<Case> {};

TEST_P(Cause, IsToldInTheLineAndToPrograms) {
    const Case& one = GetParam();
    const std::string message =
        std::string(one.endpoint) + ": Get Endpoint ID failed: " + one.reason;
    expect_error(run_on(board_of(one), {"pldm", "info", one.endpoint}), 1,
                 "sideband-sim: pldm info: " + message);
    const Outcome failed = run_on(board_of(one), {"--json", "pldm", "info", one.endpoint});
    EXPECT_EQ(failed.status, 1);
    const Json error = one_document(failed.out)["error"];
    EXPECT_EQ(error["message"], message);
    EXPECT_EQ(error["cause"], one.cause);
    EXPECT_EQ(error["endpoint"], one.endpoint);
    EXPECT_EQ(error["exit_status"], 1);
    EXPECT_FALSE(error.contains("completion_code"));
}

INSTANTIATE_TEST_SUITE_P(All, Cause, ::testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

/// What a device answers instead of success has its code, and the cause says so.
TEST(CauseOfADevice, IsItsCodeOrAnAnswerThatDoesNotFit) {
    const std::string board = R"({"name": "codes", "buses": [{"bus": 1}], "devices": [
        {"name": "rec0", "type": "replay", "bus": 1, "address": "0x40", "eid": 12, "exchanges": [
            {"message_type": 1, "request": "800002", "response": "00000205"},
            {"message_type": 1, "request": "810002", "response": "010002"}]}]})";
    const Outcome coded = run_on(board, {"--json", "pldm", "info", "rec0"});
    const Json error = one_document(coded.out)["error"];
    EXPECT_EQ(error["cause"], "device-code");
    EXPECT_EQ(error["completion_code"], 5);
    EXPECT_EQ(error["completion_code_name"], "ERROR_UNSUPPORTED_PLDM_CMD");
}

}  // namespace
