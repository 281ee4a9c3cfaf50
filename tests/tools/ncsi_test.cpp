// SPDX-License-Identifier: Apache-2.0
// Tests of what the tool shows of network controllers, and how it changes their settings.
#include "tool_runner.h"
#include "tools/shell/codes.h"

namespace {

using tool_test::contains;
using tool_test::expect_error;
using tool_test::expect_json;
using tool_test::expect_text;
using tool_test::one_document;
using tool_test::Outcome;
using tool_test::run_on;
using Json = nlohmann::ordered_json;

/// A board with a controller of two ports in package 1, a PLDM terminus and a silent device.
class Bench {
public:
    Bench()
        : controller_(Json::parse(R"({
            "packages": [{"id": 1, "card_tlv": "f167a50102", "channels": [
              {"id": 0, "speed": 10, "preboot_config": "5a00f123", "mac": "02005e100001"},
              {"id": 2, "link": false, "speed": 0, "autoneg_done": false}]}],
            "temperatures": [
              {"id": 0, "waveform": {"shape": "constant", "value": 52}},
              {"id": 3, "waveform": {"shape": "constant", "value": 255}}]})")) {}

    Json& controller() { return controller_; }
    Json& channel(size_t index) { return controller_["packages"][0]["channels"][index]; }
    Bench& fault(const std::string& text) {
        controller_["faults"].push_back(Json::parse(text));
        return *this;
    }

    Outcome run(const std::vector<std::string>& arguments) const {
        Json board = Json::parse(R"({"name": "bench", "buses": [{"bus": 1, "clock_hz": 400000}],
            "devices": [{"name": "nc0", "type": "ncsi", "bus": 1, "address": "0x62"},
                        {"name": "gpu0", "type": "pldm", "bus": 1, "address": "0x9e"},
                        {"name": "dead0", "type": "pldm", "bus": 1, "address": "0x50",
                         "faults": [{"kind": "no_ack"}]}]})");
        board["devices"][0]["controller"] = controller_;
        return run_on(board.dump(1), arguments);
    }

private:
    Json controller_;
};

const std::string kUnsupported =
    "response code 0x0003 (Command Unsupported), reason code 0x7fff (Unknown / Unsupported Command "
    "Type)";

TEST(NcsiDiscover, ListsTheChannelsThatAnswer) {
    expect_text(Bench().run({"ncsi", "discover", "nc0"}),
                "CHANNEL  ID    PACKAGE\n"
                "      0  0x20        1\n"
                "      2  0x22        1\n");
    expect_json(Bench().run({"ncsi", "discover", "nc0", "--json"}), R"({"endpoint": "nc0",
        "package_id": 1, "channels": [{"channel": 0, "channel_id": 32},
                                      {"channel": 2, "channel_id": 34}]})");
}

TEST(NcsiLink, ShowsEveryChannel) {
    expect_text(Bench().run({"ncsi", "link", "nc0"}),
                "CHANNEL  ID    LINK  SPEED    AUTONEGOTIATION\n"
                "      0  0x20  up    25 Gbps  complete\n"
                "      2  0x22  down  -        not complete\n");
    expect_text(Bench().run({"ncsi", "link", "nc0", "--channel", "2"}),
                "CHANNEL  ID    LINK  SPEED  AUTONEGOTIATION\n"
                "      2  0x22  down  -      not complete\n");
}

TEST(NcsiLink, GivesProgramsTheFieldsOfTheStandard) {
    expect_json(Bench().run({"--json", "ncsi", "link", "nc0"}), R"({"endpoint": "nc0",
        "channels": [
          {"channel": 0, "channel_id": 32, "link_flag": true, "speed_and_duplex": 10,
           "speed_and_duplex_name": "25 Gbps", "auto_negotiate_complete": true},
          {"channel": 2, "channel_id": 34, "link_flag": false, "speed_and_duplex": 0,
           "speed_and_duplex_name": "Auto-negotiate not complete",
           "auto_negotiate_complete": false}]})");
}

TEST(NcsiLink, TakesTheExtendedSpeedWhereThereIsOne) {
    Bench bench;
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
    Bench bench;
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
                      {"response_code", 1},
                      {"response_code_name", "Command Failed"},
                      {"reason_code", 0x0A06},
                      {"reason_code_name", "Link Command Failed-Hardware Access Error"}};
    EXPECT_EQ(link["error"].dump(), wanted.dump());
}

