// SPDX-License-Identifier: Apache-2.0
// Tests of the tool ended by Ctrl-C, SIGTERM and SIGHUP: what it leaves behind, how it ends.
#include <csignal>
#include <cstdlib>
#include <optional>

#include "tests/tools/tool_runner.h"

namespace {

using tool_test::contains;
using tool_test::Outcome;
using tool_test::OwnBoard;
using tool_test::run_tool_until;
using tool_test::TemporaryFile;
using Strings = std::vector<std::string>;

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};
constexpr int kBySignal = 128;

uint32_t little_endian_at(const std::string& text, size_t at) {
    uint32_t value = 0;
    for (size_t i = 4; i-- > 0;) {
        value = value << 8 | static_cast<uint8_t>(text[at + i]);
    }
    return value;
}

/// The packets of a pcapng file; nothing if it does not consist of whole blocks.
std::optional<size_t> packets_of(const TemporaryFile& capture) {
    constexpr uint32_t kEnhancedPacket = 6;
    const std::string content = capture.content();
    size_t packets = 0;
    for (size_t at = 0; at < content.size();) {
        const uint32_t length = content.size() - at >= 12 ? little_endian_at(content, at + 4) : 0;
        if (length < 12 || length % 4 != 0 || length > content.size() - at ||
            little_endian_at(content, at + length - 4) != length) {
            return std::nullopt;
        }
        packets += little_endian_at(content, at) == kEnhancedPacket ? 1 : 0;
        at += length;
    }
    return packets;
}

class Signals : public OwnBoard {};

TEST_F(Signals, EndWatchingAsIfItWereDone) {
    for (const int signal : kSignals) {
        SCOPED_TRACE(signal);
        const TemporaryFile capture("");
        const Outcome watch = run_tool_until({"--board", board_.path(), "pldm", "sensors", "dev0",
                                              "--watch", "0.001", "--capture", capture.path()},
                                             "inlet", signal);
        EXPECT_EQ(watch.status, 0);
        EXPECT_EQ(watch.err, "");
        EXPECT_TRUE(watch.out.ends_with("failed\n")) << "a table is cut:\n" << watch.out;
        EXPECT_GT(packets_of(capture).value_or(0), 20U);
    }
}

TEST(Signal, EndsACommandInTheMiddleAndItsCaptureIsWhole) {
    for (const int signal : kSignals) {
        SCOPED_TRACE(signal);
        const TemporaryFile capture("");
        const Outcome demo =
            run_tool_until({"demo", "--capture", capture.path()}, "2. MPIO bring-up", signal);
        EXPECT_EQ(demo.status, kBySignal + signal);
        EXPECT_EQ(demo.err, "");
        EXPECT_FALSE(contains(demo.out, "Summary")) << "it has gone on:\n" << demo.out;
        EXPECT_GT(packets_of(capture).value_or(0), 30U);
    }
}

TEST(Signal, EndsACommandWithoutACaptureToo) {
    const Outcome demo = run_tool_until({"demo"}, "1. Discovery (all)", SIGTERM);
    EXPECT_EQ(demo.status, kBySignal + SIGTERM);
    EXPECT_EQ(demo.err, "");
    EXPECT_FALSE(contains(demo.out, "Summary")) << demo.out;
}

/// Sets an environment variable until the end of a scope.
class Environment {
public:
    Environment(const char* name, const std::string& value) : name_(name) {
        const char* before = std::getenv(name);
        if (before != nullptr) {
            before_ = before;
        }
        setenv(name, value.c_str(), 1);
    }
    ~Environment() { before_ ? setenv(name_, before_->c_str(), 1) : unsetenv(name_); }
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;

private:
    const char* name_;
    std::optional<std::string> before_;
};

TEST(Signal, ThatIsIgnoredStaysSo) {
    const char* const wrapper = std::getenv("MESON_EXE_WRAPPER");
    const Environment ignoring("MESON_EXE_WRAPPER",
                               std::string("nohup ") + (wrapper != nullptr ? wrapper : ""));
    const Outcome demo = run_tool_until({"demo"}, "1. Discovery (all)", SIGHUP);
    EXPECT_EQ(demo.status, 0);
    EXPECT_TRUE(contains(demo.out, "36 steps: 36 ok, ")) << demo.out;
}

TEST(Signal, EndsTheQuestionBeforeSomethingIsDestroyed) {
    for (const int signal : kSignals) {
        const Outcome asked = tool_test::run_tool_until_asked({"nvme", "format", "nvme0", "1"},
                                                              "Go on? [y/N] ", signal);
        EXPECT_EQ(asked.status, kBySignal + signal);
        EXPECT_TRUE(asked.err.ends_with("Go on? [y/N] ")) << asked.err;
        EXPECT_EQ(asked.out, "");
    }
}

}  // namespace
