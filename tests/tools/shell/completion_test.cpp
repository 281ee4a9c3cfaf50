// SPDX-License-Identifier: Apache-2.0
// Tests of what shells are told to offer: commands, options, values, endpoints.
#include <sys/stat.h>

#include <algorithm>
#include <sstream>

#include "tests/tools/tool_runner.h"

namespace {

using tool::Json;
using tool_test::contains;
using tool_test::one_document;
using tool_test::Outcome;
using tool_test::OwnBoard;
using tool_test::run_tool;
using tool_test::run_tool_for;
using tool_test::TemporaryFile;
using Strings = std::vector<std::string>;

/// What is offered behind these words: "files" or "words", then the words by themselves.
Strings offered(Strings words) {
    words.insert(words.begin(), "__complete");
    const Outcome run = run_tool_for(words, 60);
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.err, "");
    std::istringstream lines(run.out);
    Strings all;
    for (std::string line; std::getline(lines, line);) {
        all.push_back(line.substr(0, line.find('\t')));
    }
    return all;
}

bool has(const Strings& all, const std::string& word) {
    return std::find(all.begin(), all.end(), word) != all.end();
}

TEST(Completion, OffersCommandsAndWhatIsUnderThem) {
    const Strings top = offered({""});
    EXPECT_EQ(top.front(), "words");
    for (const char* command : {"demo", "scan", "mctp", "pldm", "nvme", "check", "batch"}) {
        EXPECT_TRUE(has(top, command)) << command;
    }
    EXPECT_FALSE(has(top, "__complete"));
    EXPECT_EQ(offered({"pldm", "f"}), (Strings{"words", "fru", "fw-info", "fw-update"}));
    EXPECT_EQ(offered({"pldm", "pdr", ""}), (Strings{"words", "list", "show", "dump"}));
    EXPECT_EQ(offered({"--json", "--timeout", "5", "pldm", "fr"}), (Strings{"words", "fru"}));
    EXPECT_EQ(offered({"nonsense", "pld"}), (Strings{"words", "pldm"}));
    EXPECT_EQ(offered({}), top);
}

TEST(Completion, OffersOptionsThatMayStillCome) {
    const Strings options = offered({"pldm", "sensors", "nic0", "--"});
    for (const char* option : {"--watch", "--count", "--json", "--board", "--help", "--timeout"}) {
        EXPECT_TRUE(has(options, option)) << option;
    }
    EXPECT_EQ(std::count(options.begin(), options.end(), "--help"), 1);
    EXPECT_FALSE(has(offered({"--json", "scan", "--"}), "--json"));
    EXPECT_TRUE(has(offered({"--fault", "nic0=no_ack", "scan", "--"}), "--fault"));
    EXPECT_FALSE(has(offered({"scan", "--"}), "--watch"));
    EXPECT_EQ(offered({"scan", "--", "--"}), Strings{"words"});
}

TEST(Completion, OffersValues) {
    EXPECT_EQ(offered({"--color", ""}), (Strings{"words", "auto", "always", "never"}));
    EXPECT_EQ(offered({"--color=n"}), (Strings{"words", "--color=never"}));
    EXPECT_EQ(offered({"nvme", "config", "set", "nvme0", "--frequency", ""}),
              (Strings{"words", "100", "400", "1000"}));
    EXPECT_EQ(offered({"nvme", "sanitize", "nvme0", "b"}), (Strings{"words", "block-erase"}));
    EXPECT_EQ(offered({"ncsi", "oem", "mlx-tlv", "set", "ncsi0", "--flag", ""}),
              (Strings{"words", "0", "1"}));
    EXPECT_EQ(offered({"raw", "nic0", "n"}), (Strings{"words", "ncsi", "nvme-mi"}));
    EXPECT_EQ(offered({"--timeout", ""}), Strings{"words"});
    EXPECT_EQ(offered({"--fault", "gpu"}), (Strings{"words", "gpu0=", "gpu1="}));
}

