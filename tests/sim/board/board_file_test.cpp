// SPDX-License-Identifier: Apache-2.0
// Board files: the built-in one, and errors that name key and line.
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>

#include "board_fixture.h"

namespace {

using namespace sim_test;

/// What is wrong with one device with these keys, the first of them on line 2 of the device.
std::string device_refusal(const std::string& keys) {
    return refusal_of(R"({"name": "t", "buses": [{"bus": 2, "muxes": [{"address": "0xe0"}]}],
"devices": [{"name": "d", "type": "pldm", "bus": 2, "address": "0x30",
)" + keys + "}]}");
}

/// And for one numeric sensor.
std::string sensor_refusal(const std::string& keys) {
    return device_refusal("\"sensors\": [{\"kind\": \"numeric\", \"id\": 1,\n" + keys + "}]");
}

std::string state_refusal(const std::string& keys) {
    return device_refusal("\"sensors\": [{\"kind\": \"state\", \"id\": 1,\n" + keys + "}]");
}

TEST(BoardFile, BuiltInBoardIsComplete) {
    sim::BoardError error;
    std::unique_ptr<sim::Board> board = sim::Board::parse(sim::Board::built_in_file(), error);
    ASSERT_TRUE(board) << error.message("built-in board");
    const std::vector<sim::EndpointInfo>& all = board->endpoints();
    ASSERT_EQ(all.size(), 11u);
    EXPECT_EQ(all[0].name, "nic0");
    EXPECT_EQ(all[0].type, "pldm");
    EXPECT_EQ(all[0].binding_kind, 0);
    EXPECT_EQ(all[0].mux[0], 1);
    EXPECT_EQ(all[1].name, "gpu0");
    EXPECT_EQ(all[1].binding_kind, 3);
    EXPECT_EQ(all[2].name, "rec0");
    EXPECT_EQ(all[2].type, "replay");
    EXPECT_EQ(all[3].type, "bus_owner");
    EXPECT_EQ(all[4].type, "mpio");
    EXPECT_EQ(all[4].transport, sim::Transport::kPcie);
    EXPECT_EQ(all[5].bdf, (std::array<uint8_t, 3>{0x47, 0, 0}));
    EXPECT_EQ(all[6].bdf, (std::array<uint8_t, 3>{0xC1, 0, 1}));
    EXPECT_EQ(all[7].type, "bus_owner");
    EXPECT_EQ(all[7].transport, sim::Transport::kPcie);
    EXPECT_EQ(all[8].name, "nic1");
    EXPECT_EQ(all[9].type, "ncsi");
    EXPECT_TRUE(board->ncsi("ncsi0"));
    EXPECT_EQ(all[10].type, "nvme");
    EXPECT_TRUE(board->nvme("nvme0"));
    for (const char* name : {"nic0", "nic1", "gpu0"}) {
        EXPECT_TRUE(board->firmware(name)) << name;
        EXPECT_TRUE(board->card(name)) << name;
    }
    EXPECT_EQ(board->mpio_state(), PLT_MPIO_WANTED);
    int numeric = 0;
    int state = 0;
    for (const sim::SensorInfo& sensor : all[0].sensors) {
        ++(sensor.kind == sim::SensorInfo::Kind::kNumeric ? numeric : state);
    }
    EXPECT_GE(numeric, 4);
    EXPECT_GE(state, 2);
    for (const sim::BusStatistics& bus : board->bus_statistics()) {
        EXPECT_EQ(bus.clock_hz, bus.bus == 3 ? 400'000u : 100'000u);
    }
}

