// SPDX-License-Identifier: Apache-2.0
// Tests of what the commands print, for people and for programs.
#include "tool_runner.h"

namespace {

using tool_test::expect_json;
using tool_test::expect_text;
using tool_test::one_document;
using tool_test::Outcome;
using tool_test::OwnBoard;
using tool_test::run_tool;
using Json = nlohmann::ordered_json;

TEST(Scan, ListsEveryEndpointOfTheBuiltInBoard) {
    expect_text(
        run_tool({"scan"}),
        "ENDPOINT  WHERE         EID  UUID                                  SPEAKS   STATUS\n"
        "nic0      i2c:2:0x64     16  6e696330-5b0a-4c1d-9f3e-000000000001  pldm     ok\n"
        "gpu0      i2c:3:0x9e     29  67707530-2c4e-4d5f-8a6b-000000000002  pldm     ok\n"
        "rec0      i2c:5:0x30     12  72656330-0000-4000-8000-000000000003  pldm     ok\n"
        "own0      i2c:5:0x42      9  6f776e30-7d11-4b62-9a04-000000000004  -        ok\n"
        "mpio0     pcie:00:00.0   17  6d70696f-3055-4e19-8c25-000000000005  -        ok\n"
        "gpu1      pcie:47:00.0   64  67707531-0c3a-4f7e-b1d6-000000000006  pldm     ok\n"
        "rec1      pcie:c1:00.1   65  72656331-0000-4000-8000-000000000007  pldm     ok\n"
        "own1      pcie:80:00.0   10  6f776e31-5e48-4c90-a7f3-000000000008  -        ok\n"
        "nic1      pcie:c2:00.0   66  6e696331-73f2-4b0d-8d54-000000000009  pldm     ok\n"
        "ncsi0     i2c:5:0x50     18  6e637369-3024-4f61-8b0e-00000000000a  ncsi     ok\n"
        "nvme0     i2c:2:0x3a     19  6e766d65-304b-4e27-a15c-00000000000b  nvme-mi  ok\n");
}

TEST(Scan, GivesProgramsNumbersAndUuidsWithHyphens) {
    const Json document = one_document(run_tool({"scan", "--json"}).out);
    EXPECT_EQ(document["board"], "desk");
    ASSERT_EQ(document["endpoints"].size(), 11U);
    EXPECT_EQ(document["endpoints"][0], Json::parse(R"({
        "endpoint": "nic0", "location": "i2c:2:0x64", "transport": "i2c", "bus": 2, "address": 100,
        "eid": 16, "eid_assigned": true, "uuid": "6e696330-5b0a-4c1d-9f3e-000000000001",
        "message_types": [1], "status": "ok"})"));
    EXPECT_EQ(document["endpoints"][1]["eid_assigned"], false);
    EXPECT_EQ(document["endpoints"][5], Json::parse(R"({
        "endpoint": "gpu1", "location": "pcie:47:00.0", "transport": "pcie", "bdf": "47:00.0",
        "eid": 64, "eid_assigned": false, "uuid": "67707531-0c3a-4f7e-b1d6-000000000006",
        "message_types": [1], "status": "ok"})"));
}

TEST_F(OwnBoard, ScanGoesOnBehindADeadEndpointAndEndsWithOne) {
    const Outcome text = run({"scan"});
    EXPECT_EQ(text.status, 1);
    EXPECT_EQ(
        text.out,
        "ENDPOINT  WHERE       EID  UUID                                  SPEAKS        STATUS\n"
        "dev0      i2c:1:0x40   16  00112233-4455-6677-8899-aabbccddeeff  pldm          ok\n"
        "rec0      i2c:2:0x30   12  -                                     pldm nvme-mi  ok\n"
        "dead0     i2c:2:0x50    -  -                                     -             failed\n");
    EXPECT_EQ(
        text.err,
        "sideband-sim: scan: dead0: Get Endpoint ID failed: no acknowledge from i2c:2:0x50\n");

    const Outcome json = run({"--json", "scan"});
    EXPECT_EQ(json.status, 1);
    const Json document = one_document(json.out);
    EXPECT_EQ(document["endpoints"][1]["uuid"], nullptr);
    EXPECT_EQ(document["endpoints"][1]["message_types"], Json({1, 4}));
    EXPECT_EQ(document["endpoints"][2]["status"], "failed");
    EXPECT_EQ(document["endpoints"][2]["eid"], nullptr);
    EXPECT_EQ(document["endpoints"][2]["error"]["operation"], "Get Endpoint ID");
}

TEST_F(OwnBoard, MctpEidTellsAnAssignedEid) {
    expect_text(run({"mctp", "eid", "dev0"}),
                "EID            16 (assigned now)\n"
                "Endpoint type  simple endpoint\n"
                "EID type       dynamic\n");
    expect_json(run({"mctp", "eid", "rec0", "--json"}), R"({"endpoint": "rec0", "eid": 12,
        "eid_assigned": false, "endpoint_type": 0, "endpoint_id_type": 2})");
}

