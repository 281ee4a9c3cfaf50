// SPDX-License-Identifier: Apache-2.0
// Tests of how the tool fails: exit status, one line on standard error, one document with --json.
#include <algorithm>

#include "tests/tools/tool_runner.h"

namespace {

using tool::Json;
using tool_test::expect_error;
using tool_test::one_document;
using tool_test::Outcome;
using tool_test::OwnBoard;
using tool_test::parse_json;
using tool_test::run_tool;
using tool_test::TemporaryFile;

class Errors : public OwnBoard {};

TEST_F(Errors, AMissingDeviceEndsWithOne) {
    expect_error(run({"pldm", "info", "nosuch"}), 1,
                 "sideband-sim: pldm info: nosuch: no such device on board bench; it has: dev0, "
                 "rec0, dead0");
    expect_error(run({"mctp", "eid", "i2c:1:0x42"}), 1,
                 "sideband-sim: mctp eid: i2c:1:0x42: Get Endpoint ID failed: no acknowledge from "
                 "i2c:1:0x42");
    expect_error(run({"raw", "i2c:9:0x42", "pldm", "800002"}), 1,
                 "sideband-sim: raw: i2c:9:0x42: Get Endpoint ID failed: no such bus");
    expect_error(run({"mctp", "eid", "pcie:01:02.3"}), 1,
                 "sideband-sim: mctp eid: pcie:01:02.3: opening the PCIe session failed: the "
                 "platform has none");
}

TEST_F(Errors, ADeviceThatDoesNotAcknowledgeEndsWithOne) {
    expect_error(run({"pldm", "sensors", "dead0", "1"}), 1,
                 "sideband-sim: pldm sensors: dead0: Get Endpoint ID failed: no acknowledge from "
                 "i2c:2:0x50");
}

TEST_F(Errors, TheDevicesOwnCodeComesWithItsName) {
    expect_error(run({"mctp", "uuid", "rec0"}), 1,
                 "sideband-sim: mctp uuid: rec0: Get Endpoint UUID failed: completion code 0x01 "
                 "(ERROR)");
    expect_error(run({"mctp", "routes", "dev0"}), 1,
                 "sideband-sim: mctp routes: dev0: Get Routing Table Entries failed: completion "
                 "code 0x05 (ERROR_UNSUPPORTED_CMD)");
    expect_error(run({"pldm", "info", "rec0"}), 1,
                 "sideband-sim: pldm info: rec0: GetTID failed: completion code 0x01 (ERROR)");
}

TEST_F(Errors, OneSensorThatFailsDoesNotHideTheOthers) {
    const Outcome sensors = run({"pldm", "sensors", "dev0", "99", "12"});
    EXPECT_EQ(sensors.status, 1);
    EXPECT_EQ(sensors.err,
              "sideband-sim: pldm sensors: dev0: GetSensorReading of sensor 99 failed: completion "
              "code 0x80 (INVALID_SENSOR_ID)\n");
    EXPECT_EQ(sensors.out,
              "ID  NAME   ENTITY  KIND     RAW  READING  UNIT  THRESHOLDS  STATE\n"
              "99  -      -       numeric    -        -  -     -           failed\n"
              "12  inlet  -       numeric  -43    -21.5  degC  Normal      enabled\n");
}

TEST_F(Errors, AFailingSensorTellsProgramsItsCode) {
    const Outcome sensors = run({"pldm", "sensors", "dev0", "state:99", "12", "--json"});
    EXPECT_EQ(sensors.status, 1);
    const Json list = one_document(sensors.out)["sensors"];
    ASSERT_EQ(list.size(), 2U);
    EXPECT_EQ(list[0]["error"]["operation"], "GetStateSensorReadings of sensor 99");
    EXPECT_EQ(list[0]["error"]["completion_code"], 128);
    EXPECT_EQ(list[0]["error"]["completion_code_name"], "INVALID_SENSOR_ID");
    EXPECT_EQ(list[1]["present_reading"], -43);
}

TEST_F(Errors, ACodeThatNoStandardNamesIsShownAllTheSame) {
    const Outcome sensors = run({"pldm", "sensors", "rec0", "1"});
    EXPECT_EQ(sensors.err,
              "sideband-sim: pldm sensors: rec0: GetSensorReading of sensor 1 failed: completion "
              "code 0x99 (command specific)\n");
}

TEST_F(Errors, ASilentDeviceIsNotAskedForTheOtherSensors) {
    const Outcome sensors = run({"pldm", "sensors", "rec0", "2", "6", "7"});
    EXPECT_EQ(sensors.status, 1);
    EXPECT_EQ(sensors.err,
              "sideband-sim: pldm sensors: rec0: GetSensorReading of sensor 2 failed: no answer\n");
}

TEST_F(Errors, ARepositoryThatSaysNothingEndsWithOne) {
    expect_error(run({"pldm", "sensors", "rec0"}), 1,
                 "sideband-sim: pldm sensors: rec0: GetPDRRepositoryInfo failed: no answer");
}

TEST_F(Errors, AnAnswerWithoutCompletionCodeIsTooShort) {
    const Outcome sensors = run({"pldm", "sensors", "rec0", "5"});
    EXPECT_EQ(sensors.err,
              "sideband-sim: pldm sensors: rec0: GetSensorReading of sensor 5 failed: the answer "
              "has 3 bytes only\n");
}

TEST_F(Errors, ARawMessageWithoutAnswerEndsWithOne) {
    expect_error(run({"raw", "rec0", "pldm", "80003f"}), 1,
                 "sideband-sim: raw: rec0: the exchange of message type 0x01 failed: no answer");
}

TEST(PowerOff, IsNamedAsTheReason) {
    const TemporaryFile board(R"({"name": "off", "power": {"main": false},
        "buses": [{"bus": 1}],
        "devices": [{"name": "dev0", "type": "pldm", "bus": 1, "address": "0x40"}]})");
    expect_error(run_tool({"--board", board.path(), "pldm", "info", "dev0"}), 1,
                 "sideband-sim: pldm info: dev0: Get Endpoint ID failed: the host's main "
                 "power is off");
}

