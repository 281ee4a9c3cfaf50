// SPDX-License-Identifier: Apache-2.0
// Tests of the options that every command takes.
#include <sys/stat.h>
#include <unistd.h>

#include "tests/tools/tool_runner.h"

namespace {

using tool_test::contains;
using tool_test::expect_error;
using tool_test::one_document;
using tool_test::Outcome;
using tool_test::OwnBoard;
using tool_test::run_tool;
using tool_test::run_tool_for;
using tool_test::TemporaryFile;
using Strings = std::vector<std::string>;

const std::vector<Strings> kAllCommands{{},
                                        {"demo"},
                                        {"scan"},
                                        {"mctp"},
                                        {"mctp", "eid"},
                                        {"mctp", "uuid"},
                                        {"mctp", "routes"},
                                        {"raw"},
                                        {"pldm"},
                                        {"pldm", "info"},
                                        {"pldm", "sensors"}};

TEST(Help, IsThereForEveryCommand) {
    for (Strings arguments : kAllCommands) {
        std::string usage = "Usage: sideband-sim ";
        for (const std::string& word : arguments) {
            usage += word + " ";
        }
        arguments.push_back("--help");
        const Outcome help = run_tool(arguments);
        EXPECT_EQ(help.status, 0);
        EXPECT_TRUE(contains(help.out, usage)) << help.out;
        EXPECT_TRUE(contains(help.out, "Exit status: 0 done, 1 device or transport failed, "))
            << help.out;
        EXPECT_TRUE(contains(help.out, "--capture FILE")) << help.out;
        EXPECT_EQ(help.err, "");
    }
}

TEST(Version, IsThatOfTheLibrary) {
    const Outcome version = run_tool({"--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.out, "sideband-sim " SIDEBAND_VERSION "\n");
}

TEST_F(OwnBoard, OptionsStandBeforeOrBehindTheCommand) {
    const Strings orders[] = {
        {"--json", "--board", board_.path(), "mctp", "uuid", "dev0"},
        {"mctp", "--json", "uuid", "--board", board_.path(), "dev0"},
        {"mctp", "uuid", "dev0", "--json", "--board", board_.path()},
        {"mctp", "uuid", "dev0", "--json", "--board=" + board_.path()},
    };
    for (const Strings& arguments : orders) {
        const Outcome run = run_tool(arguments);
        EXPECT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(one_document(run.out)["uuid"], "00112233-4455-6677-8899-aabbccddeeff");
    }
}

TEST(Help, SaysWhetherDevicesAreHeldToTheStandards) {
    const Outcome help = run_tool({"--help"});
    EXPECT_TRUE(contains(help.out, "(default: --lax)")) << help.out;
    EXPECT_TRUE(contains(help.out, "\n--strict, --lax\n")) << help.out;
}

TEST_F(OwnBoard, StrictAndLaxStandBeforeOrBehindTheCommand) {
    for (const char* option : {"--strict", "--lax"}) {
        for (const Strings& arguments :
             {Strings{option, "mctp", "eid", "dev0"}, Strings{"mctp", "eid", "dev0", option}}) {
            tool_test::expect_text(run(arguments), run({"mctp", "eid", "dev0"}).out);
        }
    }
}

TEST(WrongUsage, IsStrictAndLaxAtOnce) {
    for (const Strings& arguments :
         {Strings{"--strict", "scan", "--lax"}, Strings{"--lax", "--strict", "scan"}}) {
        expect_error(run_tool(arguments), 2,
                     "sideband-sim: scan: --strict excludes --lax (try --help)");
    }
}

TEST(WrongUsage, IsAValueForJson) {
    for (const char* option : {"--json=true", "--json=false", "--json=1", "--json="}) {
        for (const Strings& arguments : {Strings{option, "scan"}, Strings{"scan", option}}) {
            expect_error(run_tool(arguments), 2,
                         "sideband-sim: --json takes no value (try --help)");
        }
    }
}

TEST(Help, AndVersionAreTextAlsoWithJson) {
    EXPECT_EQ(run_tool({"--json", "--version"}).out, run_tool({"--version"}).out);
    EXPECT_EQ(run_tool({"--json", "scan", "--help"}).out, run_tool({"scan", "--help"}).out);
}

TEST(WrongUsage, IsAnEmptyValue) {
    const std::pair<Strings, const char*> cases[] = {
        {{"scan", "--board", ""}, "scan: --board"},
        {{"scan", "--capture", ""}, "scan: --capture"},
        {{"check", "nic0", "--junit", ""}, "check: --junit"},
        {{"check", "nic0", "--rule", ""}, "check: --rule"},
        {{"metrics", "--listen", ""}, "metrics: --listen"},
        {{"serve", "--tty", ""}, "serve: --tty"},
    };
    for (const auto& [arguments, place] : cases) {
        expect_error(run_tool_for(arguments, 20), 2,
                     "sideband-sim: " + std::string(place) + ": the value is empty (try --help)");
    }
}

TEST_F(OwnBoard, WithoutVerboseTheLibrarysDumpsAreNowhere) {
    for (const Strings& arguments :
         {Strings{"pldm", "sensors", "dev0"}, Strings{"pldm", "info", "dev0", "--json"}}) {
        const Outcome quiet = run(arguments);
        EXPECT_FALSE(contains(quiet.out, "====")) << quiet.out;
        EXPECT_FALSE(contains(quiet.out, "get tid")) << quiet.out;
        EXPECT_EQ(quiet.err, "");
    }
}

TEST_F(OwnBoard, VerboseShowsTheLibrarysDumpsOnStandardError) {
    const Outcome quiet = run({"pldm", "sensors", "dev0", "12"});
    const Outcome verbose = run({"pldm", "sensors", "dev0", "12", "--verbose"});
    EXPECT_EQ(verbose.status, 0);
    EXPECT_EQ(verbose.out, quiet.out);
    EXPECT_TRUE(contains(verbose.err,
                         "====== get Sensor reading Req =====\n"
                         " 80 02 11 0c 00 00\n"
                         "===================================\n"
                         "packet:   0.002665 > i2c:1:0x40  01 10 08 cb  01 80 02 11 0c 00 00\n"
                         "packet:   0.003660 < i2c:1:0x40  01 08 10 c3  01 00 02 11 00 03 00 00 01 "
                         "00 01 d5 ff\n"
                         "====== get Sensor reading Resp =====\n"
                         " 00 02 11 00 03 00 00 01 00 01 d5 ff 00 00\n"
                         "====================================\n"))
        << verbose.err;
}

TEST_F(OwnBoard, VerboseKeepsJsonOneDocument) {
    const Outcome verbose = run({"--verbose", "--json", "pldm", "info", "dev0"});
    EXPECT_EQ(one_document(verbose.out)["tid"], 7);
    EXPECT_TRUE(contains(verbose.err, "get tid: 7\n")) << verbose.err;
}

TEST_F(OwnBoard, VerboseShowsWhatTheLibraryLoggedThroughThePlatform) {
    const Outcome verbose = run({"--verbose", "mctp", "uuid", "rec0"});
    EXPECT_EQ(verbose.status, 1);
    EXPECT_TRUE(contains(verbose.err, "log: fail to get mctp UUID\n")) << verbose.err;
}

TEST_F(OwnBoard, CaptureIsAPcapngFileWithTheTraffic) {
    const TemporaryFile capture("");
    const Outcome captured = run({"raw", "dev0", "pldm", "800002", "--capture", capture.path()});
    EXPECT_EQ(captured.status, 0) << captured.err;
    EXPECT_EQ(captured.out, "0000020007\n");
    const std::string content = capture.content();
    ASSERT_GE(content.size(), 4U);
    EXPECT_EQ(content.substr(0, 4), "\x0a\x0d\x0d\x0a");
    // GetTID as it goes out: type byte, header. And its answer, whose tag owner bit is clear.
    EXPECT_TRUE(contains(content, std::string("\x01\x80\x00\x02", 4)));
    EXPECT_TRUE(contains(content, std::string("\x01\x00\x00\x02\x00\x07", 6)));
}

TEST_F(OwnBoard, FaultsOfTheCommandLine) {
    const std::string refused = "Get Endpoint ID failed: no acknowledge from i2c:1:0x40";
    expect_error(run({"--fault", "dev0=no_ack", "mctp", "eid", "dev0"}), 1,
                 "sideband-sim: mctp eid: dev0: " + refused);
    expect_error(run({"mctp", "eid", "dev0", "--fault", "rec0=lost", "--fault",
                      "dev0={\"kind\": \"no_ack\", \"count\": 0}"}),
                 1, "sideband-sim: mctp eid: dev0: " + refused);
    expect_error(run({"scan", "--fault", "dev0"}), 2,
                 "sideband-sim: scan: dev0: a fault is given as ENDPOINT=KIND");
    for (const char* wrong : {"=no_ack", "dev9=no_ack", "dev0=", "dev0=none", "dev0={", "dev0={}",
                              "dev0={\"kind\": 1}", "dev0=\x1b[31m"}) {
        const Outcome failed = run({"scan", "--fault", wrong});
        EXPECT_EQ(failed.status, 2) << wrong;
        EXPECT_EQ(std::count(failed.err.begin(), failed.err.end(), '\n'), 1) << failed.err;
        EXPECT_TRUE(contains(failed.err, "the fault is refused: ")) << failed.err;
        EXPECT_FALSE(tool_test::has_control(failed.err)) << wrong;
    }
}

TEST_F(OwnBoard, CaptureIsKeptWhereTheCommandFails) {
    const TemporaryFile capture("");
    const Outcome captured = run({"pldm", "info", "rec0", "--capture", capture.path()});
    EXPECT_EQ(captured.status, 1);
    EXPECT_TRUE(contains(capture.content(), std::string("\x01\x00\x00\x02\x01", 5)));
}

TEST_F(OwnBoard, CaptureDoesNotWaitForSomebodyToReadAFifo) {
    const TemporaryFile place("");
    const std::string fifo = place.path() + "-fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    expect_error(
        run_tool_for({"--board", board_.path(), "mctp", "eid", "rec0", "--capture", fifo}, 20), 1,
        "sideband-sim: mctp eid: the capture cannot be written: " + fifo +
            ": nobody reads this FIFO");
    unlink(fifo.c_str());
}

}  // namespace
