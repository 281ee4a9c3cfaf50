// SPDX-License-Identifier: Apache-2.0
// Tests of the tool on the platform library for a Linux machine, whose kernel has no MCTP here.
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>

#include "tests/tools/tool_runner.h"

namespace {

using tool_test::contains;
using tool_test::expect_error;
using tool_test::one_document;
using tool_test::Outcome;
using tool_test::run_tool;
using tool_test::TemporaryFile;
using Strings = std::vector<std::string>;

const char* const kBoard = R"({
  "name": "rack7",
  "i2c": {"device": "/none/i2c-{bus}"},
  "devices": [
    {"name": "nic0", "mctp": {"net": 1, "eid": 9}},
    {"name": "gpu0", "bus": 3, "address": "0x9e"}
  ]
})";

const std::string kNoMctp = "this kernel has no MCTP sockets (CONFIG_MCTP)";
const std::string kNoI2c = "no such bus: /none/i2c-3 is not there";

class LinuxTool : public ::testing::Test {
protected:
    /// Whatever the machine has, the tool's kernel has no MCTP; and locks are the test's own.
    static void SetUpTestSuite() { set_up("SIDEBAND_NO_MCTP"); }
    static void TearDownTestSuite() {
        std::filesystem::remove_all(std::getenv("SIDEBAND_RUN_FOLDER"));
    }

    /// @param kernel  the variable that names what is put between the tool and the machine's kernel
    static void set_up(const char* kernel) {
        setenv("LD_PRELOAD", std::getenv(kernel), 1);
        const char* const before = std::getenv("ASAN_OPTIONS");
        const std::string options =
            std::string(before != nullptr ? before : "") + ":verify_asan_link_order=0";
        setenv("ASAN_OPTIONS", options.c_str(), 1);
        std::string folder = ::testing::TempDir() + "sideband-run-XXXXXX";
        setenv("SIDEBAND_RUN_FOLDER", mkdtemp(folder.data()), 1);
    }

    TemporaryFile board_{kBoard};
};