TEST(NcsiPackage, IsSelectedAndDeselected) {
    expect_text(Bench().run({"ncsi", "select", "nc0", "1"}), "package 1 is selected\n");
    expect_json(Bench().run({"ncsi", "deselect", "nc0", "1", "--json"}),
                R"({"endpoint": "nc0", "package_id": 1, "selected": false})");
    expect_error(Bench().run({"ncsi", "select", "nc0", "5"}), 1,
                 "sideband-sim: ncsi select: nc0: Select Package 5 failed: no answer");
}

TEST(NcsiOem, ReadsThePrebootServerConfig) {
    expect_text(Bench().run({"ncsi", "oem", "brcm-preboot", "get", "nc0"}),
                "flag   1\n"
                "value  0x0123\n");
    expect_json(Bench().run({"ncsi", "oem", "brcm-preboot", "get", "nc0", "--json"}),
                R"({"endpoint": "nc0", "channel": 0, "channel_id": 32, "flag": 1, "value": 291})");
}

TEST(NcsiOem, WritesThePrebootServerConfig) {
    expect_text(Bench().run({"ncsi", "oem", "brcm-preboot", "set", "nc0", "--flag", "0", "--value",
                             "2748"}),
                "       BEFORE  AFTER\n"
                "flag   1       0\n"
                "value  0x0123  0x0abc\n");
}

TEST(NcsiOem, LeavesWhatIsNotAskedFor) {
    expect_json(
        Bench().run({"ncsi", "oem", "brcm-preboot", "set", "nc0", "--value", "1", "--json"}),
        R"({"endpoint": "nc0", "channel": 0, "channel_id": 32,
                    "before": {"flag": 1, "value": 291}, "after": {"flag": 1, "value": 1}})");
    expect_json(Bench().run({"ncsi", "oem", "mlx-tlv", "set", "nc0", "--flag", "0", "--json"}),
                R"({"endpoint": "nc0", "channel": 0, "channel_id": 32,
                    "before": {"flag": 1, "value": 258}, "after": {"flag": 0, "value": 258}})");
}

TEST(NcsiOem, ReadsAndWritesTheCardTlv) {
    expect_text(Bench().run({"ncsi", "oem", "mlx-tlv", "get", "nc0"}),
                "flag   1\n"
                "value  0x0102\n");
    expect_text(Bench().run({"ncsi", "oem", "mlx-tlv", "set", "nc0", "--value", "65535"}),
                "       BEFORE  AFTER\n"
                "flag   1       1\n"
                "value  0x0102  0xffff\n");
}

TEST(NcsiOem, ReadsTheMacAddress) {
    expect_text(Bench().run({"ncsi", "oem", "mlx-mac", "nc0"}), "02:00:5e:10:00:01\n");
    expect_json(Bench().run({"ncsi", "oem", "mlx-mac", "nc0", "--json"}),
                R"({"endpoint": "nc0", "channel": 0, "channel_id": 32,
                    "mac_address": "02005e100001"})");
}

TEST(NcsiOem, ReadsTemperatures) {
    expect_text(Bench().run({"ncsi", "oem", "mlx-temp", "nc0"}), "52 degC\n");
    expect_json(Bench().run({"ncsi", "oem", "mlx-temp", "nc0", "--sensor", "3", "--json"}),
                R"({"endpoint": "nc0", "channel": 0, "channel_id": 32, "sensor": 3,
                    "temperature": 255, "unit": "degC"})");
    expect_error(Bench().run({"ncsi", "oem", "mlx-temp", "nc0", "--sensor", "7"}), 1,
                 "sideband-sim: ncsi oem mlx-temp: nc0: Get Temperature of sensor 7 of channel 0 "
                 "failed: response code 0x0001 (Command Failed), reason code 0x0002 (Parameter Is "
                 "Invalid, Unsupported, or Out-of-Range)");
}

TEST(NcsiOem, AnotherMakersCommandIsRefusedByTheController) {
    Bench bench;
    bench.channel(0).erase("preboot_config");
    bench.channel(0).erase("mac");
    bench.controller()["packages"][0].erase("card_tlv");
    bench.controller().erase("temperatures");
    expect_error(bench.run({"ncsi", "oem", "brcm-preboot", "get", "nc0"}), 1,
                 "sideband-sim: ncsi oem brcm-preboot get: nc0: reading the preboot server config "
                 "of channel 0 failed: " +
                     kUnsupported);
    expect_error(bench.run({"ncsi", "oem", "mlx-tlv", "set", "nc0", "--flag", "1"}), 1,
                 "sideband-sim: ncsi oem mlx-tlv set: nc0: reading the card TLV of channel 0 "
                 "failed: " +
                     kUnsupported);
    expect_error(bench.run({"ncsi", "oem", "mlx-mac", "nc0"}), 1,
                 "sideband-sim: ncsi oem mlx-mac: nc0: Get PF MAC Address of channel 0 failed: " +
                     kUnsupported);
    expect_error(bench.run({"ncsi", "oem", "mlx-temp", "nc0"}), 1,
                 "sideband-sim: ncsi oem mlx-temp: nc0: Get Temperature of sensor 0 of channel 0 "
                 "failed: " +
                     kUnsupported);
}

