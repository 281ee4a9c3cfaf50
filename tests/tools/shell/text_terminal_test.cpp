// SPDX-License-Identifier: Apache-2.0
// Tests that no name, text or path from outside reaches the operator's terminal with its control
// characters, whatever the command.
#include "tests/tools/hostile_text.h"
#include "tests/tools/update/firmware_bench.h"

namespace {

using tool::Json;
using tool_test::contains;
using tool_test::expect_harmless;
using tool_test::FirmwareBoard;
using tool_test::one_document;
using tool_test::Outcome;
using tool_test::parse_json;
using tool_test::run_tool;
using tool_test::run_tool_typing;
using tool_test::TemporaryFile;

const std::string kNic = "nic\x1b[31m0";
const std::string kGpu = "gpu\u009b32m\x7f";

/// A board on which all that has a name or a text has one that wants to do more than be read.
std::string hostile_board() {
    Json board = parse_json(FirmwareBoard().text());
    board["name"] = "bench\x1b]0;mine\x07\nforged: all is well";
    Json& card = board["devices"][0];
    card["name"] = kNic;
    card["sensors"] = parse_json(R"([
        {"kind": "numeric", "id": 1, "name": "in\u001b[2J\nforged: sensor", "unit": "C\u009b1m",
         "waveform": {"shape": "constant", "value": 1}},
        {"kind": "state", "id": 2, "name": "st\u0007ate\r", "composites": [{"state_set": 1, "states": [1]}]}])");
    card["firmware"]["active"] = "1.0\x1b[5m\nforged: version";
    card["firmware"]["components"][0]["active"]["text"] = "fw\u009b5m";
    card["fru"] = parse_json(R"({"records": [{"set": 1, "encoding": 2, "fields": [
        {"type": "model", "text": "M\u001b[1m\u009b2m\nforged: model"}]}]})");
    board["devices"][2]["name"] = kGpu;
    return board.dump();
}

class HostileBoard : public ::testing::Test {
protected:
    Outcome run(std::vector<std::string> arguments) const {
        arguments.insert(arguments.end(), {"--board", board_.path()});
        return run_tool(arguments);
    }

    TemporaryFile board_{hostile_board()};
    TemporaryFile package_{tool_test::file_of(hostile_package())};

private:
    static tool::Package hostile_package() {
        tool::Package package = tool_test::card_package();
        package.version =
            "card\x1b[2J\nforged: package\x9b"
            "0m";
        package.records[0].version = "set\u009b0m\nforged: set";
        package.components[0].version = "fw\x7f\nforged: component";
        return package;
    }
};

TEST_F(HostileBoard, NoCommandObeysAName) {
    for (const std::string& name : {kNic, kGpu}) {
        EXPECT_EQ(run({"mctp", "eid", name}).status, 0);
        for (std::vector<std::string> command :
             {std::vector<std::string>{"mctp", "eid", name},
              {"mctp", "routes", name},
              {"raw", name, "pldm", "800002"},
              {"pldm", "info", name},
              {"pldm", "info", name, "--verbose"},
              {"pldm", "sensors", name},
              {"pldm", "sensors", name, "77"},
              {"pldm", "pdr", "show", name},
              {"pldm", "fru", name},
              {"pldm", "fw-info", name},
              {"pldm", "fw-update", name, package_.path(), "--query"},
              {"ncsi", "discover", name},
              {"nvme", "health", name},
              {"nvme", "ns", "delete", name, "1"}}) {
            SCOPED_TRACE(Json(command).dump());
            expect_harmless(run(command));
            command.push_back("--json");
            const Outcome document = run(command);
            expect_harmless(document);
            one_document(document.out);
        }
    }
}

TEST_F(HostileBoard, NamesAreShownWithTheirControlCharactersInHex) {
    const Outcome scan = run({"scan"});
    expect_harmless(scan);
    EXPECT_TRUE(contains(scan.out, "\nnic\\x1b[31m0 ")) << scan.out;
    EXPECT_TRUE(contains(scan.out, "\ngpu\\xc2\\x9b32m\\x7f ")) << scan.out;
    const Outcome document = run({"scan", "--json"});
    expect_harmless(document);
    EXPECT_EQ(one_document(document.out)["endpoints"][0]["endpoint"], "nic\\x1b[31m0");
}