TEST_F(Errors, WrongUsageEndsWithTwo) {
    const std::pair<std::vector<std::string>, const char*> cases[] = {
        {{}, "a command is required (try --help)"},
        {{"scna"}, "scna: no such command (try --help)"},
        {{"pldm"}, "pldm: a command is required (try --help)"},
        {{"pldm", "sensor", "dev0"}, "pldm: sensor: no such command (try --help)"},
        {{"pldm", "info"}, "pldm info: ENDPOINT is required (try --help)"},
        {{"mctp", "eid", "dev0", "x"},
         "mctp eid: The following argument was not expected: x (try --help)"},
        {{"scan", "--jsn"}, "scan: The following argument was not expected: --jsn (try --help)"},
        {{"raw", "dev0", "pldm"}, "raw: HEX is required (try --help)"},
        {{"raw", "dev0", "plmd", "00"},
         "raw: plmd: the type is control, pldm, ncsi, nvme-mi or a number from 0 to 0xff"},
        {{"raw", "dev0", "256", "00"},
         "raw: 256: the type is control, pldm, ncsi, nvme-mi or a number from 0 to 0xff"},
        {{"raw", "dev0", "pldm", "80 0"}, "raw: 80 0: the message is given as pairs of hex digits"},
        {{"raw", "dev0", "pldm", ""}, "raw: the message has no bytes"},
        {{"pldm", "info", "i2c:1"}, "pldm info: i2c:1: an I2C endpoint is named i2c:BUS:ADDRESS"},
        {{"pldm", "info", "i2c:256:0x40"},
         "pldm info: i2c:256:0x40: the bus is a number from 0 to 255"},
        {{"pldm", "info", "i2c:1:0x41"},
         "pldm info: i2c:1:0x41: the address is an even number from 0 to 0xfe (8-bit form); 0x41 "
         "in "
         "7-bit form is 0x82"},
        {{"pldm", "info", "i2c:1:0x81"},
         "pldm info: i2c:1:0x81: the address is an even number from 0 to 0xfe (8-bit form)"},
        {{"pldm", "info", "pcie:1:2.3"},
         "pldm info: pcie:1:2.3: a PCIe endpoint is named pcie:BB:DD.F, in hex"},
        {{"pldm", "info", "pcie:01:20.0"},
         "pldm info: pcie:01:20.0: a PCIe endpoint is named pcie:BB:DD.F, in hex"},
        {{"pldm", "sensors", "dev0", "65536"},
         "pldm sensors: 65536: a sensor is given as 12 or state:5, from 0 to 65535"},
        {{"pldm", "sensors", "dev0", "stat:5"},
         "pldm sensors: stat:5: a sensor is given as 12 or state:5, from 0 to 65535"},
    };
    for (const auto& [arguments, text] : cases) {
        SCOPED_TRACE(text);
        expect_error(run(arguments), 2, std::string("sideband-sim: ") + text);
    }
}

TEST(WrongUsage, OfAnOptionEndsWithTwo) {
    const Outcome board = run_tool({"scan", "--board"});
    EXPECT_EQ(board.status, 2);
    EXPECT_EQ(board.err, "sideband-sim: scan: --board: 1 required FILE missing (try --help)\n");
}

