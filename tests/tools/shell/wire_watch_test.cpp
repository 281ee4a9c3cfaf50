// SPDX-License-Identifier: Apache-2.0
// Tests of what the tool tells of the wire: why a request has no answer, and each packet with
// --verbose.
#include <algorithm>
#include <sstream>

#include "tests/tools/tool_runner.h"

namespace {

using tool::Json;
using tool_test::contains;
using tool_test::expect_error;
using tool_test::one_document;
using tool_test::Outcome;
using tool_test::run_on;
using tool_test::run_tool;
using tool_test::TemporaryFile;
using Strings = std::vector<std::string>;

// ---- Why there is no answer ----

/// One device on I2C and one on PCIe, both with the same faults. Answers to "raw DEVICE ncsi 00"
/// take four packets.
std::string faulty_board(const Json& faults) {
    const Json exchanges = Json::array(
        {{{"message_type", 2}, {"request", "00"}, {"response", std::string(2 * 200, 'a')}}});
    const Json on_i2c{{"name", "dev0"},    {"type", "replay"}, {"bus", 1},
                      {"address", "0x40"}, {"eid", 12},        {"exchanges", exchanges},
                      {"faults", faults}};
    const Json owner{
        {"name", "mpio0"}, {"type", "mpio"}, {"transport", "pcie"}, {"bdf", "00:00.0"}};
    const Json on_pcie{{"name", "dev1"},   {"type", "replay"},       {"transport", "pcie"},
                       {"bdf", "41:00.0"}, {"exchanges", exchanges}, {"faults", faults}};
    const Json board{{"name", "faulty"},
                     {"platform", {{"mpio_state", "wanted"}}},
                     {"buses", Json::array({{{"bus", 1}}})},
                     {"devices", Json::array({on_i2c, owner, on_pcie})}};
    return board.dump();
}

/// Expects the error of "raw DEVICE ncsi 00", whose exchange is the one that fails.
void expect_reason(const char* device, Json fault, const std::string& reason) {
    SCOPED_TRACE(device + fault.dump());
    expect_error(run_on(faulty_board(Json::array({fault})), {"raw", device, "ncsi", "00"}), 1,
                 std::string("sideband-sim: raw: ") + device +
                     ": the exchange of message type 0x02 failed: " + reason);
}

// On I2C the first packet is the answer to Get Endpoint ID, which comes first; a function on PCIe
// is looked up in the MPIO's routing table.
constexpr int kBehindDiscovery = 1;

TEST(NoAnswer, NamesTheFaultOnI2c) {
    const std::pair<Json, const char*> cases[] = {
        {{{"kind", "no_ack"}}, "no acknowledge from i2c:1:0x40"},
        {{{"kind", "lost"}}, "no answer"},
        {{{"kind", "lost"}, {"what", "request"}}, "no answer"},
        {{{"kind", "bad_pec"}}, "the answer came with a bad PEC"},
        {{{"kind", "wrong_tag"}}, "the answer carries message tag 3 instead of 2"},
    };
    for (auto [fault, reason] : cases) {
        fault["after"] = kBehindDiscovery;
        expect_reason("dev0", fault, reason);
    }
}

TEST(NoAnswer, NamesTheFaultOnPcie) {
    const std::pair<Json, const char*> cases[] = {
        {{{"kind", "no_ack"}}, "no answer"},
        {{{"kind", "lost"}}, "no answer"},
        {{{"kind", "wrong_tag"}}, "the answer carries message tag 2 instead of 1"},
    };
    for (const auto& [fault, reason] : cases) {
        expect_reason("dev1", fault, reason);
    }
}

TEST(NoAnswer, TellsWhereAPartOfItCame) {
    constexpr int kBehindThirdPacket = kBehindDiscovery + 3;
    for (const char* kind : {"lost", "late"}) {
        Json fault{{"kind", kind}, {"after", kBehindThirdPacket}};
        if (kind == std::string("late")) {
            fault["delay_us"] = 5000000;
        }
        expect_reason("dev0", fault, "only a part of the answer came");
    }
}

TEST(NoAnswer, OfADeviceThatTakesTheThirdAttemptIsNoMissingAcknowledge) {
    const Json faults = Json::array(
        {{{"kind", "no_ack"}, {"after", 1}, {"count", 2}}, {{"kind", "lost"}, {"after", 1}}});
    expect_error(run_on(faulty_board(faults), {"raw", "dev0", "ncsi", "00"}), 1,
                 "sideband-sim: raw: dev0: the exchange of message type 0x02 failed: no answer");
}

TEST(NoAnswer, NamesThePacketThatWasRefusedInTheMiddleOfAMessage) {
    const Json faults = Json::array({{{"kind", "no_ack"}, {"after", 2}, {"count", 3}}});
    std::string request = "00";
    for (int i = 0; i < 150; ++i) {
        request += "00";
    }
    expect_error(run_on(faulty_board(faults), {"raw", "dev0", "ncsi", request}), 1,
                 "sideband-sim: raw: dev0: the exchange of message type 0x02 failed: no "
                 "acknowledge from i2c:1:0x40");
}

TEST(NoAnswer, IsNotPutDownToWhatBefellTheDeviceBefore) {
    const TemporaryFile board(R"({"name": "two", "buses": [{"bus": 1}], "devices": [
        {"name": "dead0", "type": "pldm", "bus": 1, "address": "0x40", "faults": [{"kind": "no_ack"}]},
        {"name": "mute0", "type": "pldm", "bus": 1, "address": "0x50", "faults": [{"kind": "lost"}]}]})");
    const Outcome scan = run_tool({"scan", "--json", "--board", board.path()});
    EXPECT_EQ(scan.status, 1);
    const Json list = one_document(scan.out)["endpoints"];
    ASSERT_EQ(list.size(), 2U);
    EXPECT_EQ(list[0]["error"]["message"],
              "dead0: Get Endpoint ID failed: no acknowledge from i2c:1:0x40");
    EXPECT_EQ(list[1]["error"]["message"], "mute0: Get Endpoint ID failed: no answer");
}

