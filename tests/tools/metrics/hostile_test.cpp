// SPDX-License-Identifier: Apache-2.0
// Tests that no client of metrics --listen, and no crowd of them, keeps the next one from its
// answer.
#include <chrono>
#include <csignal>
#include <random>
#include <thread>
#include <vector>

#include "tests/tools/metrics/metrics_client.h"

namespace {

using tool_test::asked;
using tool_test::Connection;
using tool_test::contains;
using tool_test::kGet;
using tool_test::MetricsServer;
using tool_test::Outcome;
using Clock = std::chrono::steady_clock;

const std::string kGood = "HTTP/1.1 200 ";

class HostileClients : public MetricsServer {
protected:
    /// The next one has its answer, and the end is clean.
    ~HostileClients() override {
        EXPECT_TRUE(asked(port(), kGet).starts_with(kGood));
        const Outcome end = tool().end(SIGTERM);
        EXPECT_EQ(end.status, 0);
        EXPECT_EQ(end.err, "");
    }
};

TEST_F(HostileClients, ACrowdIsAnsweredToTheLast) {
    constexpr size_t kCrowd = 24;
    std::vector<std::string> answers(kCrowd);
    std::vector<std::thread> crowd;
    for (std::string& answer : answers) {
        crowd.emplace_back([this, &answer] { answer = asked(port(), kGet); });
    }
    for (std::thread& one : crowd) {
        one.join();
    }
    for (const std::string& answer : answers) {
        EXPECT_TRUE(answer.starts_with(kGood) && answer.ends_with("# EOF\n")) << answer;
    }
}

TEST_F(HostileClients, ThoseWhoOnlyKnockAreForgotten) {
    constexpr int kKnocks = 24;
    for (int i = 0; i < kKnocks; ++i) {
        const Connection knock(port());
    }
}

/// The time is that of the whole request, whatever comes meanwhile.
TEST_F(HostileClients, WhoDripsIsSentAway) {
    constexpr std::chrono::milliseconds kPause(100);
    constexpr std::chrono::seconds kLongest(20);
    const Connection slow(port());
    const Clock::time_point begin = Clock::now();
    slow.say("GET /metrics HTTP/1.1\r\nX: ");
    while (!slow.is_answered() && Clock::now() - begin < kLongest) {
        slow.say("x");
        std::this_thread::sleep_for(kPause);
    }
    EXPECT_LT(Clock::now() - begin, kLongest);
    EXPECT_TRUE(slow.heard().starts_with("HTTP/1.1 408 "));
}

TEST_F(HostileClients, OneConnectionHasOneAnswer) {
    const std::string answer = asked(port(), kGet + kGet + kGet);
    EXPECT_TRUE(answer.starts_with(kGood)) << answer;
    EXPECT_EQ(answer.find("HTTP/1.1", 1), std::string::npos) << answer;
}

TEST_F(HostileClients, WhatIsNoRequestIsRefused) {
    const std::string nul(1, '\0');
    for (const std::string& request :
         {nul + kGet, "GET /met" + nul + "rics HTTP/1.1\r\n\r\n", "GET" + kGet,
          std::string("GET  HTTP/1.1\r\n\r\n"), std::string("GET /\x1b[2J HTTP/1.1\r\n\r\n"),
          std::string("\r\n\r\n"), std::string("GET /../metrics HTTP/1.1\r\n\r\n"),
          std::string("GET /metrics HTTP/9.9\r\n\r\n"),
          std::string("PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n"), std::string(5000, 'A') + "\r\n\r\n"}) {
        const std::string answer = asked(port(), request);
        EXPECT_TRUE(answer.starts_with("HTTP/1.1 4") || answer.starts_with("HTTP/1.1 505 "))
            << request << answer;
        EXPECT_FALSE(contains(answer, "\x1b")) << answer;
    }
}

TEST_F(HostileClients, BytesAtRandomAreBorne) {
    std::mt19937 random(4711);
    for (int i = 0; i < 40; ++i) {
        std::string noise(random() % 3000, '\0');
        for (char& c : noise) {
            c = static_cast<char>(random() % 8 == 0 ? "\r\n :/"[random() % 5] : random());
        }
        const std::string answer = asked(port(), noise + "\r\n\r\n");
        EXPECT_TRUE(answer.starts_with("HTTP/1.1 4")) << answer;
    }
}

}  // namespace