TEST(BoardFile, CardsHaveAPlaceOfTheirOwn) {
    EXPECT_EQ(device_refusal(R"("card": {"vendor_id": 1})"), "3: devices[0].card.bdf: is missing");
    EXPECT_EQ(device_refusal(R"("card": {"bdf": "41:00.1", "vendor_id": 1})"),
              "3: devices[0].card: must be function 0 of its device");
    EXPECT_EQ(device_refusal(R"("card": {"bdf": "41:00.0", "vendor_id": 1}},
{"name": "e", "type": "pldm", "bus": 2, "address": "0x32",
"card": {"bdf": "41:00.0", "vendor_id": 1})"),
              "5: devices[1].card: is in the place of d");
}

TEST(BoardFile, AddressingKeysReachTheEndpoint) {
    sim::BoardError error;
    auto board = sim::Board::parse(board_with(R"({"name": "d", "type": "pldm", "bus": 3,
        "address": 100, "unit_size": 96, "i2c_delay_us": 1500, "read_timeout_ms": 20})"),
                                   error);
    ASSERT_TRUE(board) << error.message("board");
    const sim::EndpointInfo& info = board->endpoints().at(0);
    EXPECT_EQ(info.transport, sim::Transport::kI2c);
    EXPECT_EQ(info.bus, 3);
    EXPECT_EQ(info.address, 0x64);
    EXPECT_EQ(info.unit_size, 96);
    EXPECT_EQ(info.i2c_delay_us, 1500u);
    EXPECT_EQ(info.route, 20u);
}

TEST(BoardFile, MessageNamesFileLineAndKey) {
    sim::BoardError error{"devices[1].address", 12, "is missing"};
    EXPECT_EQ(error.message("a.json"), "a.json:12: devices[1].address: is missing");
    error.key.clear();
    EXPECT_EQ(error.message("a.json"), "a.json:12: is missing");
    error.line = 0;
    EXPECT_EQ(error.message("a.json"), "a.json: is missing");
}

TEST(BoardFile, SyntaxErrorsNameTheLine) {
    sim::BoardError error;
    EXPECT_FALSE(sim::Board::parse("{\n\"name\": \"x\",\n\"buses\": [}\n", error));
    EXPECT_EQ(error.line, 3);
    EXPECT_EQ(error.key, "");
    EXPECT_EQ(error.text.find("syntax error"), 0u) << error.text;
    EXPECT_EQ(error.text.find('\n'), std::string::npos);
    EXPECT_FALSE(sim::Board::parse("", error));
    EXPECT_EQ(error.line, 1);
    EXPECT_FALSE(sim::Board::parse("{\"name\":\n\"x\"} {", error));
    EXPECT_EQ(error.line, 2);
    EXPECT_FALSE(sim::Board::parse(std::string(100, '['), error));
    EXPECT_EQ(error.text, "nested too deeply");
}

TEST(BoardFile, TopLevelErrors) {
    EXPECT_EQ(refusal_of("[]"), "1: : must be an object");
    EXPECT_EQ(refusal_of("{\n\"buses\": []}"), "1: name: is missing");
    EXPECT_EQ(refusal_of("{\"name\": \"x\"}"), "1: buses: is missing");
    EXPECT_EQ(refusal_of("{\"name\": \"x\",\n\"buses\": []}"),
              "2: buses: must have at least one bus");
    EXPECT_EQ(refusal_of("{\"name\": 3}"), "1: name: must be a string");
    EXPECT_EQ(refusal_of("{\"name\": \"x\",\n\"buses\": {}}"), "2: buses: must be an array");
    EXPECT_EQ(refusal_of("{\"name\": \"x\",\n\"buses\": [{\"bus\": 1}],\n\"colour\": 1}"),
              "3: colour: no such key");
    EXPECT_EQ(refusal_of("{\"name\": \"x\",\n\"name\": \"y\", \"buses\": [{\"bus\": 1}]}"),
              "2: name: appears twice in one object");
}

