// SPDX-License-Identifier: Apache-2.0
// Tests of metrics --listen, as clients see it that mean well and that do not.
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "tests/tools/metrics/metrics_client.h"

namespace {

using tool_test::asked;
using tool_test::Connection;
using tool_test::contains;
using tool_test::expect_error;
using tool_test::kGet;
using tool_test::MetricsServer;
using tool_test::Outcome;
using tool_test::OwnBoard;
using tool_test::port_in;
using tool_test::RunningTool;
using Clock = std::chrono::steady_clock;

TEST_F(MetricsServer, ServesAndEndsCleanly) {
    const std::string answer = asked(port(), kGet);
    EXPECT_TRUE(answer.starts_with("HTTP/1.1 200 OK\r\n")) << answer;
    EXPECT_TRUE(contains(answer, "sideband_endpoint_up{endpoint=\"dev0\"} 1\n")) << answer;
    EXPECT_TRUE(answer.ends_with("# EOF\n"));
    const std::string head = asked(port(), "HEAD /metrics HTTP/1.1\r\n\r\n");
    EXPECT_TRUE(head.starts_with("HTTP/1.1 200 OK\r\n") && head.ends_with("\r\n\r\n")) << head;
    EXPECT_TRUE(asked(port(), "GET / HTTP/1.1\r\n\r\n").starts_with("HTTP/1.1 404 "));
    EXPECT_TRUE(asked(port(), "POST /metrics HTTP/1.1\r\n\r\n").starts_with("HTTP/1.1 405 "));
    EXPECT_TRUE(asked(port(), "nonsense\r\n\r\n").starts_with("HTTP/1.1 400 "));
    const Outcome end = tool().end(SIGTERM);
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(end.err, "");
}

TEST_F(MetricsServer, InterruptEndsItToo) {
    EXPECT_EQ(tool().end(SIGINT).status, 0);
}

TEST_F(MetricsServer, ARequestInPiecesIsOne) {
    const Connection connection(port());
    for (const char c : kGet) {
        ASSERT_TRUE(connection.say(std::string(1, c)));
    }
    EXPECT_TRUE(connection.heard().starts_with("HTTP/1.1 200 "));
}

TEST_F(MetricsServer, WhoGoesInTheMiddleIsForgotten) {
    for (size_t size = 0; size < kGet.size(); size += 3) {
        const Connection connection(port());
        connection.say(kGet.substr(0, size));
        connection.hang_up();
        EXPECT_EQ(connection.heard(), "") << size;
    }
    { const Connection gone(port()); }
    {
        const Connection deaf(port());
        deaf.say(kGet);
    }
    EXPECT_TRUE(asked(port(), kGet).starts_with("HTTP/1.1 200 "));
}

TEST_F(MetricsServer, AHeadWithoutEndIsCutOff) {
    const Connection connection(port());
    connection.say("GET /metrics HTTP/1.1\r\n");
    const std::string field = "X-Field: " + std::string(500, 'x') + "\r\n";
    for (int i = 0; i < 4000 && connection.say(field); ++i) {
    }
    const std::string answer = connection.heard();
    EXPECT_TRUE(answer.empty() || answer.starts_with("HTTP/1.1 431 ")) << answer;
    EXPECT_TRUE(asked(port(), "GET /metrics HTTP/1.1\r\nX: " + std::string(9000, 'x'))
                    .starts_with("HTTP/1.1 431 "));
    EXPECT_TRUE(asked(port(), kGet).starts_with("HTTP/1.1 200 "));
}

TEST_F(MetricsServer, WhoIsSlowKeepsNobodyForLong) {
    const Connection slow(port());
    slow.say("GET /metr");
    const Clock::time_point begin = Clock::now();
    EXPECT_TRUE(asked(port(), kGet).starts_with("HTTP/1.1 200 "));
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(20));
    EXPECT_TRUE(slow.heard().starts_with("HTTP/1.1 408 "));
}

TEST_F(MetricsServer, ASignalDoesNotWaitForASlowClient) {
    const Connection slow(port());
    slow.say("GET");
    EXPECT_EQ(tool().end(SIGTERM).status, 0);
}

/// One and a half times what a scrape takes: two of them would not have the time together.
TEST_F(OwnBoard, EachScrapeHasTheTimeLimitAnew) {
    const std::string once = run({"metrics", "dev0"}).out;
    const std::string figure = "scrape_duration_seconds{endpoint=\"dev0\"} ";
    const size_t at = once.find(figure);
    ASSERT_NE(at, std::string::npos) << once;
    const double seconds = std::strtod(once.c_str() + at + figure.size(), nullptr);
    ASSERT_GT(seconds, 0.01);
    RunningTool tool({"metrics", "dev0", "--listen", "127.0.0.1:0", "--board", board_.path(),
                      "--timeout", std::to_string(seconds * 1.5)});
    const std::string printed = tool.printed_until("/metrics\n");
    const uint16_t port = port_in(printed);
    for (int i = 0; i < 3; ++i) {
        const Connection client(port);
        EXPECT_TRUE(client.say(kGet));
        const std::string heard = client.heard();
        EXPECT_TRUE(contains(heard, "scrape_errors{endpoint=\"dev0\"} 0\n")) << heard;
    }
    EXPECT_EQ(tool.end(SIGTERM).status, 0);
}

