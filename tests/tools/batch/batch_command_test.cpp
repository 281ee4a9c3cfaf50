// SPDX-License-Identifier: Apache-2.0
// Tests of the command batch: one board for all commands, how one that fails ends it.
#include <sys/wait.h>

#include <csignal>
#include <cstdlib>
#include <sstream>

#include "tests/tools/tool_runner.h"

namespace {

using tool::Json;
using tool_test::contains;
using tool_test::expect_error;
using tool_test::one_document;
using tool_test::Outcome;
using tool_test::OwnBoard;
using tool_test::run_tool;
using tool_test::run_tool_typing;
using tool_test::TemporaryFile;
using Strings = std::vector<std::string>;

Outcome run_lines(const std::string& lines, const Strings& options = {}) {
    const TemporaryFile file(lines);
    Strings words{"batch", file.path()};
    words.insert(words.end(), options.begin(), options.end());
    Outcome run = run_tool(words);
    for (size_t at; (at = run.err.find(file.path())) != std::string::npos;) {
        run.err.replace(at, file.path().size(), "FILE");
    }
    return run;
}

TEST(Batch, TheBoardKeepsItsState) {
    const Outcome run = run_lines(
        "# a namespace\n\nnvme ns create nvme0 --blocks 1024\nnvme ns attach nvme0 2   # now\n"
        "'nvme' ns \"list\" nvme0\n");
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.err, "");
    EXPECT_TRUE(contains(run.out,
                         "namespace 2 has been created; no controller is attached to it\n"
                         "namespace 2 is attached to controller 0\nNSID  ATTACHED"))
        << run.out;
    EXPECT_TRUE(contains(run.out, "\n   2  yes ")) << run.out;
}

TEST(Batch, StopsAtTheFirstFailure) {
    const Outcome run = run_lines("mctp eid nic0\nmctp eid nic9\nmctp eid gpu0\n");
    EXPECT_EQ(run.status, 1);
    EXPECT_FALSE(contains(run.out, "29")) << run.out;
    EXPECT_TRUE(run.err.starts_with(
        "sideband-sim: batch: FILE:2: mctp eid: nic9: no such device on board desk; "))
        << run.err;
}

TEST(Batch, GoesOnIfItIsToldTo) {
    const Outcome run = run_lines("nonsense\nmctp eid nic9\nmctp eid gpu0\n", {"--keep-going"});
    EXPECT_EQ(run.status, 2) << "that of the first failure";
    EXPECT_TRUE(contains(run.out, "29")) << run.out;
    EXPECT_TRUE(
        run.err.starts_with("sideband-sim: batch: FILE:1: nonsense: no such command (try --help)\n"
                            "sideband-sim: batch: FILE:2: mctp eid: nic9: "))
        << run.err;
}

TEST(Batch, OneDocumentALine) {
    const Outcome run = run_lines("mctp eid gpu0\n\nmctp eid nic9\n'\nmctp uuid gpu0\n",
                                  {"--json", "--keep-going"});
    EXPECT_EQ(run.status, 1);
    std::istringstream lines(run.out);
    std::vector<Json> documents;
    for (std::string line; std::getline(lines, line);) {
        documents.push_back(one_document(line));
    }
    ASSERT_EQ(documents.size(), 4U) << run.out;
    EXPECT_EQ(documents[0].at("endpoint"), "gpu0");
    EXPECT_EQ(documents[1].at("error").at("exit_status"), 1);
    EXPECT_EQ(documents[2].at("error").at("message"), "the quote ' has no end");
    EXPECT_TRUE(documents[3].contains("uuid"));
}

TEST(Batch, LinesThatAreNone) {
    const std::string where = "sideband-sim: batch: FILE:1: ";
    expect_error(run_lines("scan 'x\n"), 3, where + "the quote ' has no end");
    expect_error(run_lines(std::string("a\0b\n", 4)), 3, where + "a NUL byte is no text");
    expect_error(run_lines(std::string(70000, 'x')), 3,
                 where + "the line has more than 65536 bytes");
    expect_error(run_lines("--board x scan"), 2,
                 where + "--board stands in front of batch, for all commands");
    expect_error(run_lines("scan --json=1"), 2,
                 where + "--json stands in front of batch, for all commands");
    expect_error(run_lines("batch -"), 2, where + "batch: a batch has no batch in it");
}

TEST(Batch, FilesThatAreNone) {
    expect_error(run_tool({"batch", "/nowhere"}), 3,
                 "sideband-sim: batch: /nowhere: No such file or directory");
    expect_error(run_tool({"batch", "/"}), 3, "sideband-sim: batch: /: Is a directory");
    const Outcome empty = run_lines("");
    EXPECT_EQ(empty.status, 0);
    EXPECT_EQ(empty.out + empty.err, "");
}

TEST(Batch, StandardInput) {
    const Outcome run = run_tool_typing({"batch", "-"}, "mctp eid gpu0\nmctp eid nic9\n");
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(contains(run.out, "29")) << run.out;
    EXPECT_TRUE(run.err.starts_with("sideband-sim: batch: standard input:2: mctp eid: nic9: "))
        << run.err;
}

TEST(Batch, StandardInputThatCannotBeRead) {
    for (const auto& [input, why] :
         {std::pair{"</", "Is a directory"}, std::pair{"<&-", "Bad file descriptor"}}) {
        const TemporaryFile said("");
        const std::string command =
            "exec \"$SIDEBAND_TOOL\" batch - " + std::string(input) + " 2>" + said.path();
        const int status = std::system(command.c_str());
        EXPECT_EQ(WEXITSTATUS(status), 3);
        EXPECT_EQ(said.content(),
                  "sideband-sim: batch: standard input: " + std::string(why) + "\n");
    }
}

TEST(Batch, ASignalEndsIt) {
    std::string lines;
    for (int i = 0; i < 4000; ++i) {
        lines += "mctp eid gpu0\n";
    }
    const TemporaryFile file(lines);
    const Outcome run = tool_test::run_tool_until({"batch", file.path()}, "29", SIGTERM);
    EXPECT_EQ(run.status, 128 + SIGTERM);
    EXPECT_EQ(run.err, "");
}

}  // namespace