TEST(BoardFile, BusErrors) {
    auto bus = [](const std::string& keys) {
        return refusal_of("{\"name\": \"x\", \"buses\": [{\"bus\": 1},\n{" + keys + "}]}");
    };
    EXPECT_EQ(bus("\"bus\": 1"), "2: buses[1].bus: is the number of another bus");
    EXPECT_EQ(bus("\"bus\": 256"), "2: buses[1].bus: must be a whole number from 0 to 255");
    EXPECT_EQ(bus("\"bus\": 1.5"), "2: buses[1].bus: must be a whole number from 0 to 255");
    EXPECT_EQ(bus("\"bus\": \"2\""), "2: buses[1].bus: must be a whole number from 0 to 255");
    EXPECT_EQ(bus("\"bus\": 2, \"clock_hz\": 9999"),
              "2: buses[1].clock_hz: must be a whole number from 10000 to 1000000");
    EXPECT_EQ(bus("\"bus\": 2, \"muxes\": [{\"address\": \"0x20\"}]"),
              "2: buses[1].muxes[0].address: is in use on this bus");
    EXPECT_EQ(bus("\"bus\": 2, \"muxes\": [{\"address\": \"0xe0\"},\n{\"address\": \"0xe0\"}]"),
              "3: buses[1].muxes[1].address: is in use on this bus");
    EXPECT_EQ(bus("\"bus\": 2, \"muxes\": [{\"address\": \"0xe0\", \"channels\": 9}]"),
              "2: buses[1].muxes[0].channels: must be a whole number from 1 to 8");
    EXPECT_EQ(bus("\"bus\": 2, \"muxes\": [{\"address\": \"0xe0\", \"behind\": "
                  "{\"address\": \"0xe2\", \"channel\": 0}}]"),
              "2: buses[1].muxes[0].behind.address: is not a multiplexer that stands before it on "
              "bus 2");
}

TEST(BoardFile, ChainOfMultiplexersHasALimit) {
    std::string muxes = R"({"address": "0xe0"})";
    for (int i = 1; i <= 4; ++i) {
        muxes += ",\n{\"address\": " + std::to_string(0xE0 + 2 * i) +
                 ", \"behind\": {\"address\": " + std::to_string(0xE0 + 2 * i - 2) +
                 ", \"channel\": 0}}";
    }
    EXPECT_EQ(
        refusal_of("{\"name\": \"x\", \"buses\": [{\"bus\": 1, \"muxes\": [" + muxes + "]}]}"),
        "5: buses[0].muxes[4].behind: makes a chain of more than 4 multiplexers");
}

TEST(BoardFile, BmcAndPowerErrors) {
    auto refused = [](const std::string& keys) {
        return refusal_of("{\"name\": \"x\", \"buses\": [{\"bus\": 1}],\n" + keys + "}");
    };
    EXPECT_EQ(refused("\"bmc\": {\"eid\": 7}"), "2: bmc.eid: must be 0 or from 8 to 254");
    EXPECT_EQ(refused("\"bmc\": {\"address\": \"0x21\"}"),
              "2: bmc.address: must be an 8-bit slave address, which is even");
    EXPECT_EQ(refused("\"bmc\": {\"address\": \"0x0e\"}"),
              "2: bmc.address: must be a whole number from 16 to 238");
    EXPECT_EQ(refused("\"power\": {\"main\": 1}"), "2: power.main: must be true or false");
    EXPECT_EQ(refused("\"power\": {\"standby_option\": -1}"),
              "2: power.standby_option: must be a whole number from 0 to 255");
}