TEST(NcsiOem, ASetThatIsRefusedNamesItself) {
    Bench bench;
    bench.fault(R"({"kind": "codes", "command": "set_preboot_config", "response": 32769,
                    "reason": 32770})");
    expect_error(bench.run({"ncsi", "oem", "brcm-preboot", "set", "nc0", "--flag", "1"}), 1,
                 "sideband-sim: ncsi oem brcm-preboot set: nc0: writing the preboot server config "
                 "of channel 0 failed: response code 0x8001 (vendor specific), reason code 0x8002 "
                 "(vendor specific)");
}

TEST(HostileNcsi, AnswersThatDoNotFitAreReported) {
    const std::pair<const char*, const char*> cases[] = {
        {R"({"kind": "no_answer", "command": "get_link_status"})", "no answer"},
        {R"({"kind": "other_command", "command": "get_link_status", "value": 10})",
         "the answer does not fit the request"},
        {R"({"kind": "truncate", "command": "get_link_status", "length": 3})",
         "the answer has 3 bytes only"},
        {R"({"kind": "truncate", "command": "get_link_status", "length": 19})",
         "the answer has 19 bytes only"},
        {R"({"kind": "truncate", "command": "get_link_status", "length": 23})",
         "the answer has 23 bytes only"},
    };
    for (const auto& [fault, reason] : cases) {
        SCOPED_TRACE(fault);
        Bench bench;
        bench.fault(fault);
        const Outcome run = bench.run({"ncsi", "link", "nc0", "--channel", "0"});
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(
            run.err,
            std::string("sideband-sim: ncsi link: nc0: Get Link Status of channel 0 failed: ") +
                reason + "\n");
    }
}

TEST(HostileNcsi, AnAnswerOfAnotherChannelIsTakenAllTheSame) {
    const std::vector<std::string> link = {"ncsi", "link", "nc0", "--channel", "0"};
    Bench bench;
    const Outcome honest = bench.run(link);
    bench.fault(R"({"kind": "other_channel", "command": "get_link_status", "value": 33})");
    const Outcome run = bench.run(link);
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_NE(honest.out, "");
    EXPECT_EQ(run.out, honest.out);
}

TEST(HostileNcsi, AMacAddressThatIsCutIsNoAddress) {
    Bench bench;
    bench.fault(R"({"kind": "truncate", "command": "get_pf_mac_address", "length": 33})");
    expect_error(bench.run({"ncsi", "oem", "mlx-mac", "nc0"}), 1,
                 "sideband-sim: ncsi oem mlx-mac: nc0: Get PF MAC Address of channel 0 failed: the "
                 "answer has 33 bytes only");
}

TEST(NcsiErrors, ADeviceThatIsNoControllerIsNotSearchedForChannels) {
    expect_error(Bench().run({"ncsi", "discover", "gpu0"}), 1,
                 "sideband-sim: ncsi discover: gpu0: the discovery of NC-SI channels failed: the "
                 "device does not speak NC-SI");
    expect_error(
        Bench().run({"ncsi", "link", "dead0"}), 1,
        "sideband-sim: ncsi link: dead0: Get Endpoint ID failed: no acknowledge from i2c:1:0x50");
}

TEST(NcsiErrors, AControllerWhoseChannelsDoNotAnswerIsReported) {
    Bench silent;
    silent.fault(R"({"kind": "no_answer", "command": "clear_initial_state", "count": 0})");
    expect_error(silent.run({"ncsi", "discover", "nc0"}), 1,
                 "sideband-sim: ncsi discover: nc0: the discovery of NC-SI channels failed: no "
                 "answer");
    Bench refusing;
    refusing.controller()["packages"][0]["id"] = 0;
    refusing.fault(R"({"kind": "codes", "command": "clear_initial_state", "count": 0,
                       "response": 2, "reason": 4})");
    expect_error(refusing.run({"ncsi", "discover", "nc0"}), 1,
                 "sideband-sim: ncsi discover: nc0: the discovery of NC-SI channels failed: "
                 "response code 0x0002 (Command Unavailable), reason code 0x0004 (Package Not "
                 "Ready)");
}

