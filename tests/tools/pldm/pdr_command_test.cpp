// SPDX-License-Identifier: Apache-2.0
// Tests of what the tool makes of PDR repositories: healthy ones of the simulated terminus, and
// hostile ones that a replaying device plays.
#include "tests/tools/tool_runner.h"

namespace {

using tool::Json;
using tool_test::contains;
using tool_test::expect_error;
using tool_test::one_document;
using tool_test::Outcome;
using tool_test::parse_json;
using tool_test::replay_board;
using tool_test::run_on;

std::string little_endian(uint32_t value, int bytes) {
    constexpr const char* kDigits = "0123456789abcdef";
    std::string text;
    for (; bytes > 0; --bytes, value >>= 8) {
        text += kDigits[value >> 4 & 0xF];
        text += kDigits[value & 0xF];
    }
    return text;
}

/// A GetPDR request: the first part, or the one behind a transfer handle.
std::string request(uint32_t handle, uint32_t transfer = 0) {
    return "800251" + little_endian(handle, 4) + little_endian(transfer, 4) +
           (transfer == 0 ? "01" : "00") + "80000000";
}

enum Flag : uint8_t { kStart = 0, kMiddle = 1, kEnd = 4, kStartAndEnd = 5 };

struct Part {
    uint32_t next = 0;
    std::string data;
    uint8_t flag = kStartAndEnd;
    uint32_t next_transfer = 0;
    int claimed = -1;  ///< responseCount; below 0 the true one
};

std::string answer(const Part& part) {
    const auto size = static_cast<uint32_t>(part.data.size() / 2);
    return "00025100" + little_endian(part.next, 4) + little_endian(part.next_transfer, 4) +
           little_endian(part.flag, 1) +
           little_endian(part.claimed < 0 ? size : static_cast<uint32_t>(part.claimed), 2) +
           part.data;
}

/// A record: its common header, then its data.
std::string record(uint32_t handle, uint8_t type, const std::string& data) {
    return little_endian(handle, 4) + "01" + little_endian(type, 1) + "0000" +
           little_endian(static_cast<uint32_t>(data.size() / 2), 2) + data;
}

/// A state sensor with one composite sensor of the set Presence.
std::string state_sensor(uint32_t handle, uint16_t id) {
    return record(handle, 4,
                  "0100" + little_endian(id, 2) + "5d0002000000" + "0000" + "01" + "0d000106");
}

/// A numeric sensor of one-byte readings with 8-bit ranges.
std::string numeric_sensor(uint32_t handle, uint16_t id, const std::string& units,
                           const std::string& factors) {
    return record(handle, 2,
                  "0100" + little_endian(id, 2) + "870001000000" + "0000" + units + factors +
                      "00000000" + "00" + "09" + "00" + "0000803f0000803f" + "7f00" + "00" + "28" +
                      "00000055055a006400");
}

/// A board whose one device answers what is recorded of its repository.
class Recorded {
public:
    explicit Recorded(uint32_t record_count) {
        add("800250", "00025000" + std::string(54, '0') + little_endian(record_count, 4) +
                          std::string(18, '0'));
    }

    Recorded& add(const std::string& asked, const std::string& told) {
        exchanges_.push_back({{"message_type", 1}, {"request", asked}, {"response", told}});
        return *this;
    }

    Recorded& part(uint32_t handle, const Part& part, uint32_t transfer = 0) {
        return add(request(handle, transfer), answer(part));
    }

