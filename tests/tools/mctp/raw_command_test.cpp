// SPDX-License-Identifier: Apache-2.0
// Tests of raw.
#include "tests/tools/tool_runner.h"

namespace {

using tool_test::expect_json;
using tool_test::expect_text;
using tool_test::OwnBoard;

TEST_F(OwnBoard, RawSendsABodyAndPrintsTheAnswer) {
    expect_text(run({"raw", "dev0", "pldm", "800002"}), "0000020007\n");
    expect_text(run({"raw", "dev0", "1", "80", "00:02"}), "0000020007\n");
    expect_text(run({"raw", "rec0", "ncsi", "0001"}), "aabb\n");
    expect_text(run({"raw", "rec0", "control", "85 05"}), "050500020104\n");
}

TEST_F(OwnBoard, RawTakesAnErrorCodeOfTheDeviceForAnAnswer) {
    expect_json(run({"raw", "rec0", "0x01", "800002", "--json"}),
                R"({"endpoint": "rec0", "message_type": 1, "request": "800002",
                    "response": "00000201", "response_length": 4})");
}

}  // namespace
