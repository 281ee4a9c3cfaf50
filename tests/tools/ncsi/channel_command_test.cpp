// SPDX-License-Identifier: Apache-2.0
// Tests of ncsi discover, link, select and deselect.
#include "tests/tools/ncsi/controller_bench.h"

namespace {

using tool::Json;
using tool_test::ControllerBench;
using tool_test::expect_error;
using tool_test::expect_json;
using tool_test::expect_text;
using tool_test::one_document;
using tool_test::Outcome;

TEST(NcsiDiscover, ListsTheChannelsThatAnswer) {
    expect_text(ControllerBench().run({"ncsi", "discover", "nc0"}),
                "CHANNEL  ID    PACKAGE\n"
                "      0  0x20        1\n"
                "      2  0x22        1\n");
    expect_json(ControllerBench().run({"ncsi", "discover", "nc0", "--json"}), R"({"endpoint": "nc0",
        "package_id": 1, "channels": [{"channel": 0, "channel_id": 32},
                                      {"channel": 2, "channel_id": 34}]})");
}

TEST(NcsiLink, ShowsEveryChannel) {
    expect_text(ControllerBench().run({"ncsi", "link", "nc0"}),
                "CHANNEL  ID    LINK  SPEED    AUTONEGOTIATION\n"
                "      0  0x20  up    25 Gbps  complete\n"
                "      2  0x22  down  -        not complete\n");
    expect_text(ControllerBench().run({"ncsi", "link", "nc0", "--channel", "2"}),
                "CHANNEL  ID    LINK  SPEED  AUTONEGOTIATION\n"
                "      2  0x22  down  -      not complete\n");
}

TEST(NcsiLink, GivesProgramsTheFieldsOfTheStandard) {
    expect_json(ControllerBench().run({"--json", "ncsi", "link", "nc0"}), R"({"endpoint": "nc0",
        "channels": [
          {"channel": 0, "channel_id": 32, "link_flag": true, "speed_and_duplex": 10,
           "speed_and_duplex_name": "25 Gbps", "auto_negotiate_complete": true},
          {"channel": 2, "channel_id": 34, "link_flag": false, "speed_and_duplex": 0,
           "speed_and_duplex_name": "Auto-negotiate not complete",
           "auto_negotiate_complete": false}]})");
}

TEST(NcsiLink, TakesTheExtendedSpeedWhereThereIsOne) {
    ControllerBench bench;
    bench.channel(0)["speed"] = 15;
    bench.channel(0)["extended_speed"] = 0x12;
    Json link = one_document(bench.run({"ncsi", "link", "nc0", "--json"}).out)["channels"][0];
    EXPECT_EQ(link["speed_and_duplex"], 0x12);
    EXPECT_EQ(link["speed_and_duplex_name"], "400 Gbps");

    bench.channel(0)["extended_speed"] = 0;
    link = one_document(bench.run({"ncsi", "link", "nc0", "--json"}).out)["channels"][0];
    EXPECT_EQ(link["speed_and_duplex_name"], "Auto-negotiate not complete")
        << "the field referred to is 0";

    bench.channel(0)["extended_speed"] = 0xEE;
    link = one_document(bench.run({"ncsi", "link", "nc0", "--json"}).out)["channels"][0];
    EXPECT_EQ(link["speed_and_duplex_name"], "speed 0xee");
}

TEST(NcsiLink, OneChannelThatFailsDoesNotHideTheOther) {
    ControllerBench bench;
    bench.fault(
        R"({"kind": "codes", "command": "get_link_status", "response": 1, "reason": 2566})");
    const std::string error =
        "nc0: Get Link Status of channel 0 failed: response code 0x0001 (Command Failed), reason "
        "code 0x0a06 (Link Command Failed-Hardware Access Error)";
    const Outcome text = bench.run({"ncsi", "link", "nc0"});
    EXPECT_EQ(text.status, 1);
    EXPECT_EQ(text.err, "sideband-sim: ncsi link: " + error + "\n");
    EXPECT_EQ(text.out,
              "CHANNEL  ID    LINK    SPEED  AUTONEGOTIATION\n"
              "      0  0x20  failed  -      -\n"
              "      2  0x22  down    -      not complete\n");
    const Json link = one_document(bench.run({"ncsi", "link", "nc0", "--json"}).out)["channels"][0];
    const Json wanted{{"message", error},
                      {"endpoint", "nc0"},
                      {"operation", "Get Link Status of channel 0"},
                      {"cause", "device-code"},
                      {"response_code", 1},
                      {"response_code_name", "Command Failed"},
                      {"reason_code", 0x0A06},
                      {"reason_code_name", "Link Command Failed-Hardware Access Error"}};
    EXPECT_EQ(link["error"].dump(), wanted.dump());
}

TEST(NcsiPackage, IsSelectedAndDeselected) {
    expect_text(ControllerBench().run({"ncsi", "select", "nc0", "1"}), "package 1 is selected\n");
    expect_json(ControllerBench().run({"ncsi", "deselect", "nc0", "1", "--json"}),
                R"({"endpoint": "nc0", "package_id": 1, "selected": false})");
    expect_error(ControllerBench().run({"ncsi", "select", "nc0", "5"}), 1,
                 "sideband-sim: ncsi select: nc0: Select Package 5 failed: no answer");
}

}  // namespace