TEST_F(LinuxTool, OffersWhatNeedsNoSimulator) {
    const Outcome help = run_tool({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_TRUE(contains(help.out, "Usage: sideband ")) << help.out;
    EXPECT_TRUE(contains(help.out, "(default: /etc/sideband/board.json)")) << help.out;
    EXPECT_TRUE(contains(help.out, "(default: --strict)")) << help.out;
    for (const char* command : {"scan", "mctp", "raw", "pldm", "ncsi", "nvme", "pkg"}) {
        EXPECT_TRUE(contains(help.out, std::string("\n  ") + command + " ")) << command;
    }
    EXPECT_FALSE(contains(help.out, "demo")) << help.out;
    expect_error(run_tool({"demo"}), 2, "sideband: demo: no such command (try --help)");
    EXPECT_EQ(run_tool({"--version"}).out, "sideband " SIDEBAND_VERSION "\n");
    EXPECT_TRUE(contains(run_tool({"mctp", "eid", "--help"}).out, "mctp:NET,EID"));
}

TEST_F(LinuxTool, ReadsTheNamesOfEndpoints) {
    const struct {
        const char* name;
        const char* why;
    } malformed[] = {
        {"mctp:9", "an endpoint of the kernel's MCTP is named mctp:NET,EID"},
        {"mctp:", "an endpoint of the kernel's MCTP is named mctp:NET,EID"},
        {"mctp:0,9", "the network is a number from 1 to 4294967295"},
        {"mctp:x,9", "the network is a number from 1 to 4294967295"},
        {"mctp:4294967296,9", "the network is a number from 1 to 4294967295"},
        {"mctp:1,7", "the EID is a number from 8 to 254"},
        {"mctp:1,255", "the EID is a number from 8 to 254"},
        {"mctp:1,", "the EID is a number from 8 to 254"},
        {"mctp:1,9,1", "the EID is a number from 8 to 254"},
    };
    for (const auto& each : malformed) {
        expect_error(run_tool({"mctp", "eid", each.name}), 2,
                     std::string("sideband: mctp eid: ") + each.name + ": " + each.why);
    }
}

TEST_F(LinuxTool, SaysThatTheKernelHasNoMctp) {
    for (const Strings& command : {Strings{"mctp", "eid"},
                                   {"mctp", "uuid"},
                                   {"mctp", "routes"},
                                   {"pldm", "info"},
                                   {"pldm", "sensors"},
                                   {"pldm", "fru"},
                                   {"pldm", "fw-info"},
                                   {"ncsi", "discover"},
                                   {"nvme", "health"}}) {
        for (const char* name : {"mctp:1,9", "mctp:4294967295,254", "pcie:01:00.0"}) {
            Strings arguments = command;
            arguments.emplace_back(name);
            expect_error(
                run_tool(arguments), 1,
                "sideband: " + command[0] + " " + command[1] + ": " + name + ": " + kNoMctp);
        }
    }
    expect_error(run_tool({"scan"}), 1,
                 "sideband: scan: the kernel does not tell who is there: " + kNoMctp);
    const Outcome json = run_tool({"--json", "scan"});
    EXPECT_EQ(json.status, 1);
    EXPECT_EQ(one_document(json.out)["error"]["exit_status"], 1);
}

TEST_F(LinuxTool, DevicesHaveTheirNamesFromTheBoard) {
    const std::string file = board_.path();
    expect_error(run_tool({"--board", file, "mctp", "eid", "nic0"}), 1,
                 "sideband: mctp eid: nic0: " + kNoMctp);
    expect_error(run_tool({"--board", file, "mctp", "eid", "gpu0"}), 1,
                 "sideband: mctp eid: gpu0: " + kNoI2c);
    expect_error(run_tool({"--board", file, "mctp", "eid", "i2c:3:0x9e"}), 1,
                 "sideband: mctp eid: i2c:3:0x9e: " + kNoI2c);
    expect_error(run_tool({"--board", file, "mctp", "eid", "ssd0"}), 1,
                 "sideband: mctp eid: ssd0: no such device on board rack7; it has: nic0, gpu0");
}

TEST_F(LinuxTool, SaysThatABusCannotBeUsed) {
    const TemporaryFile queue(
        R"({"name": "x", "i2c": {"device": "/dev/null", "slave_queue": "/none/{bus}-{address}"}})");
    expect_error(run_tool({"--board", queue.path(), "pldm", "info", "i2c:4:0x9e"}), 1,
                 "sideband: pldm info: i2c:4:0x9e: no slave queue: /none/4-10 is not there");
    // Neither is one: nothing is sent, and what the kernel said is told.
    const TemporaryFile none(
        R"({"name": "x", "i2c": {"device": "/dev/null", "slave_queue": "/dev/null"}})");
    expect_error(run_tool({"--board", none.path(), "mctp", "eid", "i2c:4:0x9e"}), 1,
                 "sideband: mctp eid: i2c:4:0x9e: Get Endpoint ID failed: I2C bus 4: writing to "
                 "0x9e: Inappropriate ioctl for device");
}

TEST_F(LinuxTool, ScansTheDevicesOfTheBoard) {
    const Outcome run = run_tool({"--json", "--board", board_.path(), "scan"});
    EXPECT_EQ(run.status, 1);
    const tool::Json document = one_document(run.out);
    EXPECT_EQ(document["board"], "rack7");
    ASSERT_EQ(document["endpoints"].size(), 2U);
    const tool::Json& nic = document["endpoints"][0];
    EXPECT_EQ(nic["endpoint"], "nic0");
    EXPECT_EQ(nic["location"], "mctp:1,9");
    EXPECT_EQ(nic["transport"], "mctp");
    EXPECT_EQ(nic["net"], 1);
    EXPECT_EQ(nic["status"], "failed");
    EXPECT_TRUE(contains(nic["error"]["message"].get<std::string>(), kNoMctp)) << nic.dump();
    EXPECT_EQ(document["endpoints"][1]["location"], "i2c:3:0x9e");
}

TEST_F(LinuxTool, TellsWhatIsWrongWithABoardFile) {
    const TemporaryFile wrong(
        "{\"name\": \"x\",\n \"devices\": [{\"name\": \"a\",\n"
        "   \"mctp\": {\"nett\": 1, \"eid\": 300}}]}");
    const Outcome run = run_tool({"--board", wrong.path(), "scan"});
    EXPECT_EQ(run.status, 3);
    EXPECT_EQ(run.out, "");
    const std::string place = "sideband: scan: " + wrong.path() + ":3: devices[0].mctp.";
    EXPECT_EQ(run.err, place + "eid: must be a whole number from 8 to 254\n" + place +
                           "nett: no such key; did you mean net?\n");
    expect_error(run_tool({"--board", "/none", "scan"}), 3,
                 "sideband: scan: /none: No such file or directory");
}

/// The kernel has MCTP, and nobody answers.
class SilentMctp : public LinuxTool {
protected:
    static void SetUpTestSuite() { set_up("SIDEBAND_SILENT_MCTP"); }
};

double seconds_until(const std::function<void()>& done) {
    const auto begin = std::chrono::steady_clock::now();
    done();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

TEST_F(SilentMctp, IsNotWaitedForBeyondTheTimeLimit) {
    // Longer than any machine needs to start the tool, which ends by itself after this.
    const TemporaryFile patient(R"({"name": "rack7", "devices": [
        {"name": "nic0", "mctp": {"net": 1, "eid": 9}, "read_timeout_ms": 60000},
        {"name": "nic1", "mctp": {"net": 1, "eid": 10}, "read_timeout_ms": 60000}]})");
    for (const Strings& command : {Strings{"mctp", "eid", "nic0"},
                                   {"mctp", "uuid", "nic0"},
                                   {"pldm", "sensors", "nic0"},
                                   {"raw", "nic0", "pldm", "800002"},
                                   {"nvme", "health", "nic0"},
                                   {"scan"},
                                   {"metrics"}}) {
        SCOPED_TRACE(tool::Json(command).dump());
        Strings arguments{"--board", patient.path(), "--timeout", "0.7"};
        arguments.insert(arguments.end(), command.begin(), command.end());
        Outcome run;
        const double taken = seconds_until([&] { run = run_tool(arguments); });
        EXPECT_GE(taken, 0.6);
        EXPECT_LT(taken, 30);
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.err.find('\n'), run.err.size() - 1) << run.err;
        EXPECT_TRUE(contains(run.err, "the time limit has passed")) << run.err;
    }
    const tool::Json error = one_document(
        run_tool({"--board", patient.path(), "--json", "--timeout", "0.2", "mctp", "eid", "nic0"})
            .out)["error"];
    EXPECT_EQ(error["cause"], "deadline") << error.dump();
}