TEST(BoardFile, DeviceErrors) {
    EXPECT_EQ(device_refusal("\"eid\": 3"), "3: devices[0].eid: must be 0 or from 8 to 254");
    EXPECT_EQ(device_refusal("\"eid\": 255"),
              "3: devices[0].eid: must be a whole number from 0 to 254");
    EXPECT_EQ(device_refusal("\"mux\": {\"address\": \"0xe0\",\n\"channel\": 8}"),
              "4: devices[0].mux.channel: must be a whole number from 0 to 7");
    EXPECT_EQ(device_refusal("\"uuid\": \"12\""), "3: devices[0].uuid: must have 32 hex digits");
    EXPECT_EQ(device_refusal("\"pec\": \"none\""),
              "3: devices[0].pec: must be one of hardware, software");
    EXPECT_EQ(device_refusal("\"unit_size\": 251"),
              "3: devices[0].unit_size: must be a whole number from 0 to 250");
    EXPECT_EQ(device_refusal("\"transmission_unit\": 0"),
              "3: devices[0].transmission_unit: must be a whole number from 1 to 250");
    EXPECT_EQ(device_refusal("\"lenient_eom\": \"yes\""),
              "3: devices[0].lenient_eom: must be true or false");
    EXPECT_EQ(device_refusal("\"tid\": 255"),
              "3: devices[0].tid: must be a whole number from 0 to 254");
    EXPECT_EQ(device_refusal("\"exchanges\": []"), "3: devices[0].exchanges: no such key");
    EXPECT_EQ(device_refusal("\"faults\": [{\"kind\": \"no_ack\"},\n{\"kind\": \"late\"}]"),
              "4: devices[0].faults[1].delay_us: is missing");
    EXPECT_EQ(device_refusal("\"tid\": 1}, 3, {\"tid\": 1"), "3: devices[1]: must be an object");
}

TEST(BoardFile, NamesTypesAndAddressesOfDevices) {
    auto second = [](const std::string& keys) { return device_refusal("\"tid\": 1},\n{" + keys); };
    EXPECT_EQ(second(R"("name": "d", "type": "pldm", "bus": 2, "address": "0x32")"),
              "4: devices[1].name: is the name of another device");
    EXPECT_EQ(second(R"("name": "i2c:2", "type": "pldm", "bus": 2, "address": "0x32")"),
              "4: devices[1].name: must be a word without colons");
    EXPECT_EQ(second(R"("name": "e", "type": "toaster", "bus": 2, "address": "0x32")"),
              "4: devices[1].type: must be one of bus_owner, mpio, ncsi, nvme, pldm, replay");
    EXPECT_EQ(second(R"("name": "e", "type": "pldm", "bus": 4, "address": "0x32")"),
              "4: devices[1].bus: is not among the board's buses");
    EXPECT_EQ(second(R"("name": "e", "type": "pldm", "bus": 2)"),
              "4: devices[1].address: is missing");
    EXPECT_EQ(second(R"("name": "e", "type": "pldm", "bus": 2, "address": "0x30")"),
              "4: devices[1].address: is in use by d");
    EXPECT_EQ(second(R"("name": "e", "type": "pldm", "bus": 2, "address": "0x30",
                        "mux": {"address": "0xe0", "channel": 0})"),
              "4: devices[1].address: is in use by d");
    EXPECT_EQ(second(R"("name": "e", "type": "pldm", "bus": 2, "address": "0x20")"),
              "4: devices[1].address: is the BMC's own");
    EXPECT_EQ(second(R"("name": "e", "type": "pldm", "bus": 2, "address": "0xe0")"),
              "4: devices[1].address: is that of a multiplexer");
    EXPECT_EQ(second(R"("name": "e", "type": "pldm", "bus": 2, "address": "0xzz")"),
              "4: devices[1].address: must be a whole number from 16 to 238");
}

TEST(BoardFile, OneAddressBehindTwoChannelsIsFine) {
    sim::BoardError error;
    EXPECT_TRUE(sim::Board::parse(board_with(R"(
        {"name": "a", "type": "pldm", "bus": 2, "address": "0x30",
         "mux": {"address": "0xe0", "channel": 0}},
        {"name": "b", "type": "pldm", "bus": 2, "address": "0x30",
         "mux": {"address": "0xe0", "channel": 1}})"),
                                  error))
        << error.message("board");
}