/// Expects the exit status of a bad input file and its one line, up to the text behind the key.
void expect_bad_board(const std::string& content, const std::string& place) {
    const TemporaryFile board(content);
    const Outcome run = run_tool({"--board", board.path(), "scan"});
    EXPECT_EQ(run.status, 3) << content;
    EXPECT_EQ(run.out, "");
    const std::string begin = "sideband-sim: scan: " + board.path() + ":" + place + ": ";
    EXPECT_EQ(run.err.substr(0, begin.size()), begin);
    EXPECT_GT(run.err.size(), begin.size() + 5) << "no reason is told: " << run.err;
    EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
    EXPECT_EQ(run.err.back(), '\n');
}

TEST(BadBoardFile, EndsWithThreeAndNamesLineAndKey) {
    expect_bad_board("{\"name\": \"x\",\n \"buses\": [{\"bus\": 1}],\n \"colour\": 3}",
                     "3: colour");
    expect_bad_board(
        "{\"name\": \"x\",\n \"buses\": [{\"bus\": 1}],\n \"devices\": [\n"
        "  {\"name\": \"a\", \"type\": \"pldm\", \"bus\": 1,\n   \"address\": \"0x41\"}]}",
        "5: devices[0].address");
    expect_bad_board("{\"name\": \"x\",\n \"buses\": [{\"bus\": 300}]}", "2: buses[0].bus");
}

TEST(BadBoardFile, IsToldAllThatIsWrongALineEach) {
    const TemporaryFile board(
        "{\"name\": \"x\",\n \"buses\": [{\"bus\": 1}],\n \"colour\": 3,\n \"devices\": [\n"
        "  {\"name\": \"a\", \"type\": \"pldm\", \"bus\": 1,\n   \"adress\": \"0x40\"}]}");
    const Outcome run = run_tool({"--board", board.path(), "scan", "--json"});
    EXPECT_EQ(run.status, 3);
    const std::string first = board.path() + ":3: colour: no such key";
    const std::string second =
        board.path() + ":6: devices[0].adress: no such key; did you mean address?";
    EXPECT_EQ(run.err, "sideband-sim: scan: " + first + "\nsideband-sim: scan: " + second + "\n");
    const Json document = one_document(run.out);
    EXPECT_EQ(document["error"]["message"], first);
    EXPECT_EQ(document["error"]["more"], Json::array({second}));
}

TEST(BadBoardFile, MayBeNoJsonAtAll) {
    expect_bad_board("{\"name\": \"x\",\n \"buses\": [", "2");
    expect_bad_board(
        "\x7f"
        "ELF",
        "1");
}

TEST(BadBoardFile, MayNotBeThere) {
    expect_error(run_tool({"--board", "/nonexistent/board.json", "scan"}), 3,
                 "sideband-sim: scan: /nonexistent/board.json: No such file or directory");
}

TEST_F(Errors, AreOneDocumentWhereJsonIsWanted) {
    struct Case {
        std::vector<std::string> arguments;
        int status;
        const char* message;
    };
    const Case cases[] = {
        {{"--json", "pldm", "info", "dead0"},
         1,
         "dead0: Get Endpoint ID failed: no acknowledge from i2c:2:0x50"},
        {{"pldm", "info", "i2c:1", "--json"}, 2, "i2c:1: an I2C endpoint is named i2c:BUS:ADDRESS"},
        {{"--json", "scna"}, 2, "scna: no such command (try --help)"},
    };
    for (const Case& one : cases) {
        const Outcome failed = run(one.arguments);
        EXPECT_EQ(failed.status, one.status);
        const Json error = one_document(failed.out)["error"];
        EXPECT_EQ(error["message"], one.message);
        EXPECT_EQ(error["exit_status"], one.status);
    }
}

TEST_F(Errors, WithACodeCarryItForPrograms) {
    const char* const wanted = R"json({
        "message": "rec0: GetTID failed: completion code 0x01 (ERROR)", "endpoint": "rec0",
        "operation": "GetTID", "cause": "device-code", "completion_code": 1, "completion_code_name": "ERROR",
        "exit_status": 1})json";
    const Outcome failed = run({"--json", "pldm", "info", "rec0"});
    EXPECT_EQ(one_document(failed.out)["error"], parse_json(wanted));
}

TEST(UnwritableOutput, EndsWithOne) {
    const Outcome full = run_tool({"scan"}, "/dev/full");
    EXPECT_EQ(full.status, 1);
    EXPECT_EQ(full.err, "sideband-sim: standard output cannot be written\n");
}

TEST(UnwritableCapture, EndsWithOne) {
    expect_error(run_tool({"scan", "--capture", "/nonexistent/x.pcapng"}), 1,
                 "sideband-sim: scan: the capture cannot be written: /nonexistent/x.pcapng: No "
                 "such file or directory");
}

}  // namespace
