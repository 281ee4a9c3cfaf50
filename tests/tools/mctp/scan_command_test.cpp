// SPDX-License-Identifier: Apache-2.0
// Tests of scan.
#include "tests/tools/tool_runner.h"

namespace {

using tool::Json;
using tool_test::expect_error;
using tool_test::expect_text;
using tool_test::one_document;
using tool_test::Outcome;
using tool_test::OwnBoard;
using tool_test::parse_json;
using tool_test::run_tool;

TEST(Scan, ListsEveryEndpointOfTheBuiltInBoard) {
    expect_text(
        run_tool({"scan"}),
        "ENDPOINT  WHERE         EID  UUID                                  SPEAKS   STATUS\n"
        "nic0      i2c:2:0x64     16  6e696330-5b0a-4c1d-9f3e-000000000001  pldm     ok\n"
        "gpu0      i2c:3:0x9e     29  67707530-2c4e-4d5f-8a6b-000000000002  pldm     ok\n"
        "rec0      i2c:5:0x30     12  72656330-0000-4000-8000-000000000003  pldm     ok\n"
        "own0      i2c:5:0x42      9  6f776e30-7d11-4b62-9a04-000000000004  -        ok\n"
        "mpio0     pcie:00:00.0   17  6d70696f-3055-4e19-8c25-000000000005  -        ok\n"
        "gpu1      pcie:47:00.0   64  67707531-0c3a-4f7e-b1d6-000000000006  pldm     ok\n"
        "rec1      pcie:c1:00.1   65  72656331-0000-4000-8000-000000000007  pldm     ok\n"
        "own1      pcie:80:00.0   10  6f776e31-5e48-4c90-a7f3-000000000008  -        ok\n"
        "nic1      pcie:c2:00.0   66  6e696331-73f2-4b0d-8d54-000000000009  pldm     ok\n"
        "ncsi0     i2c:5:0x50     18  6e637369-3024-4f61-8b0e-00000000000a  ncsi     ok\n"
        "nvme0     i2c:2:0x3a     19  6e766d65-304b-4e27-a15c-00000000000b  nvme-mi  ok\n");
}

TEST(Scan, OneBusAlone) {
    expect_text(run_tool({"scan", "--bus", "3"}),
                "ENDPOINT  WHERE       EID  UUID                                  SPEAKS  STATUS\n"
                "gpu0      i2c:3:0x9e   29  67707530-2c4e-4d5f-8a6b-000000000002  pldm    ok\n");
    expect_error(run_tool({"scan", "--bus", "9"}), 1,
                 "sideband-sim: scan: no endpoint is known on I2C bus 9");
    EXPECT_EQ(run_tool({"scan", "--bus", "256"}).status, 2);
}

TEST(Scan, GivesProgramsNumbersAndUuidsWithHyphens) {
    const Json document = one_document(run_tool({"scan", "--json"}).out);
    EXPECT_EQ(document["board"], "desk");
    ASSERT_EQ(document["endpoints"].size(), 11U);
    EXPECT_EQ(document["endpoints"][0], parse_json(R"({
        "endpoint": "nic0", "location": "i2c:2:0x64", "transport": "i2c", "bus": 2, "address": 100,
        "eid": 16, "eid_assigned": true, "uuid": "6e696330-5b0a-4c1d-9f3e-000000000001",
        "message_types": [1], "status": "ok"})"));
    EXPECT_EQ(document["endpoints"][1]["eid_assigned"], false);
    EXPECT_EQ(document["endpoints"][5], parse_json(R"({
        "endpoint": "gpu1", "location": "pcie:47:00.0", "transport": "pcie", "bdf": "47:00.0",
        "eid": 64, "eid_assigned": false, "uuid": "67707531-0c3a-4f7e-b1d6-000000000006",
        "message_types": [1], "status": "ok"})"));
}

TEST_F(OwnBoard, ScanGoesOnBehindADeadEndpointAndEndsWithOne) {
    const Outcome text = run({"scan"});
    EXPECT_EQ(text.status, 1);
    EXPECT_EQ(
        text.out,
        "ENDPOINT  WHERE       EID  UUID                                  SPEAKS        STATUS\n"
        "dev0      i2c:1:0x40   16  00112233-4455-6677-8899-aabbccddeeff  pldm          ok\n"
        "rec0      i2c:2:0x30   12  -                                     pldm nvme-mi  ok\n"
        "dead0     i2c:2:0x50    -  -                                     -             failed\n");
    EXPECT_EQ(
        text.err,
        "sideband-sim: scan: dead0: Get Endpoint ID failed: no acknowledge from i2c:2:0x50\n");

    const Outcome json = run({"--json", "scan"});
    EXPECT_EQ(json.status, 1);
    const Json document = one_document(json.out);
    EXPECT_EQ(document["endpoints"][1]["uuid"], nullptr);
    EXPECT_EQ(document["endpoints"][1]["message_types"], Json::array({1, 4}));
    EXPECT_EQ(document["endpoints"][2]["status"], "failed");
    EXPECT_EQ(document["endpoints"][2]["eid"], nullptr);
    EXPECT_EQ(document["endpoints"][2]["error"]["operation"], "Get Endpoint ID");
}

}  // namespace