TEST(BoardFile, NumericSensorErrors) {
    const std::string wave = R"("waveform": {"shape": "constant", "value": 1})";
    const std::string at = "devices[0].sensors[0].";
    EXPECT_EQ(sensor_refusal("\"name\": \"t\""), "3: " + at + "waveform: is missing");
    EXPECT_EQ(sensor_refusal(wave + ", \"data_size\": 3"),
              "4: " + at + "data_size: must be 1, 2 or 4");
    EXPECT_EQ(sensor_refusal(wave + ", \"resolution\": 0"),
              "4: " + at + "resolution: must be above 0");
    EXPECT_EQ(sensor_refusal(wave + ", \"resolution\": \"1\""),
              "4: " + at + "resolution: must be a number");
    EXPECT_EQ(sensor_refusal(wave + ",\n\"operational_state\": \"fine\""),
              "5: " + at +
                  "operational_state: must be one of enabled, disabled, unavailable, "
                  "status_unknown, failed, initializing, shutting_down, in_test");
    EXPECT_EQ(sensor_refusal(R"("waveform": {"shape": "square"})"),
              "4: " + at + "waveform.shape: must be one of constant, sine, ramp, steps");
    EXPECT_EQ(sensor_refusal(R"("waveform": {"shape": "sine", "min": 2, "max": 1})"),
              "4: " + at + "waveform.max: must not be below min");
    EXPECT_EQ(sensor_refusal(R"("waveform": {"shape": "ramp", "min": 1, "max": 2})"),
              "4: " + at + "waveform.period_s: is missing");
    EXPECT_EQ(sensor_refusal(R"("waveform": {"shape": "ramp", "min": 1, "max": 2, "period_s": 0})"),
              "4: " + at + "waveform.period_s: must be from 0.001 to 1000000000 seconds");
    EXPECT_EQ(sensor_refusal(R"("waveform": {"shape": "steps", "values": [], "period_s": 1})"),
              "4: " + at + "waveform.values: must have at least one value");
    EXPECT_EQ(sensor_refusal("\"waveform\": {\"shape\": \"steps\", \"period_s\": 1, "
                             "\"values\": [1,\n2,\n\"x\"]}"),
              "6: " + at + "waveform.values[2]: must be a number");
    EXPECT_EQ(sensor_refusal(R"("waveform": {"shape": "constant", "value": -1})"),
              "4: " + at + "waveform: does not fit the sensor's data_size and resolution");
    EXPECT_EQ(sensor_refusal(R"("data_size": 1, "resolution": 0.5,
                             "waveform": {"shape": "constant", "value": 128})"),
              "5: " + at + "waveform: does not fit the sensor's data_size and resolution");
    EXPECT_EQ(sensor_refusal(wave + ", \"data_size\": 1,\n\"thresholds\": {\"upper_fatal\": 256}"),
              "5: " + at + "thresholds: does not fit the sensor's data_size and resolution");
    EXPECT_EQ(sensor_refusal(wave + ", \"thresholds\": {\"upper\": 1}"),
              "4: " + at + "thresholds.upper: no such key");
    EXPECT_EQ(sensor_refusal(wave + "},\n{\"kind\": \"numeric\", \"id\": 1, " + wave),
              "5: devices[0].sensors[1].id: is the identifier of another sensor");
}

TEST(BoardFile, StateSensorErrors) {
    const std::string at = "devices[0].sensors[0].";
    EXPECT_EQ(state_refusal("\"name\": \"t\""), "3: " + at + "composites: is missing");
    EXPECT_EQ(state_refusal("\"composites\": []"),
              "4: " + at + "composites: must have 1 to 8 composite sensors");
    EXPECT_EQ(state_refusal(R"("composites": [{"state_set": 0, "states": [1]}])"),
              "4: " + at + "composites[0].state_set: must be a whole number from 1 to 65535");
    EXPECT_EQ(state_refusal(R"("composites": [{"state_set": 1, "states": []}])"),
              "4: " + at + "composites[0].states: must have at least one state");
    EXPECT_EQ(state_refusal("\"composites\": [{\"state_set\": 1, \"states\": [1,\n256\n]}]"),
              "5: " + at + "composites[0].states[1]: must be a whole number from 0 to 255");
}

