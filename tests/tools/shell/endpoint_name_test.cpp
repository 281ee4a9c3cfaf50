// SPDX-License-Identifier: Apache-2.0
// Tests of endpoints by their address.
#include "tests/tools/tool_runner.h"

namespace {

using tool_test::expect_error;
using tool_test::expect_text;
using tool_test::one_document;
using tool_test::OwnBoard;
using tool_test::run_tool;

TEST_F(OwnBoard, AnEndpointIsFoundByItsAddressToo) {
    expect_text(run({"raw", "i2c:1:0x40", "pldm", "800002"}), "0000020007\n");
    expect_text(run({"raw", "i2c:1:64", "pldm", "800002"}), "0000020007\n");
    EXPECT_EQ(one_document(run({"--json", "mctp", "eid", "i2c:2:48"}).out)["endpoint"], "i2c:2:48");
}

TEST(EndpointByAddress, UsesTheBoardsMultiplexerSetting) {
    expect_text(run_tool({"raw", "i2c:2:0x64", "pldm", "800002"}), "0000020001\n");
}

TEST(EndpointByAddress, OneThatIsSilentInSevenBitFormIsHintedAt) {
    expect_error(run_tool({"mctp", "eid", "i2c:2:0x32"}), 1,
                 "sideband-sim: mctp eid: i2c:2:0x32: Get Endpoint ID failed: no acknowledge from "
                 "i2c:2:0x32; in 8-bit form nic0 is at 0x64");
}

}  // namespace