TEST_F(OwnBoard, MctpUuidPrintsTheUuid) {
    expect_text(run({"mctp", "uuid", "dev0"}), "00112233-4455-6677-8899-aabbccddeeff\n");
    expect_json(run({"mctp", "uuid", "dev0", "--json"}),
                R"({"endpoint": "dev0", "uuid": "00112233-4455-6677-8899-aabbccddeeff"})");
}

TEST_F(OwnBoard, MctpRoutesFollowsTheTableToItsEnd) {
    expect_text(run({"mctp", "routes", "rec0"}),
                "EIDS   ENTRY                      PORT  BINDING   MEDIA  ADDRESS\n"
                "16     endpoint                      3  SMBus     0x03   40\n"
                "32-35  endpoints behind a bridge     1  PCIe VDM  0x0a   01:00.2\n");
    const Json entries =
        one_document(run({"mctp", "routes", "rec0", "--json"}).out)["routing_table_entries"];
    ASSERT_EQ(entries.size(), 2U);
    EXPECT_EQ(entries[0], Json::parse(R"({"eid_range_size": 1, "starting_eid": 16,
        "entry_type": 0, "dynamic_entry": true, "port_number": 3,
        "physical_transport_binding_type_id": 1, "physical_media_type_id": 3,
        "physical_address": "40"})"));
}

TEST_F(OwnBoard, RawSendsABodyAndPrintsTheAnswer) {
    expect_text(run({"raw", "dev0", "pldm", "800002"}), "0000020007\n");
    expect_text(run({"raw", "dev0", "1", "80", "00:02"}), "0000020007\n");
    expect_text(run({"raw", "rec0", "ncsi", "0001"}), "aabb\n");
    expect_text(run({"raw", "rec0", "control", "85 05"}), "050500020104\n");
}

TEST_F(OwnBoard, RawTakesAnErrorCodeOfTheDeviceForAnAnswer) {
    expect_json(run({"raw", "rec0", "0x01", "800002", "--json"}),
                R"({"endpoint": "rec0", "message_type": 1, "request": "800002",
                    "response": "00000201", "response_length": 4})");
}

TEST_F(OwnBoard, PldmInfoTellsTidTypesVersionsAndCommands) {
    expect_text(run({"pldm", "info", "dev0"}),
                "TID 7\n"
                "\n"
                "TYPE  VERSION  NAME\n"
                "   0  1.1.0    Messaging Control and Discovery\n"
                "   2  1.2.1    Platform Monitoring and Control\n"
                "\n"
                "Commands of type 0\n"
                "COMMAND  NAME\n"
                "0x01     SetTID\n"
                "0x02     GetTID\n"
                "0x03     GetPLDMVersion\n"
                "0x04     GetPLDMTypes\n"
                "0x05     GetPLDMCommands\n");
    expect_json(run({"--json", "pldm", "info", "dev0"}), R"({"endpoint": "dev0", "tid": 7,
        "pldm_types": [
            {"pldm_type": 0, "name": "Messaging Control and Discovery", "version": "1.1.0"},
            {"pldm_type": 2, "name": "Platform Monitoring and Control", "version": "1.2.1"}],
        "pldm_commands": [1, 2, 3, 4, 5]})");
}

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
    EXPECT_EQ(document["sensors"][0], Json::parse(R"({"sensor_id": 12, "sensor_type": "numeric",
        "name": "inlet", "sensor_data_size": 3, "sensor_operational_state": 0,
        "sensor_event_message_enable": 0, "present_state": 1, "previous_state": 0,
        "event_state": 1, "present_reading": -43, "value": -21.5, "unit": "degC",
        "entity_type": 0, "entity_instance_number": 1, "container_id": 0, "entity": "",
        "base_unit": 2, "unit_modifier": 0, "rate_unit": 0, "converted_reading": 0})"));
    EXPECT_EQ(document["sensors"][1]["sensor_operational_state"], 1);
    EXPECT_EQ(document["sensors"][1]["present_reading"], nullptr);
    EXPECT_EQ(document["sensors"][1]["converted_reading"], nullptr);
    EXPECT_EQ(document["sensors"][2], Json::parse(R"({"sensor_id": 5, "sensor_type": "state",
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

TEST_F(OwnBoard, AnEndpointIsFoundByItsAddressToo) {
    expect_text(run({"raw", "i2c:1:0x40", "pldm", "800002"}), "0000020007\n");
    expect_text(run({"raw", "i2c:1:64", "pldm", "800002"}), "0000020007\n");
    EXPECT_EQ(one_document(run({"--json", "mctp", "eid", "i2c:2:48"}).out)["endpoint"], "i2c:2:48");
}

TEST(EndpointByAddress, UsesTheBoardsMultiplexerSetting) {
    expect_text(run_tool({"raw", "i2c:2:0x64", "pldm", "800002"}), "0000020001\n");
}

}  // namespace
