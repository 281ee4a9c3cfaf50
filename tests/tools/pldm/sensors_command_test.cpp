// SPDX-License-Identifier: Apache-2.0
// Tests of pldm sensors.
#include <fmt/format.h>

#include "tests/tools/tool_runner.h"

namespace {

using tool::Json;
using tool_test::expect_text;
using tool_test::one_document;
using tool_test::Outcome;
using tool_test::OwnBoard;
using tool_test::parse_json;

TEST_F(OwnBoard, PldmSensorsReadsWhatThePdrsDescribe) {
    expect_text(
        run({"pldm", "sensors", "dev0"}),
        "  ID  NAME    ENTITY  KIND     RAW       READING  UNIT          THRESHOLDS  STATE\n"
        "  12  inlet   -       numeric  -43         -21.5  degC          Normal      enabled\n"
        "  13  outlet  -       numeric    -             -  degC          -           disabled\n"
        "5[0]  health  -       state      2  Non-Critical  HEALTH_STATE  -           enabled\n"
        "5[1]  health  -       state      -             -  HEALTH_STATE  -           failed\n");
}

TEST_F(OwnBoard, PldmSensorsGivesProgramsTheFieldsOfTheStandard) {
    const Json document = one_document(run({"pldm", "sensors", "dev0", "--json"}).out);
    ASSERT_EQ(document["sensors"].size(), 3U);
    EXPECT_EQ(document["sensors"][0], parse_json(R"({"sensor_id": 12, "sensor_type": "numeric",
        "name": "inlet", "sensor_data_size": 3, "sensor_operational_state": 0,
        "sensor_event_message_enable": 0, "present_state": 1, "previous_state": 0,
        "event_state": 1, "present_reading": -43, "value": -21.5, "unit": "degC",
        "entity_type": 0, "entity_instance_number": 1, "container_id": 0, "entity": "",
        "base_unit": 2, "unit_modifier": 0, "rate_unit": 0, "converted_reading": 0})"));
    EXPECT_EQ(document["sensors"][1]["sensor_operational_state"], 1);
    EXPECT_EQ(document["sensors"][1]["present_reading"], nullptr);
    EXPECT_EQ(document["sensors"][1]["converted_reading"], nullptr);
    EXPECT_EQ(document["sensors"][2], parse_json(R"({"sensor_id": 5, "sensor_type": "state",
        "name": "health", "composite_sensor_count": 2, "state_field": [
            {"state_set_id": 1, "state_set_name": "HEALTH_STATE", "sensor_operational_state": 0,
             "present_state": 2, "previous_state": 2, "event_state": 2},
            {"state_set_id": 1, "state_set_name": "HEALTH_STATE",
             "sensor_operational_state": 4}],
        "entity_type": 0, "entity_instance_number": 1, "container_id": 0, "entity": ""})"));
}

TEST_F(OwnBoard, PldmSensorsTakesNumbersOfEitherKind) {
    expect_text(
        run({"pldm", "sensors", "dev0", "state:5", "numeric:12"}),
        "  ID  NAME    ENTITY  KIND     RAW       READING  UNIT          THRESHOLDS  STATE\n"
        "5[0]  health  -       state      2  Non-Critical  HEALTH_STATE  -           enabled\n"
        "5[1]  health  -       state      -             -  -             -           failed\n"
        "  12  inlet   -       numeric  -43         -21.5  degC          Normal      enabled\n");
    expect_text(
        run({"pldm", "sensors", "dev0", "5"}),
        "  ID  NAME    ENTITY  KIND   RAW       READING  UNIT          THRESHOLDS  STATE\n"
        "5[0]  health  -       state    2  Non-Critical  HEALTH_STATE  -           enabled\n"
        "5[1]  health  -       state    -             -  -             -           failed\n");
}

TEST_F(OwnBoard, PldmSensorsNarrowsAReadingAsTheAnswerSays) {
    expect_text(run({"pldm", "sensors", "rec0", "3", "0x04"}),
                "ID  NAME  ENTITY  KIND     RAW  READING  UNIT  THRESHOLDS  STATE\n"
                " 3  -     -       numeric  -10      -10  -     Normal      enabled\n"
                " 4  -     -       numeric   -2       -2  -     Normal      enabled\n");
}

TEST_F(OwnBoard, PldmSensorsReadsADisabledSensorTimeAndAgain) {
    std::vector<std::string> arguments{"pldm", "sensors", "dev0"};
    arguments.insert(arguments.end(), 12, "13");
    const Outcome many = run(arguments);
    EXPECT_EQ(many.status, 0) << many.err;
    EXPECT_EQ(many.err, "");
}

/// Resolution and offset are of single precision: their decimals are those that were meant.
TEST(PldmSensors, ShowsTheDigitsThatTheResolutionHas) {
    const struct {
        const char* keys;
        const char* reading;
        double value;
    } cases[] = {
        {R"("resolution": 2.54, "waveform": {"shape": "constant", "value": 76200})", "76200.00",
         76200},
        {R"("resolution": 1.55, "waveform": {"shape": "constant", "value": 31})", "31.00", 31},
        {R"("resolution": 15.6, "waveform": {"shape": "constant", "value": 1560})", "1560.0", 1560},
        {R"("resolution": 0.1, "offset": -273.15, "waveform": {"shape": "constant", "value": 24.95})",
         "24.95", 24.95},
        {R"("resolution": 0.000001, "waveform": {"shape": "constant", "value": 0.000003})",
         "0.000003", 0.000003},
    };
    for (const auto& [keys, reading, value] : cases) {
        SCOPED_TRACE(reading);
        const std::string board =
            R"({"name": "bench", "buses": [{"bus": 1}], "devices": [{"name": "dev0", "type": "pldm",
                "bus": 1, "address": "0x40", "sensors": [{"kind": "numeric", "id": 1,
                "data_size": 4, )" +
            std::string(keys) + "}]}]}";
        const Outcome table = tool_test::run_on(board, {"pldm", "sensors", "dev0"});
        EXPECT_TRUE(tool_test::contains(table.out, " " + std::string(reading) + "  "))
            << table.out << table.err;
        const Outcome json = tool_test::run_on(board, {"pldm", "sensors", "dev0", "--json"});
        EXPECT_EQ(one_document(json.out)["sensors"][0]["value"], value);
        const Outcome metrics = tool_test::run_on(board, {"metrics", "dev0"});
        EXPECT_TRUE(tool_test::contains(metrics.out, fmt::format("}} {}\n", value))) << metrics.out;
    }
}

}  // namespace
