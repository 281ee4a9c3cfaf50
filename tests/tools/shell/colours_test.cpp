// SPDX-License-Identifier: Apache-2.0
// Tests of colours: what has them, and where nothing but text must come.
#include <cstdlib>
#include <optional>

#include "tests/tools/tool_runner.h"

namespace {

using tool_test::contains;
using tool_test::one_document;
using tool_test::Outcome;
using tool_test::run_on;
using tool_test::run_tool;
using tool_test::run_tool_on_terminal;
using tool_test::TemporaryFile;
using Strings = std::vector<std::string>;

/// A variable of the environment with another value, or with none, until the scope ends.
class Variable {
public:
    Variable(const char* name, const char* value) : name_(name) {
        if (const char* before = std::getenv(name); before != nullptr) {
            before_ = before;
        }
        value == nullptr ? unsetenv(name) : setenv(name, value, 1);
    }
    ~Variable() { before_ ? setenv(name_, before_->c_str(), 1) : unsetenv(name_); }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

private:
    const char* name_;
    std::optional<std::string> before_;
};

class Colours : public ::testing::Test {
protected:
    Variable term_{"TERM", "xterm"};
    Variable unwanted_{"NO_COLOR", nullptr};
};

/// A sensor in each state of its thresholds, a health sensor for each state, one that failed.
const char* const kBoard = R"({
  "name": "states", "buses": [{"bus": 1}],
  "devices": [{"name": "dev0", "type": "pldm", "bus": 1, "address": "0x40", "sensors": [
    {"kind": "numeric", "id": 1, "waveform": {"shape": "constant", "value": 10},
     "thresholds": {"upper_warning": 20, "upper_critical": 30}},
    {"kind": "numeric", "id": 2, "waveform": {"shape": "constant", "value": 25},
     "thresholds": {"upper_warning": 20, "upper_critical": 30}},
    {"kind": "numeric", "id": 3, "waveform": {"shape": "constant", "value": 35},
     "thresholds": {"upper_warning": 20, "upper_critical": 30}},
    {"kind": "state", "id": 4, "composites": [{"state_set": 1, "states": [1]}]},
    {"kind": "state", "id": 5, "composites": [{"state_set": 1, "states": [2]}]},
    {"kind": "state", "id": 6, "composites": [{"state_set": 1, "states": [3]}]},
    {"kind": "state", "id": 7, "composites": [
      {"state_set": 1, "states": [1], "operational_state": "failed"}]}
  ]}]
})";

const std::string kGreen = "\x1b[32m";
const std::string kYellow = "\x1b[33m";
const std::string kRed = "\x1b[31m";
const std::string kFaint = "\x1b[2m";
const std::string kEnd = "\x1b[0m";

std::string without_colours(std::string text) {
    for (const std::string& code : {kGreen, kYellow, kRed, kFaint, kEnd, std::string("\r")}) {
        for (size_t at; (at = text.find(code)) != std::string::npos;) {
            text.erase(at, code.size());
        }
    }
    return text;
}

TEST_F(Colours, TellOutcomesOfTheTour) {
    const Outcome tour = run_tool_on_terminal({"demo"}, 200);
    EXPECT_EQ(tour.status, 0);
    EXPECT_TRUE(contains(tour.out, "  all       " + kGreen + "ok" + kEnd + "       6 endpoints"))
        << tour.out;
    const Outcome failed = run_tool_on_terminal({"demo", "--fault", "gpu0=no_ack"}, 200);
    EXPECT_TRUE(contains(failed.out, kRed + "failed" + kEnd)) << failed.out;
}

TEST_F(Colours, TellOutcomesOfRules) {
    const Outcome check = run_tool_on_terminal({"check", "rec0"}, 200);
    EXPECT_TRUE(contains(check.out, kGreen + "passed" + kEnd)) << check.out;
    EXPECT_TRUE(contains(check.out, kRed + "failed" + kEnd)) << check.out;
    EXPECT_TRUE(contains(check.out, kFaint + "not applicable" + kEnd)) << check.out;
}