// ---- Packets with --verbose ----

Strings packet_lines(const std::string& text) {
    std::istringstream stream(text);
    Strings lines;
    for (std::string line; std::getline(stream, line);) {
        if (line.starts_with("packet: ")) {
            lines.push_back(line);
        }
    }
    return lines;
}

TEST(Packets, AreShownInOrderWithTimeWayPlaceAndBytes) {
    const Outcome eid = run_on(faulty_board(Json::array()), {"mctp", "eid", "dev0", "--verbose"});
    // Get Endpoint ID twice, at 90 us a byte: 12 bytes out, 16 back, and the device's pause.
    const Strings wanted{
        "packet:   0.001080 > i2c:1:0x40  01 00 08 c9  00 80 02",
        "packet:   0.003020 < i2c:1:0x40  01 08 0c c1  00 00 02 00 0c 02 00",
        "packet:   0.004100 > i2c:1:0x40  01 0c 08 ca  00 81 02",
        "packet:   0.006040 < i2c:1:0x40  01 08 0c c2  00 01 02 00 0c 02 00",
    };
    EXPECT_EQ(packet_lines(eid.err), wanted) << eid.err;
}

TEST(Packets, AreShownForEveryCommandAndStandardOutputStaysAsItIs) {
    const Strings commands[] = {{"scan"},
                                {"demo"},
                                {"mctp", "eid", "nic0"},
                                {"mctp", "routes", "mpio0"},
                                {"raw", "nic0", "pldm", "800002"},
                                {"pldm", "info", "gpu1"},
                                {"pldm", "fru", "nic0"},
                                {"pldm", "pdr", "list", "gpu0"},
                                {"pldm", "fw-info", "nic0"},
                                {"ncsi", "link", "ncsi0"},
                                {"nvme", "health", "nvme0"}};
    for (Strings arguments : commands) {
        SCOPED_TRACE(arguments[0]);
        arguments.emplace_back("--json");
        const Outcome quiet = run_tool(arguments);
        arguments.emplace_back("--verbose");
        const Outcome verbose = run_tool(arguments);
        EXPECT_EQ(verbose.status, quiet.status);
        EXPECT_EQ(verbose.out, quiet.out);
        const Strings lines = packet_lines(verbose.err);
        EXPECT_TRUE(std::any_of(lines.begin(), lines.end(),
                                [](const std::string& line) { return contains(line, " > "); }));
        EXPECT_TRUE(std::any_of(lines.begin(), lines.end(),
                                [](const std::string& line) { return contains(line, " < "); }));
        EXPECT_TRUE(packet_lines(quiet.err).empty());
    }
}

TEST(Packets, AreAsManyAsInTheCapture) {
    const TemporaryFile capture("");
    const Outcome scan = run_tool({"scan", "--verbose", "--capture", capture.path()});
    const std::string content = capture.content();
    size_t captured = 0;
    for (size_t at = content.find("BMC to device"); at != std::string::npos;
         at = content.find("BMC to device", at + 1)) {
        ++captured;
    }
    const Strings lines = packet_lines(scan.err);
    EXPECT_GT(captured, 30U);
    EXPECT_EQ(static_cast<size_t>(
                  std::count_if(lines.begin(), lines.end(),
                                [](const std::string& line) { return contains(line, " > "); })),
              captured);
}

TEST(Packets, ThatFailTellHow) {
    const auto shown = [](const char* device, const Json& fault) {
        return packet_lines(
            run_on(faulty_board(Json::array({fault})), {"raw", device, "ncsi", "00", "--verbose"})
                .err);
    };
    const Strings refused = shown("dev0", {{"kind", "no_ack"}});
    ASSERT_EQ(refused.size(), 3U);
    for (const std::string& line : refused) {
        EXPECT_TRUE(line.ends_with("> i2c:1:0x40  01 00 08 c9  00 80 02  (no acknowledge)"))
            << line;
    }
    const Strings spoilt = shown("dev0", {{"kind", "bad_pec"}});
    ASSERT_EQ(spoilt.size(), 2U);
    EXPECT_TRUE(spoilt[1].ends_with("  (bad PEC)")) << spoilt[1];
    const Strings lost = shown("dev1", {{"kind", "no_ack"}});
    ASSERT_FALSE(lost.empty());
    EXPECT_TRUE(lost.back().ends_with("  (lost)")) << lost.back();
}

TEST(Packets, BeginALineOfTheirOwn) {
    // A dump of a packet that is dropped ends without a line end.
    const Outcome raw = run_on(faulty_board(Json::array({{{"kind", "wrong_tag"}, {"count", 1}}})),
                               {"raw", "dev0", "ncsi", "00", "--verbose"});
    EXPECT_TRUE(contains(raw.err, "Dumping Packets")) << raw.err;
    EXPECT_FALSE(contains(raw.err, "=packet: ")) << raw.err;
    EXPECT_FALSE(contains(raw.err, "=sideband-sim: ")) << raw.err;
}

}  // namespace
