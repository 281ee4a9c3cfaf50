// SPDX-License-Identifier: Apache-2.0
// Tests of the tour: its steps, its summary, what it says of a board that is not well.
#include "tests/tools/tool_runner.h"

namespace {

using tool::Json;
using tool_test::contains;
using tool_test::one_document;
using tool_test::Outcome;
using tool_test::OwnBoard;
using tool_test::run_tool;
using tool_test::TemporaryFile;

const Json& step_titled(const Json& document, const char* title) {
    for (const Json& step : document["steps"]) {
        if (step["title"] == title) {
            return step;
        }
    }
    static const Json kNone;
    ADD_FAILURE() << "no step " << title;
    return kNone;
}

TEST(Demo, SucceedsOnTheBuiltInBoard) {
    const Outcome demo = run_tool({"demo"});
    EXPECT_EQ(demo.status, 0);
    EXPECT_EQ(demo.err, "");
    EXPECT_TRUE(contains(demo.out, "\nSummary\n")) << demo.out;
    EXPECT_TRUE(contains(demo.out, "\nThe buses\n")) << demo.out;
    EXPECT_TRUE(contains(demo.out, " 0 failed, 0 skipped, in ")) << demo.out;
}

TEST(Demo, IsTheSameEveryTime) {
    EXPECT_EQ(run_tool({"demo"}).out, run_tool({"demo"}).out);
    EXPECT_EQ(run_tool({"demo", "--json"}).out, run_tool({"demo", "--json"}).out);
}

TEST(Demo, GivesProgramsOneDocumentWithTheSteps) {
    const Outcome demo = run_tool({"--json", "demo"});
    EXPECT_EQ(demo.status, 0);
    const Json document = one_document(demo.out);
    EXPECT_EQ(document["failed"], 0);
    EXPECT_EQ(document["ok"], document["steps"].size());
    uint64_t time = 0;
    for (const Json& step : document["steps"]) {
        EXPECT_EQ(step["outcome"], "ok") << step.dump();
        EXPECT_GE(step["virtual_time_us"].get<uint64_t>(), time);
        time = step["virtual_time_us"].get<uint64_t>();
    }
    for (const Json& bus : document["buses"]) {
        EXPECT_GT(bus["payload_bytes"].get<int>(), 0);
        EXPECT_GT(bus["bytes"].get<int>(), bus["payload_bytes"].get<int>());
        // Nine bit times a byte.
        EXPECT_EQ(bus["busy_ns"].get<uint64_t>(),
                  bus["bytes"].get<uint64_t>() * 9 * 1000000000 / bus["clock_hz"].get<uint64_t>());
    }
}

TEST(Demo, ShowsReadingsThatMove) {
    const Json document = one_document(run_tool({"demo", "--json"}).out);
    const Json& readings = step_titled(document, "Numeric sensors")["details"];
    ASSERT_GE(readings.size(), 2U);
    const Json& first = readings[0]["sensors"][0]["present_reading"];
    const Json& last = readings.back()["sensors"][0]["present_reading"];
    EXPECT_TRUE(first.is_integer());
    EXPECT_NE(first, last);
}

TEST(Demo, RefusesAccessWhileThePowerIsOff) {
    const Json document = one_document(run_tool({"demo", "--json"}).out);
    EXPECT_EQ(step_titled(document, "Power off")["details"]["refusal"],
              "nic0: GetSensorReading of sensor 1 failed: the host's main power is off");
    EXPECT_EQ(step_titled(document, "A question refused")["details"]["completion_code"], 128);
}

TEST(Demo, ShowsWhatOnlyAStrictContextNotices) {
    const Json document = one_document(run_tool({"demo", "--json"}).out);
    const Json& details = step_titled(document, "To the letter")["details"];
    EXPECT_EQ(details["fault"]["kind"], "wrong_sequence");
    // The strict context asks again, which takes as long once more.
    EXPECT_GT(details["strict_duration_us"].get<uint64_t>(),
              2 * details["lax_duration_us"].get<uint64_t>());
}

TEST(Demo, AssignsAnEidFromThePool) {
    const Json document = one_document(run_tool({"demo", "--json"}).out);
    const Json& found = step_titled(document, "Discovery")["details"];
    EXPECT_EQ(found[0]["eid"], 16);
    EXPECT_EQ(found[0]["eid_assigned"], true);
}

TEST_F(OwnBoard, DemoGoesOnBehindStepsThatFailAndEndsWithOne) {
    const Outcome demo = run({"demo"});
    EXPECT_EQ(demo.status, 1);
    EXPECT_EQ(demo.err,
              "sideband-sim: demo: dead0: Get Endpoint ID failed: no acknowledge from i2c:2:0x50\n"
              "sideband-sim: demo: rec0: NVM Subsystem Health Status Poll failed: no answer\n"
              "sideband-sim: demo: rec0: GetTID failed: unexpected answer 00000201\n");
    EXPECT_TRUE(contains(demo.out,
                         "FAILED: dead0: Get Endpoint ID failed: no acknowledge from i2c:2:0x50\n"))
        << demo.out;
    EXPECT_TRUE(contains(demo.out, " 3 failed, ")) << demo.out;
    EXPECT_TRUE(contains(demo.out, "Numeric sensors")) << "the tour goes on:\n" << demo.out;
}

TEST(DemoWithoutSensors, SaysWhatItLeavesOut) {
    const TemporaryFile board(R"({"name": "bare", "buses": [{"bus": 1}], "devices": []})");
    const Outcome demo = run_tool({"demo", "--json", "--board", board.path()});
    EXPECT_EQ(demo.status, 0) << demo.err;
    EXPECT_EQ(one_document(demo.out)["skipped"], 1);
}

}  // namespace