    Outcome run(const std::vector<std::string>& arguments) const {
        return run_on(replay_board(exchanges_), arguments);
    }

private:
    Json exchanges_ = Json::array();
};

const char* const kHealthyBoard = R"({
  "name": "healthy", "buses": [{"bus": 1, "clock_hz": 400000}],
  "devices": [
    {"name": "nic0", "type": "pldm", "bus": 1, "address": "0x40", "tid": 7, "auxiliary_names": true,
     "sensors": [
       {"kind": "numeric", "id": 1, "name": "inlet", "unit": "degC", "data_size": 1, "signed": true,
        "entity": {"type": 144, "instance": 2}, "range_format": "sint8",
        "thresholds": {"upper_warning": 70, "upper_critical": 95},
        "waveform": {"shape": "constant", "value": 81}},
       {"kind": "numeric", "id": 2, "name": "rail", "unit": "V", "data_size": 2, "resolution": 0.001,
        "unit_modifier": -3, "waveform": {"shape": "constant", "value": 0.85}},
       {"kind": "numeric", "id": 3, "name": "module", "unit": "degC", "data_size": 2,
        "signed": true, "resolution": 0.1, "unit_modifier": -1, "offset": 10,
        "waveform": {"shape": "constant", "value": -5.5}},
       {"kind": "state", "id": 4, "name": "port", "entity": {"type": 6, "instance": 1},
        "composites": [{"state_set": 33, "states": [2]}, {"state_set": 10, "states": [1]}]}],
     "pdr_part_size": 40,
     "pdrs": [{"type": 1, "hex": "0100010100000001ff"},
              {"type": 15, "hex": "64000044000100000002900001006400b90001006400"},
              {"type": 99, "hex": "00"}]}
  ]
})";

Outcome run(const std::vector<std::string>& arguments) {
    return run_on(kHealthyBoard, arguments);
}

TEST(HealthyPdrs, ListTellsWhatEachRecordDescribes) {
    const Outcome list = run({"pldm", "pdr", "list", "nic0"});
    EXPECT_EQ(list.err, "");
    EXPECT_EQ(list.status, 0);
    EXPECT_EQ(list.out,
              "HANDLE  TYPE  NAME                    SIZE  DESCRIBES\n"
              "     1     2  Numeric Sensor            69  sensor 1, network controller 2\n"
              "     2     6  Sensor Auxiliary Names    31  sensor 1: inlet\n"
              "     3     2  Numeric Sensor            99  sensor 2, unspecified 1\n"
              "     4     6  Sensor Auxiliary Names    29  sensor 2: rail\n"
              "     5     2  Numeric Sensor            99  sensor 3, unspecified 1\n"
              "     6     6  Sensor Auxiliary Names    33  sensor 3: module\n"
              "     7     4  State Sensor              31  sensor 4, communication channel 1\n"
              "     8     6  Sensor Auxiliary Names    43  sensor 4: port\n"
              "     9     1  Terminus Locator          19  TID 1\n"
              "    10    15  Entity Association        32  add-in card 1 holds 2 entities "
              "(container 100)\n"
              "    11    99  reserved                  11  -\n");
}

TEST(HealthyPdrs, SensorsShowConvertedReadingsThresholdsAndStates) {
    const Outcome sensors = run({"pldm", "sensors", "nic0"});
    EXPECT_EQ(sensors.err, "");
    const char* const table =
        "  ID  NAME    ENTITY                   KIND      RAW       READING"
        "  UNIT                      THRESHOLDS             STATE\n"
        "   1  inlet   network controller 2     numeric    81            81"
        "  degC                      UpperWarning, over 70  enabled\n"
        "   2  rail    -                        numeric   850           850"
        "  mV                        Normal                 enabled\n"
        "   3  module  -                        numeric  -155          -5.5"
        "  degC                      Normal                 enabled\n"
        "4[0]  port    communication channel 1  state       2  Disconnected"
        "  Link State                -                      enabled\n"
        "4[1]  port    communication channel 1  state       1        Normal"
        "  Operational Fault Status  -                      enabled\n";
    EXPECT_EQ(sensors.out, table);
}

