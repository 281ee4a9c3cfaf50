// SPDX-License-Identifier: Apache-2.0
// Tests of --timeout: how a command ends whose time is over, and what counts as its time.
#include <cstdlib>

#include "tests/tools/tool_runner.h"
#include "tests/tools/update/firmware_bench.h"
#include "tools/shell/port.h"
#include "tools/shell/time_limit.h"

namespace {

using tool::Json;
using tool_test::contains;
using tool_test::expect_error;
using tool_test::FirmwareBoard;
using tool_test::holds_request;
using tool_test::one_document;
using tool_test::Outcome;
using tool_test::run_tool;
using tool_test::TemporaryFile;
using Strings = std::vector<std::string>;

constexpr uint8_t kCancelUpdate = 0x1D;
constexpr uint8_t kActivateFirmware = 0x1A;

Strings with(Strings command, const Strings& more) {
    command.insert(command.end(), more.begin(), more.end());
    return command;
}

/// Expects one line on standard error that tells of the limit.
void expect_line(const Outcome& run) {
    EXPECT_EQ(run.status, 1) << run.err;
    EXPECT_EQ(run.err.find('\n'), run.err.size() - 1) << run.err;
    EXPECT_TRUE(contains(run.err, "the time limit has passed")) << run.err;
}

/// The first record called "error" with a cause, however deep it lies; null for none.
Json first_error(const Json& json) {
    if (json.is_object() && json.contains("error") && json["error"].contains("cause")) {
        return json["error"];
    }
    for (const Json& item : json) {
        if (const Json found = first_error(item); !found.is_null()) {
            return found;
        }
    }
    return {};
}

/// The library counts milliseconds, and its clock may be the first by which the time is over.
TEST(TimeLimit, IsToldOnceThoughThePortsClockIsAMomentBehind) {
    const std::unique_ptr<tool::Port> port = tool::Port::open("");
    const tool::TimeLimit outer(*port, 3);
    const tool::TimeLimit inner(*port, 1);
    port->wait_us(999'500);
    EXPECT_FALSE(tool::TimeLimit::passed());
    EXPECT_TRUE(tool::TimeLimit::is_news());
    EXPECT_FALSE(tool::TimeLimit::is_news());
    port->wait_us(1'000'000);
    EXPECT_FALSE(tool::TimeLimit::is_news());
    port->wait_us(2'000'000);
    EXPECT_TRUE(tool::TimeLimit::is_news()) << "the outer one is another";
    EXPECT_FALSE(tool::TimeLimit::is_news());
}

TEST(TimeLimit, IsANumberOfSecondsInItsRange) {
    for (const char* wrong :
         {"0", "0.0009", "-1", "86400.5", "nan", "inf", "-nan", "x", "1s", ""}) {
        SCOPED_TRACE(wrong);
        const Outcome refused =
            run_tool({"mctp", "eid", "gpu0", std::string("--timeout=") + wrong});
        EXPECT_EQ(refused.status, 2);
        EXPECT_EQ(refused.out, "");
        EXPECT_TRUE(refused.err.starts_with("sideband-sim: mctp eid: ")) << refused.err;
        EXPECT_EQ(refused.err.find('\n'), refused.err.size() - 1) << refused.err;
    }
    for (const char* right : {"0.5", "1", "86400", "1e2"}) {
        const Outcome run = run_tool({"mctp", "eid", "gpu0", "--timeout", right});
        EXPECT_EQ(run.status, 0) << run.err;
    }
}

TEST(TimeLimit, ThatIsLongEnoughChangesNothing) {
    for (const Strings& command : {Strings{"scan"},
                                   {"pldm", "sensors", "nic0"},
                                   {"nvme", "health", "nvme0"},
                                   {"ncsi", "link", "ncsi0"},
                                   {"check", "rec0"},
                                   {"metrics", "gpu0"}}) {
        SCOPED_TRACE(Json(command).dump());
        const Outcome without = run_tool(command);
        const Outcome run = run_tool(with({"--timeout", "3600"}, command));
        EXPECT_EQ(run.out, without.out);
        EXPECT_EQ(run.err, without.err);
        EXPECT_EQ(run.status, without.status);
    }
}

const Strings kCommands[] = {
    {"scan"},
    {"mctp", "eid", "nic0"},
    {"mctp", "eid", "gpu1"},
    {"mctp", "routes", "mpio0"},
    {"raw", "nic0", "pldm", "800002"},
    {"pldm", "info", "nic0"},
    {"pldm", "sensors", "nic0", "1", "2", "3"},
    {"pldm", "pdr", "list", "gpu0"},
    {"pldm", "fru", "nic1"},
    {"pldm", "fw-info", "nic0"},
    {"ncsi", "link", "ncsi0"},
    {"ncsi", "oem", "mlx-temp", "ncsi0"},
    {"nvme", "health", "nvme0"},
    {"nvme", "log", "smart", "nvme0"},
    {"check", "gpu0"},
    {"metrics"},
    {"metrics", "nvme0"},
};

TEST(TimeLimit, EndsEveryCommandThatTalksToADevice) {
    for (const Strings& command : kCommands) {
        SCOPED_TRACE(Json(command).dump());
        expect_line(run_tool(with(command, {"--timeout", "0.001"})));
        const Outcome document = run_tool(with(command, {"--timeout", "0.001", "--json"}));
        expect_line(document);
        const Json error = first_error(one_document(document.out));
        if (command[0] != "metrics") {
            EXPECT_EQ(error["cause"], "deadline") << document.out;
        }
    }
}

/// A moment at which each of these has begun and is not done yet.
TEST(TimeLimit, EndsACommandInItsMiddle) {
    struct {
        Strings command;
        const char* limit;
    } static const kLong[] = {{{"pldm", "sensors", "nic0"}, "0.2"},
                              {{"pldm", "pdr", "list", "nic0"}, "0.1"},
                              {{"ncsi", "link", "ncsi0"}, "0.02"},
                              {{"nvme", "identify", "controller", "nvme0"}, "0.01"},
                              {{"nvme", "log", "smart", "nvme0"}, "0.01"},
                              {{"check", "nic0"}, "0.5"},
                              {{"scan"}, "0.03"}};
    for (const auto& one : kLong) {
        SCOPED_TRACE(Json(one.command).dump());
        const Outcome run = run_tool(with(one.command, {"--timeout", one.limit}));
        expect_line(run);
        const Outcome document = run_tool(with(one.command, {"--json", "--timeout", one.limit}));
        expect_line(document);
        const Json printed = one_document(document.out);
        if (one.command.size() > 1 &&
            one.command[1] == "pdr") {  // the records that came; the line tells of the rest
            EXPECT_GT(printed["records"].size(), 0U);
        } else {
            EXPECT_EQ(first_error(printed)["cause"], "deadline") << document.out;
        }
    }
}

/// The board's time at the last packet that --verbose shows, in seconds.
double last_packet(const Outcome& run) {
    const size_t at = run.err.rfind("packet: ");
    return at == std::string::npos ? 0 : std::strtod(run.err.c_str() + at + 8, nullptr);
}

TEST(TimeLimit, IsByTheBoardsClockAndNothingIsSentBehindIt) {
    for (const double limit : {0.05, 0.1, 0.15}) {
        const Outcome run =
            run_tool({"pldm", "sensors", "nic0", "--verbose", "--timeout", std::to_string(limit)});
        EXPECT_EQ(run.status, 1);
        // What was under way ends: a request and its answer.
        EXPECT_LT(last_packet(run), limit + 0.02);
        EXPECT_GT(last_packet(run), limit - 0.02);
    }
}

TEST(TimeLimit, ShowsWhatWasReadInTime) {
    const Outcome scan = run_tool({"scan", "--timeout", "0.03"});
    EXPECT_TRUE(contains(scan.out, "nic0      i2c:2:0x64     16  6e696330")) << scan.out;
    EXPECT_TRUE(contains(scan.out, "nvme0     i2c:2:0x3a      -  -")) << scan.out;
    EXPECT_TRUE(scan.out.ends_with("failed\n")) << scan.out;
}

TEST(TimeLimit, TellsOfADeviceThatWasWaitedForTooLong) {
    const Outcome run =
        run_tool({"mctp", "eid", "gpu0", "--timeout", "0.5", "--fault", "gpu0=lost"});
    expect_error(run, 1,
                 "sideband-sim: mctp eid: gpu0: Get Endpoint ID failed: no answer, the time limit "
                 "has passed");
}

TEST(TimeLimit, OfACheckLeavesNothingJudged) {
    const Outcome run = run_tool({"check", "gpu0", "--timeout", "0.1"});
    expect_error(run, 1, "sideband-sim: check: gpu0: the check failed: the time limit has passed");
    const Outcome changing = run_tool({"check", "nic0", "--write", "--timeout", "2"});
    expect_line(changing);
    EXPECT_EQ(changing.out, "");
}

/// Whatever the moment, the card is not left in update mode.
TEST(TimeLimit, CancelsAnUpdateOnTheDevice) {
    const TemporaryFile package(tool_test::file_of(tool_test::card_package(65536)));
    for (const char* limit : {"0.3", "1", "2"}) {
        SCOPED_TRACE(limit);
        const TemporaryFile capture("");
        const Outcome run = FirmwareBoard().run({"pldm", "fw-update", "nic0", package.path(),
                                                 "--timeout", limit, "--capture", capture.path()});
        expect_line(run);
        EXPECT_TRUE(
            run.err.ends_with("nic0: the update failed: the time limit has passed, the "
                              "device has left update mode\n"))
            << run.err;
        EXPECT_TRUE(holds_request(capture, kCancelUpdate));
        EXPECT_FALSE(holds_request(capture, kActivateFirmware));
    }
}

/// What a card says that its activation takes is waited for: until the time is over.
TEST(TimeLimit, CutsPausesShort) {
    const TemporaryFile package(tool_test::file_of(tool_test::card_package()));
    const TemporaryFile lines("pldm fw-update nic0 '" + package.path() +
                              "' --timeout 20\npldm sensors nic0 1 --watch 1 --count 1\n");
    FirmwareBoard board;
    board.firmware()["activation_time_s"] = 100;
    const Outcome run = board.run({"batch", lines.path(), "--keep-going", "--json"});
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(contains(run.err,
                         ":1: pldm fw-update: nic0: GetFirmwareParameters failed: the "
                         "time limit has passed\n"))
        << run.err;
    const size_t watched = run.out.find("\"virtual_time_us\":");
    ASSERT_NE(watched, std::string::npos) << run.out;
    const double now = std::strtod(run.out.c_str() + watched + 18, nullptr);
    EXPECT_GE(now, 20e6);
    EXPECT_LT(now, 21e6);
}

TEST(TimeLimit, OfAWatchIsThatOfEachReading) {
    const Outcome run = run_tool({"pldm", "sensors", "nic0", "1", "2", "3", "4", "--timeout",
                                  "0.01", "--watch", "1", "--count", "3", "--json"});
    EXPECT_EQ(run.status, 1);
    // A line for each reading whose time was over.
    size_t lines = 0;
    for (size_t at = 0; (at = run.err.find("the time limit has passed", at)) != std::string::npos;
         ++at) {
        ++lines;
    }
    EXPECT_GE(lines, 2u) << run.err;
}

TEST(TimeLimit, OfABatchIsThatOfTheWholeAndOfALineItsOwn) {
    const TemporaryFile lines(
        "pldm sensors nic0\npldm sensors gpu0\npldm sensors nic0\nmctp eid gpu0\n");
    const Outcome whole = run_tool({"batch", lines.path(), "--keep-going", "--timeout", "0.35"});
    expect_line(whole);
    EXPECT_TRUE(contains(whole.err, ":3: pldm sensors: ")) << whole.err;
    const TemporaryFile own(
        "pldm sensors nic0 --timeout 0.1\npldm sensors gpu0\npldm sensors nic0 --timeout=0.1\n");
    const Outcome each = run_tool({"batch", own.path(), "--keep-going"});
    EXPECT_EQ(each.status, 1);
    EXPECT_TRUE(contains(each.err, ":1: pldm sensors: ")) << each.err;
    EXPECT_FALSE(contains(each.err, ":2: ")) << each.err;
    EXPECT_TRUE(contains(each.err, ":3: pldm sensors: ")) << each.err;
}

TEST(TimeLimit, OfMetricsLeavesTheFiguresThatWereRead) {
    const Outcome run = run_tool({"metrics", "gpu0", "nvme0", "nic0", "--timeout", "0.1"});
    expect_line(run);
    EXPECT_TRUE(contains(run.out, "sideband_endpoint_up{endpoint=\"gpu0\"} 1\n")) << run.out;
    EXPECT_TRUE(contains(run.out, "sideband_endpoint_up{endpoint=\"nic0\"} 0\n")) << run.out;
    EXPECT_TRUE(contains(run.out, "sideband_endpoint_scrape_errors{endpoint=\"nic0\"} 1\n"));
    EXPECT_TRUE(run.out.ends_with("# EOF\n"));
}

TEST(TimeLimit, DoesNotTouchWhatTalksToNoDevice) {
    const TemporaryFile package(tool_test::file_of(tool_test::card_package()));
    EXPECT_EQ(run_tool({"pkg", "show", package.path(), "--timeout", "0.001"}).status, 0);
    EXPECT_EQ(run_tool({"check", "--list", "--timeout", "0.001"}).status, 0);
}

TEST(TimeLimit, EndsTheTourAsFailed) {
    const Outcome tour = run_tool({"demo", "--timeout", "1"});
    EXPECT_EQ(tour.status, 1);
    EXPECT_TRUE(contains(tour.out, " failed, ")) << tour.out;
}

}  // namespace
