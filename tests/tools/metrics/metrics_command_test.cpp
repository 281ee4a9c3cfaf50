// SPDX-License-Identifier: Apache-2.0
// Tests of the command metrics: what it says of devices, of those that are silent and hostile too.
#include <cstdio>
#include <cstdlib>

#include "tests/tools/tool_runner.h"

namespace {

using tool_test::contains;
using tool_test::has_control;
using tool_test::one_document;
using tool_test::Outcome;
using tool_test::OwnBoard;
using tool_test::run_on;
using tool_test::run_tool;
using tool_test::TemporaryFile;

/// What promtool has against a text; nothing if it is content.
std::string complaints(const std::string& text) {
    const TemporaryFile file(text);
    const std::string command = "promtool check metrics < " + file.path() + " 2>&1";
    std::string said;
    FILE* pipe = popen(command.c_str(), "r");
    char block[4096];
    for (size_t got; pipe != nullptr && (got = std::fread(block, 1, sizeof block, pipe)) > 0;) {
        said.append(block, got);
    }
    const int status = pipe != nullptr ? pclose(pipe) : -1;
    return status == 0 ? said : said + "exit status " + std::to_string(status);
}

bool has_promtool() {
    return std::system("command -v promtool >/dev/null") == 0;
}

TEST_F(OwnBoard, MetricsOfOneEndpoint) {
    const Outcome run_of = run({"metrics", "dev0"});
    EXPECT_EQ(run_of.status, 0) << run_of.err;
    for (const char* line :
         {"sideband_endpoint_info{endpoint=\"dev0\",location=\"i2c:1:0x40\",eid=\"",
          "\nsideband_endpoint_up{endpoint=\"dev0\"} 1\n",
          "\nsideband_endpoint_scrape_errors{endpoint=\"dev0\"} 0\n",
          "\n# UNIT sideband_endpoint_scrape_duration_seconds seconds\n",
          "\nsideband_sensor_temperature_celsius{endpoint=\"dev0\",sensor=\"12\",type=\"numeric\","
          "name=\"inlet\",entity=\"\"} -21.5\n",
          "\nsideband_sensor_operational_state{endpoint=\"dev0\",sensor=\"13\",type=\"numeric\","
          "name=\"outlet\",entity=\"\"} 1\n",
          "sensor=\"5\",type=\"state\",name=\"health\",entity=\"\",composite=\"0\",state_set=\"",
          "sensor=\"5\",type=\"state\",name=\"health\",entity=\"\",composite=\"1\"} 4\n"}) {
        EXPECT_TRUE(contains(run_of.out, line)) << line << "\n" << run_of.out;
    }
    EXPECT_TRUE(run_of.out.ends_with("\n# EOF\n"));
    EXPECT_FALSE(contains(run_of.out, "rec0"));
}

TEST_F(OwnBoard, MetricsOfASilentEndpointSayThatItIsDown) {
    const Outcome both = run({"metrics", "dead0", "dev0", "dead0"});
    EXPECT_EQ(both.status, 1);
    EXPECT_TRUE(contains(both.out, "sideband_endpoint_up{endpoint=\"dead0\"} 0\n")) << both.out;
    EXPECT_TRUE(contains(both.out, "sideband_endpoint_up{endpoint=\"dev0\"} 1\n"));
    EXPECT_TRUE(contains(both.out, "sideband_endpoint_scrape_errors{endpoint=\"dead0\"} 1\n"));
    EXPECT_EQ(both.err,
              "sideband-sim: metrics: dead0: Get Endpoint ID failed: no acknowledge from "
              "i2c:2:0x50\n");
}

TEST_F(OwnBoard, MetricsAsOneDocument) {
    const Outcome run_of = run({"metrics", "dev0", "--json"});
    EXPECT_EQ(run_of.status, 0) << run_of.err;
    const auto metrics = one_document(run_of.out).at("metrics");
    ASSERT_GT(metrics.size(), 5U);
    EXPECT_EQ(metrics[0].at("name"), "sideband_build_info");
    EXPECT_EQ(metrics[0].at("samples")[0].at("labels").dump(),
              R"({"version":")" SIDEBAND_VERSION R"("})");
}

TEST(Metrics, OfTheBuiltInBoardAreComplete) {
    const Outcome run = run_tool({"metrics"});
    EXPECT_EQ(run.status, 0) << run.err;
    for (const char* part :
         {"sideband_ncsi_link_up{endpoint=\"ncsi0\",channel=\"0\"} ",
          "sideband_ncsi_link_speed_bytes{endpoint=\"ncsi0\",",
          "sideband_firmware_info{endpoint=\"nic0\",component=\"10:1:0\",version=\"22.40.1000\","
          "pending=\"\"} 1\n",
          "sideband_firmware_info{endpoint=\"nvme0\",component=\"controller 0\",version=\"ES10\","
          "pending=\"\"} 1\n",
          "sideband_nvme_smart_temperature_celsius{endpoint=\"nvme0\",controller=\"0\"} ",
          "sideband_nvme_smart_read_bytes{endpoint=\"nvme0\",controller=\"0\"} 9346206720000\n",
          "sideband_nvme_smart_power_on_seconds{endpoint=\"nvme0\",controller=\"0\"} 31554000\n",
          "sideband_nvme_smart_used_ratio{endpoint=\"nvme0\",controller=\"0\"} 0.02\n",
          "sideband_nvme_controller_ready{endpoint=\"nvme0\",controller=\"0\"} 1\n",
          "sideband_sensor_power_watts{endpoint=\"gpu0\",sensor=\"2\","}) {
        EXPECT_TRUE(contains(run.out, part)) << part << "\n" << run.out;
    }
    if (!has_promtool()) {
        GTEST_SKIP() << "promtool is not installed: its opinion is not asked";
    }
    EXPECT_EQ(complaints(run.out), "");
    EXPECT_NE(complaints("a_total 1\n"), "") << "it has an opinion";
}

TEST(Metrics, HostileNamesStayInTheirLabels) {
    const char* const board = R"({
      "name": "hostile", "buses": [{"bus": 1}],
      "devices": [{"name": "dev0", "type": "pldm", "bus": 1, "address": "0x40",
        "sensors": [
          {"kind": "numeric", "id": 1, "name": "a\"} 1\n# EOF\nb{c=\"", "unit": "\u001b[31m\"\\", "pdr": false,
           "waveform": {"shape": "constant", "value": 5}},
          {"kind": "numeric", "id": 2, "name": "\u009b\u0000x\ufffd\ud83d\ude00", "unit": "degC", "pdr": false,
           "waveform": {"shape": "constant", "value": 6}}]}]})";
    const Outcome run = run_on(board, {"metrics"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_FALSE(has_control(run.out)) << run.out;
    EXPECT_TRUE(contains(run.out,
                         "sideband_sensor_reading{endpoint=\"dev0\",sensor=\"1\",type=\"numeric\","
                         "name=\"a\\\"} 1\\\\x0a# EOF\\\\x0ab{c=\\\"\",entity=\"\","
                         "unit=\"\\\\x1b[31m\\\"\\\\\"} 5\n"))
        << run.out;
    EXPECT_EQ(run.out.find("\n# EOF\n") + 7, run.out.size()) << "one end mark, at the end";
    if (!has_promtool()) {
        GTEST_SKIP() << "promtool is not installed: its opinion is not asked";
    }
    EXPECT_EQ(complaints(run.out), "");
}

}  // namespace