TEST_F(Colours, TellStatesOfSensorsAndWhoAnswers) {
    const TemporaryFile board(kBoard);
    const Outcome run =
        run_tool_on_terminal({"pldm", "sensors", "dev0", "--board", board.path()}, 200);
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_TRUE(contains(run.out, kYellow + "UpperWarning, over 20" + kEnd)) << run.out;
    EXPECT_TRUE(contains(run.out, kRed + "UpperCritical, over 30" + kEnd)) << run.out;
    EXPECT_TRUE(contains(run.out, kYellow + "Non-Critical" + kEnd)) << run.out;
    EXPECT_TRUE(contains(run.out, kRed + "Critical" + kEnd)) << run.out;
    EXPECT_TRUE(contains(run.out, kRed + "failed" + kEnd)) << run.out;
    EXPECT_FALSE(contains(run.out, kEnd + "Normal")) << run.out;
    const Outcome scan = run_tool_on_terminal({"scan", "--fault", "gpu0=no_ack"}, 200);
    EXPECT_TRUE(contains(scan.out, kGreen + "ok" + kEnd)) << scan.out;
    EXPECT_TRUE(contains(scan.out, kRed + "failed" + kEnd)) << scan.out;
}

/// The same table, cell by cell.
TEST_F(Colours, DoNotMoveAnything) {
    const TemporaryFile board(kBoard);
    for (const Strings& command : {Strings{"pldm", "sensors", "dev0", "--board", board.path()},
                                   {"check", "rec0"},
                                   {"scan"},
                                   {"demo"}}) {
        const Outcome screen = run_tool_on_terminal(command, 200);
        EXPECT_NE(screen.out, without_colours(screen.out));
        if (command[0] != "demo") {  // which has a bar, where there is no terminal lines
            EXPECT_EQ(without_colours(screen.out), run_tool(command).out);
        }
    }
}

const Strings kCommands[] = {{"scan"}, {"check", "rec0"}, {"demo"}, {"pldm", "sensors", "nic0"}};

TEST_F(Colours, AreNotInAPipe) {
    for (const Strings& command : kCommands) {
        const Outcome run = run_tool(command);
        EXPECT_FALSE(contains(run.out + run.err, "\x1b")) << run.out;
    }
}

TEST_F(Colours, AreNotInJson) {
    for (Strings command : kCommands) {
        command.insert(command.end(), {"--json", "--color", "always"});
        const Outcome run = run_tool_on_terminal(command, 200);
        EXPECT_FALSE(contains(run.out + run.err, "\x1b")) << run.out;
    }
}

TEST_F(Colours, AreNotWhereNoColorIsSetToSomething) {
    for (const char* value : {"1", "0", "no"}) {
        const Variable unwanted("NO_COLOR", value);
        for (const Strings& command : {Strings{"scan"}, {"check", "rec0"}}) {
            EXPECT_FALSE(contains(run_tool_on_terminal(command, 200).out, "\x1b"));
        }
    }
    const Variable empty("NO_COLOR", "");
    EXPECT_TRUE(contains(run_tool_on_terminal({"scan"}, 200).out, kGreen));
}

TEST_F(Colours, AreNotOnADumbTerminal) {
    const Variable dumb("TERM", "dumb");
    for (const Strings& command : kCommands) {
        EXPECT_FALSE(contains(run_tool_on_terminal(command, 200).out, "\x1b"));
    }
}

TEST_F(Colours, AreAsTheOptionSays) {
    const Variable unwanted("NO_COLOR", "1");
    EXPECT_TRUE(contains(run_tool({"--color", "always", "scan"}).out, kGreen));
    EXPECT_FALSE(contains(run_tool({"--color", "auto", "scan"}).out, "\x1b"));
    const Variable wanted("NO_COLOR", nullptr);
    EXPECT_FALSE(contains(run_tool_on_terminal({"scan", "--color=never"}, 200).out, "\x1b"));
    tool_test::expect_error(run_tool({"scan", "--color", "sometimes"}), 2,
                            "sideband-sim: scan: --color: sometimes is none of auto|always|never "
                            "(try --help)");
}

TEST_F(Colours, LeaveNamesOfDevicesPrintable) {
    const std::string board =
        R"({"name": "b", "buses": [{"bus": 1}], "devices": [
            {"name": "a\u001b[31m", "type": "pldm", "bus": 1, "address": "0x40"}]})";
    const Outcome scan = run_on(board, {"scan", "--color", "always"});
    EXPECT_TRUE(contains(scan.out, "a\\x1b[31m")) << scan.out;
    EXPECT_TRUE(contains(scan.out, kGreen + "ok" + kEnd)) << scan.out;
}

}  // namespace