TEST(HealthyPdrs, ShowGivesProgramsTheFieldsOfTheStandard) {
    const Json document = one_document(run({"pldm", "pdr", "show", "nic0", "1", "--json"}).out);
    ASSERT_EQ(document["records"].size(), 1U);
    EXPECT_EQ(document["records"][0], parse_json(R"({
        "record_handle": 1, "pdr_header_version": 1, "pdr_type": 2, "record_change_number": 0,
        "data_length": 59, "pldm_terminus_handle": 1, "sensor_id": 1, "entity_type": 144,
        "entity_instance_number": 2, "container_id": 0, "sensor_init": 0,
        "sensor_auxiliary_names_pdr": true, "base_unit": 2, "unit_modifier": 0, "rate_unit": 0,
        "base_oem_unit_handle": 0, "aux_unit": 0, "aux_unit_modifier": 0, "aux_rate_unit": 0,
        "rel": 0, "aux_oem_unit_handle": 0, "is_linear": true, "sensor_data_size": 1,
        "resolution": 1.0, "offset": 0.0, "accuracy": 0, "plus_tolerance": 0,
        "minus_tolerance": 0, "hysteresis": 0, "supported_thresholds": 3,
        "threshold_and_hysteresis_volatility": 0, "state_transition_interval": 0.0,
        "update_interval": 1.0, "max_readable": 127, "min_readable": -128,
        "range_field_format": 1, "range_field_support": 8, "nominal_value": 0, "normal_max": 0,
        "normal_min": 0, "warning_high": 70, "warning_low": 0, "critical_high": 95,
        "critical_low": 0, "fatal_high": 0, "fatal_low": 0})"));
}

TEST(HealthyPdrs, ShowPutsStatesIntoWords) {
    const Outcome show = run({"pldm", "pdr", "show", "nic0", "7"});
    EXPECT_EQ(show.status, 0);
    EXPECT_TRUE(contains(show.out, "\nentity_type                 6      communication channel\n"))
        << show.out;
    EXPECT_TRUE(contains(show.out, "33 Link State: 2 Disconnected\n")) << show.out;
    EXPECT_TRUE(contains(show.out, "10 Operational Fault Status: 1 Normal\n")) << show.out;
}

TEST(HealthyPdrs, ShowWithoutAHandleShowsTheSensors) {
    const Json all = one_document(run({"pldm", "pdr", "show", "nic0", "--json"}).out)["records"];
    ASSERT_EQ(all.size(), 4U);
    EXPECT_EQ(all[3]["composite_sensor_count"], 2);
    EXPECT_EQ(all[3]["composite_sensors"][1]["possible_states"], Json::array({1}));
    const Json other =
        one_document(run({"pldm", "pdr", "show", "nic0", "11", "--json"}).out)["records"];
    EXPECT_EQ(other[0]["data"], "00");
}

TEST(HealthyPdrs, DumpPrintsTheBytes) {
    const Outcome dump = run({"pldm", "pdr", "dump", "nic0", "9"});
    EXPECT_EQ(dump.status, 0);
    EXPECT_EQ(dump.out,
              "record 9, Terminus Locator, 19 bytes\n"
              "0000  09 00 00 00 01 01 00 00 09 00 01 00 01 01 00 00\n"
              "0010  00 01 ff\n");
    const Json json = one_document(run({"pldm", "pdr", "dump", "nic0", "0x9", "--json"}).out);
    EXPECT_EQ(json["records"][0]["data"],
              "09000000010100000900010001010000"
              "0001ff");
    EXPECT_EQ(json["records"][0]["next_record_handle"], 10);
}

TEST(HealthyPdrs, AHandleThatDoesNotExistIsRefusedByTheDevice) {
    expect_error(run({"pldm", "pdr", "dump", "nic0", "77"}), 1,
                 "sideband-sim: pldm pdr dump: nic0: GetPDR of record 77 failed: completion code "
                 "0x82 (INVALID_RECORD_HANDLE)");
    expect_error(run({"pldm", "pdr", "list", "nic0", "x"}), 2,
                 "sideband-sim: pldm pdr list: x: the handle is a number from 0 to 0xffffffff");
}