TEST_F(SilentMctp, TellsTheTimeoutOfTheWaitWithoutALimit) {
    const TemporaryFile board(R"({"name": "rack7", "devices": [
        {"name": "nic0", "mctp": {"net": 1, "eid": 9}, "read_timeout_ms": 100}]})");
    expect_error(run_tool({"--board", board.path(), "--timeout", "60", "mctp", "eid", "nic0"}), 1,
                 "sideband: mctp eid: nic0: Get Endpoint ID failed: no answer");
}

/// Ctrl-C ends a pause of an hour at once, as the end of the command and not by the signal.
TEST_F(SilentMctp, WatchingEndsInTheMiddleOfAPause) {
    constexpr double kLongest = 30;
    const TemporaryFile board(R"({"name": "rack7", "devices": [
        {"name": "nic0", "mctp": {"net": 1, "eid": 9}, "read_timeout_ms": 100}]})");
    tool_test::RunningTool tool(
        {"--board", board.path(), "pldm", "sensors", "nic0", "1", "--watch", "3600"});
    tool.printed_until("failed\n");
    Outcome run;
    EXPECT_LT(seconds_until([&] { run = tool.end(SIGINT); }), kLongest);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err,
              "sideband: pldm sensors: nic0: GetSensorReading of sensor 1 failed: no answer\n");
}

/// The time is that of the machine, and no virtual one.
TEST_F(SilentMctp, WatchingTellsTheTimeOfTheMachine) {
    const TemporaryFile board(R"({"name": "rack7", "devices": [
        {"name": "nic0", "mctp": {"net": 1, "eid": 9}, "read_timeout_ms": 100}]})");
    const Outcome run = run_tool({"--board", board.path(), "pldm", "sensors", "nic0", "1",
                                  "--watch", "1", "--count", "1", "--json"});
    const tool::Json document = one_document(run.out);
    EXPECT_GT(document["monotonic_time_us"].get<uint64_t>(), 0U) << run.out;
    EXPECT_FALSE(document.contains("virtual_time_us")) << run.out;
}

/// Names come from the board file alone: nobody is asked, nor the kernel.
TEST_F(LinuxTool, CompletesTheNamesOfItsBoard) {
    const Outcome named = run_tool({"__complete", "--board", board_.path(), "mctp", "eid", ""});
    EXPECT_EQ(named.out, "words\nnic0\tmctp:1,9\ngpu0\ti2c:3:0x9e\n");
    EXPECT_EQ(named.err, "");
    const Outcome none = run_tool({"__complete", "--board", "/none", "mctp", "eid", ""});
    EXPECT_EQ(none.out, "words\n");
    EXPECT_EQ(none.err, "");
    EXPECT_FALSE(contains(run_tool({"__complete", ""}).out, "demo"));
}

}  // namespace
