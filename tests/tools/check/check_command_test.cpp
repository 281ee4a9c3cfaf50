// SPDX-License-Identifier: Apache-2.0
// Tests of check.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "tests/tools/tool_runner.h"

namespace {

using tool_test::contains;
using tool_test::expect_error;
using tool_test::Json;
using tool_test::one_document;
using tool_test::Outcome;
using tool_test::parse_json;
using tool_test::replay_board;
using tool_test::run_on;
using tool_test::run_tool;
using tool_test::run_tool_for;
using tool_test::TemporaryFile;

constexpr unsigned kLongestSeconds = 60;

/// A device whose Get Message Type Support tells of a type too few.
std::string lying_board() {
    return replay_board(parse_json(R"([{"message_type": 0, "request": "8005",
                                        "response": "0005000201"}])"));
}

TEST(Check, TellsWhatFailedWithTheBytes) {
    const Outcome run = run_on(lying_board(), {"check", "rec0", "--rule", "mctp.types"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out, R"(RULE               OUTCOME  WHY NOT
mctp.types.length  failed   -
mctp.types.proper  passed   -

mctp.types.length failed: Get Message Type Support names as many as it says (DSP0236, 12.7)
  expected  a byte for each message type behind their number
  request   type 0x00  8105
  response  0105000201

2 rules: 1 passed, 1 failed, 0 not applicable
)");
}

TEST(Check, TellsItInJson) {
    const Outcome run = run_on(lying_board(), {"check", "rec0", "--rule", "mctp.types", "--json"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(one_document(run.out).dump(), parse_json(R"({
        "endpoint": "rec0", "eid": 12, "rules": [
          {"rule": "mctp.types.length", "clause": "DSP0236, 12.7", "outcome": "failed",
           "expected": "a byte for each message type behind their number",
           "exchanges": [{"message_type": 0, "request": "8105", "response": "0105000201",
                          "packets": []}]},
          {"rule": "mctp.types.proper", "clause": "DSP0236, 12.7", "outcome": "passed"}],
        "passed": 1, "failed": 1, "not_applicable": 0})")
                                                .dump());
}

TEST(Check, TellsThatNoAnswerCame) {
    const Outcome run =
        run_on(lying_board(), {"check", "rec0", "--rule", "mctp.control.unsupported"});
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(contains(run.out, "  request   type 0x00  8170\n  response  none\n")) << run.out;
}

TEST(Check, ShowsThePacketsOfThoseThatAreAboutPackets) {
    const Json faults = parse_json(R"([{"kind": "wrong_tag"}])");
    Json board = parse_json(lying_board());
    board["devices"][0]["faults"] = faults;
    board["devices"][0]["faults"][0]["after"] = 1;
    const Outcome run = run_on(board.dump(), {"check", "rec0", "--rule", "mctp.packet.tag"});
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(contains(run.out, "  packet    01080cc")) << run.out;
}

TEST(Check, SaysWhyARuleDoesNotApply) {
    const Outcome run = run_on(lying_board(), {"check", "rec0", "--rule", "nvme"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out,
              "RULE               OUTCOME         WHY NOT\n"
              "nvme.* (29 rules)  not applicable  the device does not name NVMe-MI among its "
              "message types\n\n29 rules: 0 passed, 0 failed, 29 not applicable\n");
}

TEST(Check, TriesWhatChangesSomethingOnlyIfItMay) {
    const std::vector<std::string> words = {"check", "gpu0", "--rule", "mctp.set-eid.own"};
    EXPECT_EQ(run_tool(words).out,
              "RULE              OUTCOME         WHY NOT\n"
              "mctp.set-eid.own  not applicable  it changes the device: only with --write\n\n"
              "1 rule: 0 passed, 0 failed, 1 not applicable\n");
    std::vector<std::string> writing = words;
    writing.emplace_back("--write");
    EXPECT_TRUE(contains(run_tool(writing).out, "1 rule: 1 passed"));
}

TEST(Check, DoesNotMindHowStrictTheToolIs) {
    const Outcome lax = run_tool({"check", "nvme0", "--lax"});
    EXPECT_EQ(lax.status, 0);
    EXPECT_EQ(run_tool({"check", "nvme0", "--strict"}).out, lax.out);
}

/// Whether Python takes a file for XML, with so many test cases, failures and skipped ones.
bool is_junit(const std::string& path, const std::string& counts) {
    const std::string program =
        "import sys, xml.etree.ElementTree as e; r = e.parse(sys.argv[1]).getroot(); "
        "c = len(r.findall('testsuite/testcase')), len(r.findall('*/*/failure')), "
        "len(r.findall('*/*/skipped')); s = r.find('testsuite'); "
        "a = tuple(int(s.get(n)) for n in ('tests', 'failures', 'skipped')); "
        "print(c); sys.exit(0 if c == a and str(c) == sys.argv[2] else 1)";
    const std::string command =
        "python3 -c \"" + program + "\" '" + path + "' '" + counts + "' >&2";
    return std::system(command.c_str()) == 0;
}

TEST(Check, WritesJunit) {
    const TemporaryFile report("");
    const Outcome run =
        run_on(lying_board(), {"check", "rec0", "--rule", "mctp.types", "--junit", report.path()});
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(is_junit(report.path(), "(2, 1, 0)")) << report.content();
    EXPECT_EQ(report.content(), R"(<?xml version="1.0" encoding="UTF-8"?>
<testsuites tests="2" failures="1" skipped="0">
  <testsuite name="rec0" tests="2" failures="1" skipped="0">
    <testcase classname="rec0" name="mctp.types.length">
      <failure message="expected a byte for each message type behind their number">DSP0236, 12.7
expected  a byte for each message type behind their number
request   type 0x00  8105
response  0105000201
</failure>
    </testcase>
    <testcase classname="rec0" name="mctp.types.proper"/>
  </testsuite>
</testsuites>
)");
}

TEST(Check, WritesJunitThatNoNameCanBreak) {
    Json board = parse_json(lying_board());
    const std::string name = "a\"b<c>&d'\x1b\xff\xc3\xa9]]>";
    std::string text = board.dump();
    const size_t at = text.find("\"rec0\"");
    text.replace(at, 6, R"("a\"b<c>&d'\u001bé]]>")");
    const TemporaryFile report("");
    const Outcome run = run_on(text, {"check", "a\"b<c>&d'\x1b\xc3\xa9]]>", "--rule", "mctp.types",
                                      "--junit", report.path()});
    EXPECT_EQ(run.status, 1) << run.err;
    EXPECT_TRUE(is_junit(report.path(), "(2, 1, 0)")) << report.content();
}

TEST(Check, FailsIfTheReportCannotBeWritten) {
    expect_error(run_tool({"check", "gpu0", "--junit", "/nowhere/report.xml"}), 1,
                 "sideband-sim: check: /nowhere/report.xml: the report cannot be written");
    const Outcome full =
        run_tool({"check", "gpu0", "--rule", "mctp.types", "--junit", "/dev/full"});
    EXPECT_EQ(full.status, 1);
    EXPECT_EQ(full.err, "sideband-sim: check: /dev/full: the report cannot be written\n");
}

/// Until there is a report nothing stands at its name that was not there before.
TEST(Check, WithoutAReportTheFileStaysAsItWas) {
    const TemporaryFile report("before");
    for (const std::string& path : {report.path(), report.path() + ".new"}) {
        const Outcome nobody = run_tool({"check", "i2c:3:0x70", "--junit", path});
        EXPECT_EQ(nobody.status, 1);
        EXPECT_TRUE(contains(nobody.err, "no acknowledge from i2c:3:0x70")) << nobody.err;
        const Outcome late = run_tool({"check", "nic0", "--timeout", "0.1", "--junit", path});
        EXPECT_EQ(late.status, 1);
        EXPECT_TRUE(contains(late.err, "the time limit has passed")) << late.err;
    }
    EXPECT_EQ(report.content(), "before");
    const std::filesystem::path made(report.path());
    for (const auto& entry : std::filesystem::directory_iterator(made.parent_path())) {
        EXPECT_FALSE(entry.path().filename().string().starts_with(made.filename().string() + "."))
            << entry.path();
    }
}

/// What is written to through a link is what the link leads to.
TEST(Check, WritesJunitThroughALink) {
    const TemporaryFile report(std::string(100000, 'x'));
    const std::string link = report.path() + "-link";
    std::filesystem::create_symlink(report.path(), link);
    run_on(lying_board(), {"check", "rec0", "--rule", "mctp.types", "--junit", link});
    EXPECT_TRUE(is_junit(report.path(), "(2, 1, 0)")) << report.content().substr(0, 2000);
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    std::filesystem::remove(link);
}

TEST(Check, RefusesWrongUsage) {
    expect_error(run_tool({"check"}), 2, "sideband-sim: check: ENDPOINT is required (try --help)");
    expect_error(run_tool({"check", "gpu0", "--rule", "mctp.none"}), 2,
                 "sideband-sim: check: mctp.none: no rule has a name that begins so; see --list");
    const Outcome nobody = run_tool({"check", "i2c:3:0x70"});
    EXPECT_EQ(nobody.status, 1);
    EXPECT_TRUE(contains(nobody.err, "no acknowledge from i2c:3:0x70")) << nobody.err;
}

TEST(Check, EndsOnABadBus) {
    for (const char* kind : {"no_ack", "lost", "duplicate", "reorder", "late", "truncate",
                             "over_long", "bad_pec", "wrong_tag", "wrong_sequence", "not_ready"}) {
        SCOPED_TRACE(kind);
        Json fault{{"kind", kind}, {"after", 10}, {"every", 3}};
        if (kind == std::string("late")) {
            fault["delay_us"] = 3'000'000;
        }
        Json board = parse_json(R"({"name": "bad", "buses": [{"bus": 1}], "devices": [
            {"name": "dev0", "type": "pldm", "bus": 1, "address": "0x40", "eid": 12, "tid": 7,
             "sensors": [{"kind": "numeric", "id": 1, "data_size": 1,
                          "waveform": {"shape": "constant", "value": 20}}]}]})");
        board["devices"][0]["faults"] = Json::array({fault});
        const TemporaryFile file(board.dump());
        const Outcome run = run_tool_for(
            {"--board", file.path(), "--json", "check", "dev0", "--write"}, kLongestSeconds);
        const Json report = one_document(run.out);
        const size_t failed = report["failed"].get<size_t>();
        EXPECT_EQ(run.status, failed == 0 ? 0 : 1) << run.err;
        EXPECT_EQ(report["rules"].size(),
                  report["passed"].get<size_t>() + failed + report["not_applicable"].get<size_t>());
    }
}

/// The answer to RequestUpdate is lost, the device has taken the request, and the time passes.
TEST(Check, LeavesUpdateModeAlsoIfItNeverHeardOfIt) {
    constexpr int kBeforeTheAnswer = 7;
    const TemporaryFile batch(
        "check nic0 --write --rule update.mode.enter --timeout 0.2\n"
        "raw nic0 pldm 80051b\n");
    const Json fault{{"kind", "lost"}, {"after", kBeforeTheAnswer}, {"count", 1}};
    const Outcome run =
        run_tool({"--fault", "nic0=" + fault.dump(), "batch", batch.path(), "--keep-going"});
    EXPECT_EQ(run.err, "sideband-sim: batch: " + batch.path() +
                           ":1: check: nic0: the check failed: the time limit has passed\n");
    // GetStatus: idle, before that learning components.
    EXPECT_EQ(run.out.substr(0, 12), "00051b000001") << run.out;
}

TEST(Check, ListsItsRules) {
    const Outcome all = run_tool({"check", "--list", "--json"});
    EXPECT_EQ(all.status, 0);
    EXPECT_GT(one_document(all.out)["rules"].size(), 60U);
    EXPECT_EQ(run_tool({"check", "--list", "--rule", "mctp.smbus"}).out,
              "RULE            CLAUSE        WRITES  WHAT MUST HOLD\n"
              "mctp.smbus.pec  DSP0237, PEC  -       each packet on SMBus has a right PEC\n");
}

/// The rows of the tables at the end of the page, as --list has them.
TEST(CheckPage, HasTheRules) {
    const char* path = std::getenv("SIDEBAND_CHECK_PAGE");
    ASSERT_NE(path, nullptr);
    std::ifstream page(path);
    std::string shown;
    bool in_rules = false;
    for (std::string line; std::getline(page, line);) {
        in_rules = in_rules || line == "## The rules";
        if (in_rules && line.starts_with("| `")) {
            shown += line + "\n";
        }
    }
    std::string listed;
    const Json document = one_document(run_tool({"check", "--list", "--json"}).out);
    for (const Json& rule : document["rules"]) {
        listed += "| `" + rule["rule"].get<std::string>() + "` | " +
                  rule["clause"].get<std::string>() + " | " +
                  (rule["writes"].get<bool>() ? "yes" : "") + " | " +
                  rule["text"].get<std::string>() + " |\n";
    }
    EXPECT_EQ(shown, listed);
}

}  // namespace