TEST(HealthyPdrs, WatchReadsAgainAndAgain) {
    const Outcome twice = run({"pldm", "sensors", "nic0", "1", "--watch", "2.5", "--count", "3"});
    EXPECT_EQ(twice.status, 0);
    size_t tables = 0;
    for (size_t at = 0; (at = twice.out.find("THRESHOLDS", at)) != std::string::npos; ++at) {
        ++tables;
    }
    EXPECT_EQ(tables, 3U);
    const std::string lines =
        run({"pldm", "sensors", "nic0", "--watch", "2.5", "--count", "2", "--json"}).out;
    const size_t end = lines.find('\n') + 1;
    const Json before = one_document(lines.substr(0, end));
    const Json after = one_document(lines.substr(end));
    const uint64_t first = before["virtual_time_us"].get<uint64_t>();
    const uint64_t second = after["virtual_time_us"].get<uint64_t>();
    EXPECT_EQ(after["endpoint"], "nic0");
    EXPECT_GE(second, first + 2500000);
    EXPECT_LT(second, first + 2600000);
    EXPECT_EQ(after["sensors"].size(), 4U);
}

TEST(HealthyPdrs, WatchNeedsATimeAndACountNeedsWatch) {
    EXPECT_EQ(run({"pldm", "sensors", "nic0", "--count", "3"}).status, 2);
    EXPECT_EQ(run({"pldm", "sensors", "nic0", "--watch", "0"}).status, 2);
}

// ---- Hostile repositories ----

TEST(HostilePdrs, ACircleOfHandlesEndsTheWalk) {
    const Outcome list = Recorded(2)
                             .part(0, {.next = 2, .data = state_sensor(1, 11)})
                             .part(2, {.next = 1, .data = state_sensor(2, 12)})
                             .run({"pldm", "pdr", "list", "rec0"});
    EXPECT_EQ(list.status, 1);
    EXPECT_EQ(list.err,
              "sideband-sim: pldm pdr list: rec0: the walk of record 1 failed: the records go "
              "round in circles\n");
    EXPECT_EQ(list.out,
              "HANDLE  TYPE  NAME          SIZE  DESCRIBES\n"
              "     1     4  State Sensor    27  sensor 11, fan 2\n"
              "     2     4  State Sensor    27  sensor 12, fan 2\n");
}

TEST(HostilePdrs, ARecordThatNamesItselfAsTheNextEndsTheWalk) {
    const Outcome list = Recorded(2)
                             .part(0, {.next = 1, .data = state_sensor(1, 11)})
                             .run({"pldm", "pdr", "list", "rec0"});
    EXPECT_EQ(list.status, 1);
    EXPECT_TRUE(contains(list.err, "the records go round in circles")) << list.err;
}

TEST(HostilePdrs, ARecordThatNeverEndsIsReportedAndSkipped) {
    Recorded device(2);
    device.part(0,
                {.next = 2, .data = record(1, 99, "00112233"), .flag = kStart, .next_transfer = 5});
    device.part(0, {.next = 2, .data = "44", .flag = kMiddle, .next_transfer = 5}, 5);
    device.part(2, {.data = state_sensor(2, 12)});
    const Outcome list = device.run({"pldm", "pdr", "list", "rec0"});
    EXPECT_EQ(list.status, 1);
    EXPECT_EQ(list.err,
              "sideband-sim: pldm pdr list: rec0: GetPDR of record 1 failed: it has no end in 7 "
              "parts\n");
    EXPECT_EQ(list.out,
              "HANDLE  TYPE  NAME          SIZE  DESCRIBES\n"
              "     1    99  reserved        20  (not whole)\n"
              "     2     4  State Sensor    27  sensor 12, fan 2\n");
}

TEST(HostilePdrs, LengthsThatLieAreReportedAndSkipped) {
    const std::string sensor = state_sensor(9, 12);
    const Outcome list = Recorded(5)
                             .part(0, {.next = 2, .data = record(1, 99, "00"), .claimed = 129})
                             .part(2, {.next = 3, .data = record(2, 99, "00"), .claimed = 12})
                             .part(3, {.next = 4, .data = "0300"})
                             .part(4, {.next = 9, .data = record(4, 99, "0011").substr(0, 22)})
                             .part(9, {.data = sensor})
                             .run({"pldm", "pdr", "list", "rec0"});
    EXPECT_EQ(list.status, 1);
    EXPECT_EQ(list.err,
              "sideband-sim: pldm pdr list: rec0: GetPDR of record 0 failed: a part of it claims "
              "129 bytes\n"
              "sideband-sim: pldm pdr list: rec0: GetPDR of record 2 failed: a part of it claims "
              "12 bytes and has 11\n"
              "sideband-sim: pldm pdr list: rec0: GetPDR of record 3 failed: it has 2 bytes only\n"
              "sideband-sim: pldm pdr list: rec0: GetPDR of record 4 failed: its header claims 12 "
              "bytes and it has 11\n");
    EXPECT_TRUE(contains(list.out, "sensor 12, fan 2")) << list.out;
}

