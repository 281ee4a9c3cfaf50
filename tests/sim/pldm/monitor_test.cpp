// SPDX-License-Identifier: Apache-2.0
// The sensors of the simulated PLDM terminus, byte by byte (DSP0248).
#include "terminus_fixture.h"

namespace {

using namespace sim_test;

class PldmMonitor : public TerminusTest {
protected:
    void SetUp() override {
        open(board_with(R"(
            {"name": "p", "type": "pldm", "bus": 3, "address": "0x64", "eid": 9, "tid": 5,
             "response_us": 0, "sensors": [
                {"kind": "numeric", "id": 1, "data_size": 1, "signed": true,
                 "waveform": {"shape": "ramp", "min": -50, "max": 50, "period_s": 100},
                 "thresholds": {"upper_warning": 10, "upper_critical": 20, "upper_fatal": 30,
                                "lower_warning": -10, "lower_critical": -20, "lower_fatal": -30}},
                {"kind": "numeric", "id": 2, "data_size": 2, "signed": true, "resolution": 0.5,
                 "waveform": {"shape": "constant", "value": -3}},
                {"kind": "numeric", "id": 3, "data_size": 4, "events": true,
                 "waveform": {"shape": "steps", "values": [1, 70000], "period_s": 10}},
                {"kind": "numeric", "id": 258, "data_size": 2, "operational_state": "unavailable",
                 "waveform": {"shape": "sine", "min": 0, "max": 1000, "period_s": 40,
                              "phase": 0.25}},
                {"kind": "state", "id": 1, "composites": [
                    {"state_set": 33, "states": [1, 2, 3], "period_s": 30},
                    {"state_set": 1, "states": [7], "operational_state": "disabled"}]},
                {"kind": "state", "id": 2, "events": true,
                 "composites": [{"state_set": 1, "states": [1]}]}]}
        )"));
    }

    /// Moves the clock to a time and a little more, so that rounding does not matter.
    void go_to(uint64_t seconds) { board->advance_us(seconds * 1'000'000 - board->now_us()); }
};

TEST_F(PldmMonitor, NumericReadingMovesAndCrossesThresholds) {
    // sint8, enabled, no events, present, previous, event state, reading
    EXPECT_EQ(pldm("80 02 11 01 00 00"), "00 02 11 00 01 00 00 07 00 07 ce");  // -50
    go_to(25);
    EXPECT_EQ(pldm("80 02 11 01 00 00"), "00 02 11 00 01 00 00 06 07 06 e7");  // -25
    go_to(35);
    EXPECT_EQ(pldm("80 02 11 01 00 00"), "00 02 11 00 01 00 00 05 06 05 f1");  // -15
    go_to(50);
    EXPECT_EQ(pldm("80 02 11 01 00 00"), "00 02 11 00 01 00 00 01 05 01 00");
    EXPECT_EQ(pldm("80 02 11 01 00 00"), "00 02 11 00 01 00 00 01 05 01 00");
    go_to(65);
    EXPECT_EQ(pldm("80 02 11 01 00 00"), "00 02 11 00 01 00 00 08 01 08 0f");
    go_to(75);
    EXPECT_EQ(pldm("80 02 11 01 00 00"), "00 02 11 00 01 00 00 09 08 09 19");
    go_to(95);
    EXPECT_EQ(pldm("80 02 11 01 00 00"), "00 02 11 00 01 00 00 0a 09 0a 2d");
    go_to(125);
    EXPECT_EQ(pldm("80 02 11 01 00 00"), "00 02 11 00 01 00 00 06 0a 06 e7");
}

TEST_F(PldmMonitor, ReadingsHaveTheSensorsWidthAndResolution) {
    EXPECT_EQ(pldm("80 02 11 02 00 00"), "00 02 11 00 03 00 00 01 00 01 fa ff");  // -3 / 0.5
    EXPECT_EQ(pldm("80 02 11 03 00 00"), "00 02 11 00 04 00 01 01 00 01 01 00 00 00");
    go_to(6);
    EXPECT_EQ(pldm("80 02 11 03 00 00"), "00 02 11 00 04 00 01 01 00 01 70 11 01 00");
    go_to(60);
    EXPECT_EQ(pldm("80 02 11 02 01 00"), "00 02 11 00 02 02 00 01 00 01 00 00");  // sine, low
    go_to(70);
    EXPECT_EQ(pldm("80 02 11 02 01 00"), "00 02 11 00 02 02 00 01 00 01 f4 01");  // half way
}

TEST_F(PldmMonitor, UnknownSensorIsAnInvalidSensorId) {
    EXPECT_EQ(pldm("80 02 10 63 00 00 00"), "00 02 10 80");
    EXPECT_EQ(pldm("80 02 11 63 00 00"), "00 02 11 80");
    EXPECT_EQ(pldm("80 02 12 63 00"), "00 02 12 80");
    EXPECT_EQ(pldm("80 02 20 63 00 01 00 00"), "00 02 20 80");
    EXPECT_EQ(pldm("80 02 21 63 00 00 00"), "00 02 21 80");
    EXPECT_EQ(pldm("80 02 21 03 00 00 00"), "00 02 21 80");  // numeric, not state
}

TEST_F(PldmMonitor, NumericSensorIsSwitchedOffAndOn) {
    EXPECT_EQ(pldm("80 02 10 02 00 01 00"), "00 02 10 00");
    EXPECT_EQ(pldm("80 02 11 02 00 00"), "00 02 11 00 03 01 00 01 00 01 fa ff");
    EXPECT_EQ(pldm("80 02 10 02 00 00 01"), "00 02 10 00");
    EXPECT_EQ(pldm("80 02 11 02 00 00"), "00 02 11 00 03 00 00 01 00 01 fa ff");
    EXPECT_EQ(pldm("80 02 10 02 00 03 00"), "00 02 10 81");
    EXPECT_EQ(pldm("80 02 10 02 00 00 05"), "00 02 10 02");
    EXPECT_EQ(pldm("80 02 10 02 00 00 02"), "00 02 10 82");
}

TEST_F(PldmMonitor, SensorWithEventsRemembersTheirEnable) {
    EXPECT_EQ(pldm("80 02 10 03 00 00 02"), "00 02 10 00");
    EXPECT_EQ(pldm("80 02 11 03 00 00").substr(18, 2), "02");
    EXPECT_EQ(pldm("80 02 10 03 00 00 00"), "00 02 10 00");  // no change
    EXPECT_EQ(pldm("80 02 11 03 00 00").substr(18, 2), "02");
    EXPECT_EQ(pldm("80 02 10 03 00 00 01"), "00 02 10 00");
    EXPECT_EQ(pldm("80 02 11 03 00 00").substr(18, 2), "01");
}

TEST_F(PldmMonitor, TellsThresholds) {
    EXPECT_EQ(pldm("80 02 12 01 00"), "00 02 12 00 01 0a 14 1e f6 ec e2");
    EXPECT_EQ(pldm("80 02 12 02 00"), "00 02 12 00 03 00 00 00 00 00 00 00 00 00 00 00 00");
}

TEST_F(PldmMonitor, StateSensorsTakeTurns) {
    EXPECT_EQ(pldm("80 02 21 01 00 00 00"), "00 02 21 00 02 00 01 01 01 01 07 07 07");
    go_to(11);
    EXPECT_EQ(pldm("80 02 21 01 00 00 00"), "00 02 21 00 02 00 02 01 02 01 07 07 07");
    go_to(21);
    EXPECT_EQ(pldm("80 02 21 01 00 00 00"), "00 02 21 00 02 00 03 02 03 01 07 07 07");
    go_to(31);
    EXPECT_EQ(pldm("80 02 21 01 00 00 00"), "00 02 21 00 02 00 01 03 01 01 07 07 07");
}

TEST_F(PldmMonitor, StateSensorsAreSwitchedEachByItself) {
    EXPECT_EQ(pldm("80 02 20 01 00 02 02 00 00 00"), "00 02 20 00");
    EXPECT_EQ(pldm("80 02 21 01 00 00 00"), "00 02 21 00 02 02 01 01 01 00 07 07 07");
    EXPECT_EQ(pldm("80 02 20 01 00 02 00 00 03 00"), "00 02 20 81");
    EXPECT_EQ(pldm("80 02 20 01 00 02 00 00 00 02"), "00 02 20 82");
    EXPECT_EQ(pldm("80 02 20 02 00 01 00 02"), "00 02 20 00");
    EXPECT_EQ(pldm("80 02 20 01 00 01 00 00"), "00 02 20 02");  // it has two composite sensors
    EXPECT_EQ(pldm("80 02 20 01 00 02 00 00"), "00 02 20 03");
    // A refused request changes nothing.
    EXPECT_EQ(pldm("80 02 21 01 00 00 00"), "00 02 21 00 02 02 01 01 01 00 07 07 07");
}

TEST_F(PldmMonitor, EndpointInfoListsTheSensors) {
    const std::vector<sim::SensorInfo>& sensors = board->endpoints().at(0).sensors;
    ASSERT_EQ(sensors.size(), 6u);
    EXPECT_EQ(sensors[1].id, 2);
    EXPECT_EQ(sensors[1].kind, sim::SensorInfo::Kind::kNumeric);
    EXPECT_EQ(sensors[1].data_size, 2);
    EXPECT_TRUE(sensors[1].is_signed);
    EXPECT_EQ(sensors[1].resolution, 0.5);
    EXPECT_EQ(sensors[4].kind, sim::SensorInfo::Kind::kState);
    EXPECT_EQ(sensors[4].composite_count, 2);
    EXPECT_EQ(sensors[4].state_set, 33);
}

}  // namespace