TEST(Completion, OffersFilesWhereTheyBelong) {
    for (const Strings& words : {Strings{"--board", ""},
                                 {"--board="},
                                 {"--capture", "x"},
                                 {"pkg", "show", ""},
                                 {"pkg", "create", ""},
                                 {"pkg", "create", "x", "--image", ""},
                                 {"pkg", "create", "x", "--image", "a", ""},
                                 {"pldm", "fw-update", "nic0", ""},
                                 {"nvme", "fw-download", "nvme0", ""},
                                 {"batch", ""},
                                 {"check", "nic0", "--junit", ""},
                                 {"serve", "--tty", ""},
                                 {"board", "check", ""}}) {
        EXPECT_EQ(offered(words), Strings{"files"}) << Json(words).dump();
    }
    EXPECT_EQ(offered({"ncsi", "select", "ncsi0", ""}), Strings{"words"});
}

TEST_F(OwnBoard, CompletionOffersItsEndpoints) {
    const Strings all{"words", "dev0", "rec0", "dead0"};
    const std::string path = board_.path();
    for (const Strings& words : {Strings{"--board", path, "mctp", "eid", ""},
                                 {"--board=" + path, "pldm", "sensors", ""},
                                 {"mctp", "--board", path, "eid", ""},
                                 {"check", "--board", path, ""},
                                 {"metrics", "--board", path, "dev0", ""}}) {
        EXPECT_EQ(offered(words), all) << Json(words).dump();
    }
    EXPECT_EQ(offered({"--board", path, "mctp", "eid", "d"}), (Strings{"words", "dev0", "dead0"}));
    EXPECT_TRUE(has(offered({"mctp", "eid", ""}), "nvme0"));
}

TEST(Completion, OffersNoNameThatMeansSomethingToAShell) {
    Json devices = Json::array();
    int address = 0x40;
    for (const char* name : {"$(id)",
                             "`id`",
                             "a'b",
                             "a\"b",
                             "a;b",
                             "a|b",
                             "a&b",
                             "a>b",
                             "a<b",
                             "a*b",
                             "a?b",
                             "a[b",
                             "a{b",
                             "~b",
                             "#b",
                             "!b",
                             "=b",
                             "-b",
                             "a\\b",
                             "a^b",
                             "\x01",
                             "\xC3\xA4",
                             "good-1_2.3/4@5%6+7,8"}) {
        devices.push_back(Json{{"name", name}, {"type", "pldm"}, {"bus", 1}, {"address", address}});
        address += 2;
    }
    const TemporaryFile board(Json{
        {"name", "b"},
        {"buses", Json::array({Json{{"bus", 1}}})},
        {"devices", devices}}.dump());
    EXPECT_EQ(run_tool({"board", "check", board.path()}).status, 0);
    EXPECT_EQ(offered({"--board", board.path(), "mctp", "eid", ""}),
              (Strings{"words", "good-1_2.3/4@5%6+7,8"}));
}

TEST(Completion, SaysNothingOfABoardThatCannotBeRead) {
    const TemporaryFile broken("{\"name\": ");
    const std::string fifo = broken.path() + "-fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    for (const std::string& board : {broken.path(), fifo, std::string("/nonexistent"),
                                     std::string("/"), std::string("/dev/zero")}) {
        EXPECT_EQ(offered({"--board", board, "mctp", "eid", ""}), Strings{"words"}) << board;
    }
    unlink(fifo.c_str());
}

TEST(Completion, PutsHelpBehindATabulator) {
    EXPECT_EQ(run_tool({"__complete", "pldm", "sens"}).out, "words\nsensors\tsensor readings\n");
    EXPECT_EQ(run_tool({"__complete", "mctp", "eid", "gpu0"}).out, "words\ngpu0\ti2c:3:0x9e\n");
}

TEST(CommandTree, HasWhatHelpHas) {
    const Json tree = one_document(run_tool({"__commands"}).out);
    EXPECT_EQ(tree["name"], "sideband-sim");
    const std::string help = run_tool({"--help"}).out;
    EXPECT_FALSE(contains(help, "__co")) << help;
    EXPECT_GE(tree["commands"].size(), 12U);
    for (const Json& command : tree["commands"]) {
        EXPECT_TRUE(contains(help, "\n  " + command["name"].text() + " "));
    }
    for (const Json& option : tree["options"]) {
        EXPECT_TRUE(contains(help, option["names"][0].text())) << option.dump();
    }
}

}  // namespace