TEST(HostilePdrs, AWalkGoesNotMuchFurtherThanTheRepositorySays) {
    Recorded device(1);
    for (uint32_t handle = 0; handle < 40; ++handle) {
        device.part(handle, {.next = handle + 1, .data = record(handle, 99, "00")});
    }
    const Outcome list = device.run({"pldm", "pdr", "list", "rec0"});
    EXPECT_EQ(list.status, 1);
    EXPECT_EQ(list.err,
              "sideband-sim: pldm pdr list: rec0: the walk of record 17 failed: 17 records and no "
              "end\n");
}

TEST(HostilePdrs, ATerminusThatFallsSilentEndsTheWalkAndKeepsWhatCame) {
    const Outcome list = Recorded(2)
                             .part(0, {.next = 2, .data = state_sensor(1, 11)})
                             .run({"pldm", "pdr", "list", "rec0"});
    EXPECT_EQ(list.status, 1);
    EXPECT_EQ(list.err,
              "sideband-sim: pldm pdr list: rec0: GetPDR of record 2 failed: no answer\n");
    EXPECT_TRUE(contains(list.out, "sensor 11, fan 2")) << list.out;
}

TEST(HostilePdrs, ASensorThatCannotBeDecodedIsReportedAndTheOthersAreRead) {
    const std::string degrees = "02000000000000000001";
    const std::string past = record(2, 4, "01000c005d00020000000000020d000106");
    const Outcome sensors =
        Recorded(3)
            .part(0, {.next = 2, .data = numeric_sensor(1, 11, degrees, "090000803f00000000")})
            .part(2, {.next = 3, .data = past})
            .part(3, {.data = state_sensor(3, 13)})
            .add("8002210d000000", "000221000100010102")
            .run({"pldm", "sensors", "rec0"});
    EXPECT_EQ(sensors.status, 1);
    EXPECT_EQ(sensors.err,
              "sideband-sim: pldm sensors: rec0: decoding of record 1 failed: its data size or "
              "range format does not exist\n"
              "sideband-sim: pldm sensors: rec0: decoding of record 2 failed: its composite "
              "sensors run past its 27 bytes\n");
    EXPECT_EQ(sensors.out,
              "ID  NAME  ENTITY  KIND     RAW  READING  UNIT      THRESHOLDS  STATE\n"
              "11  -     -       numeric    -        -  -         -           undecodable\n"
              "12  -     -       state      -        -  -         -           undecodable\n"
              "13  -     fan 2   state      1  Present  Presence  -           enabled\n");
}

TEST(HostilePdrs, AResolutionOfZeroStandsForTheCountItself) {
    const std::string degrees = "02000000000000000001";
    const Json document =
        one_document(Recorded(1)
                         .part(0, {.data = numeric_sensor(1, 11, degrees, "010000000000000000")})
                         .add("8002110b0000", "000211000100000801082e")
                         .run({"pldm", "sensors", "rec0", "--json"})
                         .out);
    const Json& sensor = document["sensors"][0];
    EXPECT_EQ(sensor["present_reading"], 46);
    EXPECT_EQ(sensor["value"], 46.0);
    EXPECT_EQ(sensor["converted_reading"], 0) << "the library takes the record at its word";
    EXPECT_EQ(sensor["entity"], "processor 1");
}

TEST(HostilePdrs, ATerminusWithoutARepositoryAndWithoutDescribedSensorsWantsNumbers) {
    const Outcome sensors = Recorded(0).run({"pldm", "sensors", "rec0"});
    expect_error(sensors, 2,
                 "sideband-sim: pldm sensors: rec0: it has no PDRs and the board describes no "
                 "sensors of it; give their numbers");
}

}  // namespace