TEST_F(HostileBoard, TheTourObeysNothing) {
    const Outcome tour = run({"demo"});
    expect_harmless(tour);
    EXPECT_TRUE(contains(tour.out, "bench\\x1b]0;mine\\x07\\x0aforged")) << tour.out;
    EXPECT_TRUE(contains(tour.out, "in\\x1b[2J\\x0aforged")) << tour.out;
    const Outcome document = run({"demo", "--json"});
    expect_harmless(document);
    one_document(document.out);
}

TEST_F(HostileBoard, ErrorsNotesAndQuestionsObeyNothing) {
    for (const std::vector<std::string>& command :
         {std::vector<std::string>{"mctp", "eid", "other\x1b[31m\nforged: error"},
          {"pldm", "fru",
           "\x9b"
           "31m"},
          {"raw", kNic, "\x1b", "00"},
          {"mctp", "eid", kNic, "--capture", "/nonexistent\x1b[1m\n/x"},
          {"scan", "\x1b[31m\nforged: argument"},
          {"pkg", "show", "/nonexistent\x9b\n/x"}}) {
        SCOPED_TRACE(Json(command).dump());
        const Outcome failed = run(command);
        EXPECT_NE(failed.status, 0);
        EXPECT_EQ(failed.err.find('\n'), failed.err.size() - 1) << failed.err;
        expect_harmless(failed);
    }
    const Outcome unknown = run({"mctp", "eid", "none"});
    EXPECT_EQ(
        unknown.err,
        "sideband-sim: mctp eid: none: no such device on board bench\\x1b]0;mine\\x07\\x0aforged: "
        "all is well; it has: nic\\x1b[31m0, mpio0, gpu\\xc2\\x9b32m\\x7f\n");
    const Outcome asked =
        run_tool_typing({"nvme", "ns", "delete", kNic, "1", "--board", board_.path()}, "n\n");
    EXPECT_TRUE(contains(asked.err, "nic\\x1b[31m0")) << asked.err;
    expect_harmless(asked);
}

TEST_F(HostileBoard, PackagesAreShownWithTheirControlCharactersInHex) {
    const Outcome shown = run_tool({"pkg", "show", package_.path()});
    expect_harmless(shown);
    EXPECT_TRUE(shown.out.starts_with("Version   card\\x1b[2J\\x0aforged: package\\x9b0m\n"))
        << shown.out;
    EXPECT_TRUE(contains(shown.out, "  Version       set\\xc2\\x9b0m\\x0aforged: set\n"));
    EXPECT_TRUE(contains(shown.out, "  fw\\x7f\\x0aforged: component\n"));
    const Outcome document = run_tool({"pkg", "show", package_.path(), "--json"});
    expect_harmless(document);
    EXPECT_EQ(one_document(document.out)["version"], "card\\x1b[2J\\x0aforged: package\\x9b0m");
    EXPECT_EQ(one_document(document.out)["components"][0]["version"],
              "fw\\x7f\\x0aforged: component");
}

TEST(HostileBoardFile, IsRefusedInWordsThatATerminalDoesNotObey) {
    for (const char* content : {"{\"name\": \"b\", \"ke\\u001b[31my\\nforged: key\": 1}",
                                "{\"na\x9b"
                                "31mme\": 1}",
                                "{\"name\": \x1b[31m\nforged: token}",
                                R"({"name": "b", "buses": [{"bus": 1}], "devices": [
              {"name": "a\u001b[31m", "type": "pl\u001b[31mdm", "bus": 1, "address": "0x40"}]})"}) {
        const TemporaryFile board(content);
        const Outcome refused = run_tool({"scan", "--board", board.path()});
        EXPECT_EQ(refused.status, 3);
        expect_harmless(refused);
    }
}

}  // namespace