TEST(NcsiErrors, AChannelThatIsNotThereEndsWithOne) {
    const Outcome link = Bench().run({"ncsi", "link", "nc0", "--channel", "1"});
    expect_error(link, 1,
                 "sideband-sim: ncsi link: nc0: no channel 1 has been found; it has: 0, 2");
    expect_error(Bench().run({"ncsi", "oem", "mlx-temp", "nc0", "--channel", "7"}), 1,
                 "sideband-sim: ncsi oem mlx-temp: nc0: no channel 7 has been found; it has: 0, 2");
}

TEST(NcsiErrors, WrongUsageEndsWithTwo) {
    const std::pair<std::vector<std::string>, const char*> cases[] = {
        {{"ncsi"}, "ncsi: a command is required"},
        {{"ncsi", "oem"}, "ncsi oem: a command is required"},
        {{"ncsi", "select", "nc0"}, "ncsi select: PACKAGE is required"},
        {{"ncsi", "select", "nc0", "8"}, "ncsi select: PACKAGE: Value 8 not in range 0 to 7"},
        {{"ncsi", "link", "nc0", "--channel", "8"},
         "ncsi link: --channel: Value 8 not in range 0 to 7"},
        {{"ncsi", "oem", "brcm-preboot", "set", "nc0"},
         "ncsi oem brcm-preboot set: --flag or --value is required"},
        {{"ncsi", "oem", "brcm-preboot", "set", "nc0", "--value", "4096"},
         "ncsi oem brcm-preboot set: --value: Value 4096 not in range 0 to 4095"},
        {{"ncsi", "oem", "mlx-tlv", "set", "nc0", "--flag", "2"},
         "ncsi oem mlx-tlv set: --flag: Value 2 not in range 0 to 1"},
        {{"ncsi", "oem", "mlx-temp", "nc0", "--sensor", "256"},
         "ncsi oem mlx-temp: --sensor: Value 256 not in range 0 to 255"},
    };
    for (const auto& [arguments, text] : cases) {
        SCOPED_TRACE(text);
        expect_error(Bench().run(arguments), 2,
                     std::string("sideband-sim: ") + text + " (try --help)");
    }
}

TEST(NcsiDemo, ShowsTheLinksOfEachController) {
    const Outcome demo = Bench().run({"demo", "--json"});
    const Json document = one_document(demo.out);
    bool shown = false;
    for (const Json& step : document["steps"]) {
        if (step["title"] == "Network links") {
            shown = true;
            EXPECT_EQ(step["endpoint"], "nc0");
            EXPECT_EQ(step["outcome"], "ok");
            EXPECT_EQ(step["result"], "2 channels, 1 up, 52 degC");
            EXPECT_EQ(step["details"]["temperature"], 52);
            EXPECT_EQ(step["details"]["channels"].size(), 2U);
        }
    }
    EXPECT_TRUE(shown) << demo.out;
}

TEST(NcsiDemo, LeavesOutATemperatureThatIsAnotherMakers) {
    Bench bench;
    bench.controller().erase("temperatures");
    const Outcome demo = bench.run({"demo"});
    EXPECT_TRUE(contains(demo.out, "2 channels, 1 up")) << demo.out;
    EXPECT_FALSE(contains(demo.out, "degC")) << demo.out;
}

TEST(NcsiNames, AreThoseOfTheStandard) {
    EXPECT_EQ(tool::ncsi_speed_name(0x01), "10BASE-T half-duplex");
    EXPECT_EQ(tool::ncsi_speed_name(0x07), "1000BASE-T full-duplex");
    EXPECT_EQ(tool::ncsi_speed_name(0x0D), "100 Gbps");
    EXPECT_EQ(tool::ncsi_speed_name(0x0E), "2.5 Gbps");
    EXPECT_EQ(tool::ncsi_speed_name(0x0F), "5 Gbps");
    EXPECT_EQ(tool::ncsi_speed_name(0x14), "speed 0x14");
    EXPECT_EQ(tool::ncsi_speed_name(0xFF), "speed 0xff");
    EXPECT_EQ(tool::ncsi_response_name(0x0005), "reserved");
    EXPECT_EQ(tool::ncsi_response_name(0xFFFF), "vendor specific");
    EXPECT_EQ(tool::ncsi_reason_name(0x0001), "Interface Initialization Required");
    EXPECT_EQ(tool::ncsi_reason_name(0x0B07), "VLAN Tag Is Invalid");
    EXPECT_EQ(tool::ncsi_reason_name(0x0B08), "command specific");
    EXPECT_EQ(tool::ncsi_reason_name(0x000A), "Secondary Device Not Powered");
    EXPECT_EQ(tool::ncsi_reason_name(0x000B), "reserved");
    EXPECT_EQ(tool::ncsi_reason_name(0x8000), "vendor specific");
}

}  // namespace