TEST(BoardFile, ReplayErrors) {
    auto replay = [](const std::string& keys) {
        return device_refusal(
            "\"tid\": 1},\n{\"name\": \"r\", \"type\": \"replay\", \"bus\": 2, "
            "\"address\": \"0x32\"" +
            keys);
    };
    EXPECT_EQ(replay(""), "4: devices[1].exchanges: is missing");
    EXPECT_EQ(replay(",\n\"exchanges\": [{\"message_type\": 256}]"),
              "5: devices[1].exchanges[0].message_type: must be a whole number from 0 to 255");
    EXPECT_EQ(
        replay(
            ",\n\"exchanges\": [{\"message_type\": 1, \"response\": \"\",\n\"request\": \"8\"}]"),
        "6: devices[1].exchanges[0].request: must be pairs of hex digits without separators");
    EXPECT_EQ(
        replay(",\n\"exchanges\": [{\"message_type\": 1, \"response\": \"\",\n\"request\": \"\"}]"),
        "6: devices[1].exchanges[0].request: must have at least one byte");
    EXPECT_EQ(replay(",\n\"exchanges\": [{\"message_type\": 1,\n\"request\": \"80\"}]"),
              "5: devices[1].exchanges[0].response: is missing");
}

TEST(BoardFile, HugeAndOddNumbersAreOutOfRange) {
    EXPECT_EQ(device_refusal("\"eid\": 18446744073709551615"),
              "3: devices[0].eid: must be a whole number from 0 to 254");
    EXPECT_EQ(device_refusal("\"eid\": \"0xffffffffffff\""),
              "3: devices[0].eid: must be a whole number from 0 to 254");
    EXPECT_EQ(sensor_refusal("\"resolution\": 1e999"), "4: : number overflow parsing '1e999'");
}

class BoardFileOnDisk : public ::testing::Test {
protected:
    void SetUp() override {
        char name[] = "/tmp/sideband-board-XXXXXX";
        const int fd = mkstemp(name);
        ASSERT_GE(fd, 0);
        close(fd);
        path = name;
    }
    void TearDown() override { std::remove(path.c_str()); }

    std::string path;
};

TEST_F(BoardFileOnDisk, IsLoaded) {
    std::ofstream(path) << board_with("");
    sim::BoardError error;
    std::unique_ptr<sim::Board> board = sim::Board::load(path, error);
    ASSERT_TRUE(board) << error.message(path);
    EXPECT_EQ(board->name(), "test");
}

TEST_F(BoardFileOnDisk, DocumentedExampleIsOne) {
    std::ifstream page(SIM_BOARD_FILE_PAGE);
    const std::string text{std::istreambuf_iterator<char>(page), {}};
    const std::string fence = "```json\n";
    const size_t start = text.find(fence);
    ASSERT_NE(start, std::string::npos);
    const size_t end = text.find("```", start + fence.size());
    sim::BoardError error;
    std::unique_ptr<sim::Board> board =
        sim::Board::parse(text.substr(start + fence.size(), end - start - fence.size()), error);
    ASSERT_TRUE(board) << error.message("example");
    EXPECT_EQ(board->endpoints().size(), 2u);
}

TEST_F(BoardFileOnDisk, ErrorsComeBackWithTheirLine) {
    std::ofstream(path) << "{\"name\": \"x\",\n\n\"buses\": 1}";
    sim::BoardError error;
    EXPECT_FALSE(sim::Board::load(path, error));
    EXPECT_EQ(error.message(path), path + ":3: buses: must be an array");
}

TEST_F(BoardFileOnDisk, WhatCannotBeReadIsAnErrorWithoutALine) {
    sim::BoardError error;
    EXPECT_FALSE(sim::Board::load("/", error));
    EXPECT_EQ(error.line, 0);
    EXPECT_EQ(error.message("/"), "/: Is a directory");
}

}  // namespace
