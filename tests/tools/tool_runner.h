// SPDX-License-Identifier: Apache-2.0
// Runs the tool as a user does and keeps what it printed and how it ended.
#ifndef SIDEBAND_TESTS_TOOLS_TOOL_RUNNER_H
#define SIDEBAND_TESTS_TOOLS_TOOL_RUNNER_H

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/support/json.h"

namespace tool_test {

using test::parse_json;
using tool::Json;

/// How one run of the tool ended.
struct Outcome {
    int status = -1;  ///< exit status; 128 and the signal's number if a signal ended it
    std::string out;
    std::string err;
};

/// Runs the binary that SIDEBAND_TOOL names, under MESON_EXE_WRAPPER if that is set.
/// @param out  where its standard output goes instead of into the result; null for the result
Outcome run_tool(const std::vector<std::string>& arguments, const char* out = nullptr);

/// Runs the tool and ends it if it takes longer, which is then its outcome.
Outcome run_tool_for(const std::vector<std::string>& arguments, unsigned seconds);

/// Runs the tool and sends it a signal as soon as a text has appeared on its standard output.
Outcome run_tool_until(const std::vector<std::string>& arguments, const std::string& text,
                       int signal);

/// As run_tool_until(), for a text on standard error and a tool that has a terminal to ask on.
Outcome run_tool_until_asked(const std::vector<std::string>& arguments, const std::string& text,
                             int signal);

/// Runs the tool with its standard output on a terminal of so many columns.
Outcome run_tool_on_terminal(const std::vector<std::string>& arguments, unsigned short columns);

/// Runs the tool with a terminal as its standard input, on which this has been typed.
Outcome run_tool_typing(const std::vector<std::string>& arguments, const std::string& typed);

/// The tool while it runs. It is killed if the test ends before it does.
class RunningTool {
public:
    explicit RunningTool(const std::vector<std::string>& arguments);
    ~RunningTool();
    RunningTool(const RunningTool&) = delete;
    RunningTool& operator=(const RunningTool&) = delete;

    /// Waits until its standard output ends with a text. @return all of it so far
    std::string printed_until(const std::string& text);

    /// Seconds of processor time that it has taken.
    double processor_time() const;

    /// Sends it a signal, if one is given, and waits for its end.
    Outcome end(int signal = 0);

private:
    struct Process;
    std::unique_ptr<Process> process_;
};

/// Parses the whole of a text as one JSON document; a text that is none fails the test.
Json one_document(const std::string& text);

/// Whether a text has another one in it.
bool contains(const std::string& text, const std::string& part);

/// Whether a text has a character that a terminal obeys, other than the end of a line: a byte below
/// 0x20 or 0x7f, C1 in UTF-8, a byte from 0x80 to 0x9f that is no part of a character in UTF-8. Or
/// one that misleads who reads: a separator of lines, or a mark that turns the direction of a text.
bool has_control(const std::string& text);

/// Expects a run that succeeded with this on standard output, and with nothing on standard error.
void expect_text(const Outcome& run, const std::string& text);

/// As expect_text(), for one JSON document: the same members in the same order.
void expect_json(const Outcome& run, const char* text);

/// Expects a run that failed: the exit status, one line on standard error, nothing else printed.
void expect_error(const Outcome& run, int status, const std::string& line);

/// A file that lies in the test's temporary folder until the test ends.
class TemporaryFile {
public:
    explicit TemporaryFile(const std::string& content);
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    const std::string& path() const { return path_; }
    std::string content() const;

private:
    std::string path_;
};

/// Runs the tool on the board that a text describes.
Outcome run_on(const std::string& board, std::vector<std::string> arguments);

/// A board whose one device, rec0, answers these exchanges and no others.
std::string replay_board(const Json& exchanges);

/// The board that these tests bring along: a terminus with constant sensors, a replaying device
/// with answers of every kind, a device that never acknowledges.
extern const char* const kTestBoard;

/// Tests that run the tool on test_board.
class OwnBoard : public ::testing::Test {
protected:
    Outcome run(std::vector<std::string> arguments) const;
    TemporaryFile board_{kTestBoard};
};

}  // namespace tool_test

#endif
