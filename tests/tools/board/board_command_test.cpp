// SPDX-License-Identifier: Apache-2.0
// Tests of board check and board dump.
#include <sys/stat.h>
#include <unistd.h>

#include "tests/tools/tool_runner.h"

namespace {

using tool::Json;
using tool_test::contains;
using tool_test::expect_error;
using tool_test::expect_text;
using tool_test::has_control;
using tool_test::kTestBoard;
using tool_test::one_document;
using tool_test::Outcome;
using tool_test::parse_json;
using tool_test::run_on;
using tool_test::run_tool;
using tool_test::run_tool_for;
using tool_test::TemporaryFile;

TEST(BoardCheck, TellsThatAFileIsRight) {
    const TemporaryFile file(kTestBoard);
    expect_text(run_tool({"board", "check", file.path()}),
                file.path() + ": board bench, 3 devices: good\n");
    const Json document = one_document(run_tool({"board", "check", file.path(), "--json"}).out);
    EXPECT_EQ(document.at("board"), "bench");
    EXPECT_EQ(document.at("devices"), 3);
}

TEST(BoardCheck, TellsWhatIsWrongWithKeyAndLine) {
    const TemporaryFile file(
        "{\"name\": \"x\",\n\"buses\": [{\"bus\": 1}],\n\"devices\": [{\"name\": \"a\", "
        "\"type\": \"pldm\",\n\"bus\": 1, \"address\": \"0x41\"}]}");
    const Outcome run = run_tool({"board", "check", file.path()});
    EXPECT_EQ(run.status, 3);
    EXPECT_EQ(run.out, "");
    EXPECT_TRUE(run.err.starts_with("sideband-sim: board check: " + file.path() +
                                    ":4: devices[0].address: "))
        << run.err;
}

TEST(BoardCheck, FilesThatAreNone) {
    expect_error(run_tool({"board", "check", "/nowhere"}), 3,
                 "sideband-sim: board check: /nowhere: No such file or directory");
    expect_error(run_tool({"board", "check", "/"}), 3,
                 "sideband-sim: board check: /: Is a directory");
    const TemporaryFile place("");
    const std::string fifo = place.path() + "-fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    expect_error(run_tool_for({"board", "check", fifo}, 20), 3,
                 "sideband-sim: board check: " + fifo + ": is not a regular file");
    unlink(fifo.c_str());
}

TEST(BoardCheck, LeavesTheBoardOfABatchAlone) {
    const TemporaryFile file(kTestBoard);
    const TemporaryFile batch("nvme ns create nvme0 --blocks 1024\nboard check " + file.path() +
                              "\nnvme ns list nvme0\n");
    const Outcome run = run_tool({"batch", batch.path()});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_TRUE(contains(run.out, "\n   2  no ")) << run.out;
}

TEST(BoardDump, IsABoardFileOfTheSameBoard) {
    const Outcome dumped = run_tool({"board", "dump"});
    EXPECT_EQ(dumped.status, 0) << dumped.err;
    EXPECT_EQ(run_on(dumped.out, {"scan"}).out, run_tool({"scan"}).out);
    EXPECT_EQ(run_on(dumped.out, {"board", "dump"}).out, dumped.out);
    const Outcome own = run_on(kTestBoard, {"board", "dump", "--json"});
    EXPECT_EQ(one_document(own.out), parse_json(kTestBoard));
    EXPECT_EQ(std::count(own.out.begin(), own.out.end(), '\n'), 1);
}

TEST(BoardDump, HasNoCharacterThatATerminalObeys) {
    const char* const board =
        R"({"name": "a\u001b\u0085\u007f\u00e9\u061c\u200e\u2028\u2029\u202e\u2066\u2069\u2070",
            "buses": [{"bus": 1}]})";
    const Outcome dumped = run_on(board, {"board", "dump"});
    EXPECT_EQ(dumped.status, 0) << dumped.err;
    EXPECT_FALSE(has_control(dumped.out)) << dumped.out;
    EXPECT_TRUE(contains(dumped.out, "\\u061c\\u200e\\u2028\\u2029\\u202e\\u2066\\u2069\u2070\""))
        << dumped.out;
    EXPECT_EQ(one_document(dumped.out), parse_json(board));
}

}  // namespace