TEST_F(MetricsServer, SecondOnTheSameAddressSaysSo) {
    const std::string address = "127.0.0.1:" + std::to_string(port());
    expect_error(
        run({"metrics", "--listen", address}), 1,
        "sideband-sim: metrics: " + address + ": nobody can listen there: Address already in use");
}

/// 127.0.0.2 is an address of this machine too: who listens on all of them hears it.
TEST_F(OwnBoard, AHostThatIsLeftOutIsTheLoopbackAlone) {
    RunningTool tool({"metrics", "dev0", "--listen", ":0", "--board", board_.path()});
    const std::string printed = tool.printed_until("/metrics\n");
    ASSERT_TRUE(printed.starts_with("metrics on http://127.0.0.1:")) << printed;
    const uint16_t port = port_in(printed);
    EXPECT_TRUE(asked(port, kGet).starts_with("HTTP/1.1 200 "));
    EXPECT_THROW(Connection(port, INADDR_LOOPBACK + 1), std::runtime_error);
    EXPECT_EQ(tool.end(SIGTERM).status, 0);
}

TEST_F(OwnBoard, AHostThatIsAllAddressesListensOnThem) {
    RunningTool tool({"metrics", "dev0", "--listen", "0.0.0.0:0", "--board", board_.path()});
    const std::string printed = tool.printed_until("/metrics\n");
    ASSERT_TRUE(printed.starts_with("metrics on http://0.0.0.0:")) << printed;
    const uint16_t port = port_in(printed);
    const Connection elsewhere(port, INADDR_LOOPBACK + 1);
    EXPECT_TRUE(elsewhere.say(kGet));
    EXPECT_TRUE(elsewhere.heard().starts_with("HTTP/1.1 200 "));
    EXPECT_EQ(tool.end(SIGTERM).status, 0);
}

TEST_F(OwnBoard, AddressesThatAreNone) {
    for (const char* address : {"nowhere", "1.2.3.4.5", "127.0.0.1:65536", "127.0.0.1:", "[::1",
                                "[::1]x", "127.0.0.1:http", "127.0.0.1:0x10", ":-1"}) {
        expect_error(run({"metrics", "--listen", address}), 2,
                     "sideband-sim: metrics: " + std::string(address) +
                         ": an address to listen on is given as 127.0.0.1:9823 or [::1]:9823");
    }
}

/// What a program that is there prints when it is asked for a page.
std::string printed_by(const std::string& command) {
    std::string printed;
    FILE* pipe = popen(command.c_str(), "r");
    char block[4096];
    for (size_t got; pipe != nullptr && (got = std::fread(block, 1, sizeof block, pipe)) > 0;) {
        printed.append(block, got);
    }
    return pipe != nullptr && pclose(pipe) == 0 ? printed : "";
}

TEST_F(MetricsServer, PrometheusScrapesIt) {
    if (printed_by("command -v prometheus").empty()) {
        GTEST_SKIP() << "prometheus is not installed (./dev counterparts does it)";
    }
    const std::string folder =
        testing::TempDir() + "sideband-prometheus-" + std::to_string(getpid());
    std::filesystem::create_directory(folder);
    std::ofstream(folder + "/prometheus.yml")
        << "global: {scrape_interval: 1s, scrape_timeout: 1s}\nscrape_configs:\n"
           "  - {job_name: sideband, static_configs: [{targets: ['127.0.0.1:"
        << port() << "']}]}\n";
    // What is scraped is written ahead, in plain letters; a busy machine takes its time until the
    // first.
    const std::string log = printed_by(
        "cd " + folder +
        " && (prometheus --config.file=prometheus.yml --storage.tsdb.path=data "
        "--no-storage.tsdb.wal-compression --web.listen-address=127.0.0.1:0 >log 2>&1 & "
        "server=$!; for second in $(seq 60); do sleep 1; "
        "grep -aqs sideband_sensor_temperature_celsius data/wal/* && break; done; "
        "sleep 1; kill $server; wait; promtool tsdb dump data >series 2>&1; cat log series)");
    std::filesystem::remove_all(folder);
    EXPECT_TRUE(contains(log, "__name__=\"up\"")) << log;
    EXPECT_TRUE(contains(log, "__name__=\"sideband_sensor_temperature_celsius\"")) << log;
    EXPECT_TRUE(contains(log, "-21.5")) << log;
}

}  // namespace
