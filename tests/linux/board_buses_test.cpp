// SPDX-License-Identifier: Apache-2.0
// The board file of a Linux machine: I2C buses, and the multiplexers in front of devices.
#include "platform/linux/board_buses.h"

#include "machine_test.h"

namespace {

using machine::Board;
using machine::MuxSetting;

// A switch with another one behind its channel 3, and a multiplexer beside it.
constexpr const char* kBoard = R"({
  "name": "rack7",
  "bmc": {"address": "0x24"},
  "i2c": {"device": "/dev/i2c-{bus}", "slave_queue": "/q/{bus}-{address}"},
  "buses": [
    {"bus": 2, "muxes": [
      {"address": "0xe0", "channels": 4},
      {"address": "0xe2", "channels": 8, "behind": {"address": "0xe0", "channel": 3}},
      {"address": "0xe4", "channels": 4, "enable": 4}]},
    {"bus": 3, "device": "/dev/spi", "slave_queue": "/other"}
  ],
  "devices": [
    {"name": "a", "bus": 2, "address": "0x64", "mux": {"address": "0xe2", "channel": 7}},
    {"name": "b", "bus": 2, "address": "0x64", "mux": {"address": "0xe0", "channel": 1}},
    {"name": "c", "bus": 2, "address": "0x66", "mux": {"address": "0xe4", "channel": 2}},
    {"name": "d", "bus": 2, "address": "0x68"},
    {"name": "e", "bus": 3, "address": "0x64",
     "card": {"bdf": "41:00.0", "vendor_id": 1}},
    {"name": "f", "bus": 9, "address": "0x64"}
  ]
})";

Board parsed(const std::string& text) {
    board_file::BoardError error;
    std::optional<Board> board = machine::parse_board(text, error);
    EXPECT_TRUE(board) << error.message("board.json");
    return board.value_or(Board{});
}

TEST(LinuxBuses, HaveTheirPaths) {
    const Board board = parsed(kBoard);
    EXPECT_EQ(board.paths_of(2).device, "/dev/i2c-{bus}");
    EXPECT_EQ(machine::queue_paths(board.paths_of(2), 2, board.bmc_address),
              std::vector<std::string>{"/q/2-12"});
    EXPECT_EQ(board.paths_of(3).device, "/dev/spi");
    EXPECT_EQ(board.paths_of(3).slave_queue, "/other");
    EXPECT_EQ(machine::fill_in(board.paths_of(9).device, 9, 0x24), "/dev/i2c-9");
}

TEST(LinuxBuses, AreWhereDriversPutThemUnlessTold) {
    const Board board = parsed(R"({"name": "x"})");
    EXPECT_EQ(machine::fill_in(board.paths_of(255).device, 255, 0x20), "/dev/i2c-255");
    EXPECT_EQ(machine::queue_paths(board.paths_of(3), 3, 0x20),
              (std::vector<std::string>{"/sys/bus/i2c/devices/3-1010/slave-mqueue",
                                        "/sys/bus/i2c/devices/3-0010/mctp-slave-mqueue"}));
}

// Each setting switches what leads elsewhere off: a device there may have the same address.
TEST(LinuxBuses, SwitchWhatLeadsToADeviceAndNothingElse) {
    const Board board = parsed(kBoard);
    ASSERT_EQ(board.devices.size(), 6U);
    const MuxSetting a{3, 0xE0, 0x08, 0xE2, 0x80, 0xE4, 0x00};
    EXPECT_EQ(board.devices[0].mux, a);
    const MuxSetting b{2, 0xE0, 0x02, 0xE4, 0x00};
    EXPECT_EQ(board.devices[1].mux, b);
    const MuxSetting c{2, 0xE0, 0x00, 0xE4, 0x06};
    EXPECT_EQ(board.devices[2].mux, c);
    const MuxSetting d{2, 0xE0, 0x00, 0xE4, 0x00};
    EXPECT_EQ(board.devices[3].mux, d);
    EXPECT_EQ(board.devices[4].mux, MuxSetting{});
    EXPECT_EQ(board.devices[5].mux, MuxSetting{}) << "a bus that is not described";
    const std::vector<machine::MuxWrite> writes = machine::decode_mux(a);
    ASSERT_EQ(writes.size(), 3U);
    EXPECT_EQ(writes[1].address, 0xE2);
    EXPECT_EQ(writes[1].value, 0x80);
    EXPECT_TRUE(machine::decode_mux(MuxSetting{17}).empty());
}

/// With a whole bus full of them the setting still has room.
TEST(LinuxBuses, MayHaveSixteenMultiplexers) {
    std::string muxes;
    for (int i = 0; i < 16; ++i) {
        muxes +=
            std::string(i != 0 ? "," : "") + "{\"address\": " + std::to_string(0x80 + 2 * i) + "}";
    }
    const auto text = [&muxes] {
        return R"({"name": "x", "buses": [{"bus": 2, "muxes": [)" + muxes +
               R"(]}], "devices": [{"name": "a", "bus": 2, "address": 64,
               "mux": {"address": "0x9e", "channel": 0}}]})";
    };
    const Board board = parsed(text());
    EXPECT_EQ(board.devices.at(0).mux[0], 16);
    EXPECT_EQ(machine::decode_mux(board.devices.at(0).mux).back().value, 1);
    muxes += ",{\"address\": \"0xc0\"}";
    board_file::BoardError error;
    EXPECT_FALSE(machine::parse_board(text(), error));
    EXPECT_EQ(error.message("b"), "b:1: buses[0].muxes[16]: is one of more than 16 multiplexers");
}

struct Wrong {
    const char* text;
    const char* message;
};

/// Each stands on the second line of a file whose first line is the name.
const Wrong kWrong[] = {
    {R"("i2c": {"device": "i2c-{bus}"})", "i2c.device: must be a path from the root on"},
    {R"("i2c": {"device": ""})", "i2c.device: must not be empty"},
    {R"("i2c": {"slave_queue": "/q/{buss}"})",
     "i2c.slave_queue: has braces that are neither {bus} nor {address}"},
    {R"("i2c": {"slave_queu": "/q"})", "i2c.slave_queu: no such key; did you mean slave_queue?"},
    {R"("buses": {})", "buses: must be an array"},
    {R"("buses": [{}])", "buses[0].bus: is missing"},
    {R"("buses": [{"bus": 256}])", "buses[0].bus: must be a whole number from 0 to 255"},
    {R"("buses": [{"bus": 1}, {"bus": 1}])", "buses[1].bus: is the number of another bus"},
    {R"("buses": [{"bus": 1, "device": 3}])", "buses[0].device: must be a string"},
    {R"("buses": [{"bus": 1, "clock_hz": 100000}])", "buses[0].clock_hz: no such key"},
    {R"("buses": [{"bus": 1, "muxes": [{"address": "0x20"}]}])",
     "buses[0].muxes[0].address: is in use on this bus"},
    {R"("buses": [{"bus": 1, "muxes": [{"address": "0xe0"}, {"address": "0xe0"}]}])",
     "buses[0].muxes[1].address: is in use on this bus"},
    {R"("buses": [{"bus": 1, "muxes": [{"address": "0xe0", "channels": 9}]}])",
     "buses[0].muxes[0].channels: must be a whole number from 1 to 8"},
    {R"("buses": [{"bus": 1, "muxes": [{"address": "0xe0", "enable": 4}]}])",
     "buses[0].muxes[0].enable: has bits of the channels' numbers"},
    {R"("buses": [{"bus": 1, "muxes": [{"address": "0xe0", "behind": {"address": "0xe2", "channel": 0}}]}])",
     "buses[0].muxes[0].behind.address: is not a multiplexer that stands before it on bus 1"},
    {R"("buses": [{"bus": 1, "muxes": [{"address": "0xe0"}]}],
        "devices": [{"name": "a", "bus": 1, "address": 64, "mux": {"address": "0xe0", "channel": 8}}])",
     nullptr},
    {R"("devices": [{"name": "a", "bus": 1, "address": 64, "mux": {"address": "0xe0", "channel": 0}}])",
     "devices[0].mux.address: is not a multiplexer that stands before it on bus 1"},
    {R"("devices": [{"name": "a", "mctp": {"eid": 9}, "mux": {"address": "0xe0", "channel": 0}}])",
     "devices[0].mux: no such key"},
};

TEST(LinuxBuses, ErrorsNameKeyAndLine) {
    for (const Wrong& wrong : kWrong) {
        board_file::BoardError error;
        const std::string text = "{\"name\": \"x\",\n" + std::string(wrong.text) + "}";
        EXPECT_FALSE(machine::parse_board(text, error)) << text;
        const std::string expected =
            wrong.message != nullptr
                ? "b.json:2: " + std::string(wrong.message)
                : "b.json:3: devices[0].mux.channel: must be a whole number from 0 to 7";
        EXPECT_EQ(error.message("b.json"), expected) << text;
    }
}

TEST(LinuxBuses, ChainsHaveFourMultiplexersAtMost) {
    std::string muxes = R"({"address": "0xe0"})";
    for (int i = 1; i < 5; ++i) {
        muxes += ", {\"address\": " + std::to_string(0xE0 + 2 * i) +
                 ", \"behind\": {\"address\": " + std::to_string(0xE0 + 2 * i - 2) +
                 ", \"channel\": 1}}";
    }
    board_file::BoardError error;
    EXPECT_FALSE(machine::parse_board(
        R"({"name": "x", "buses": [{"bus": 1, "muxes": [)" + muxes + "]}]}", error));
    EXPECT_EQ(error.message("b"),
              "b:1: buses[0].muxes[4].behind: makes a chain of more than 4 multiplexers");
}

// Two devices may have one address where a multiplexer tells them apart, and not otherwise.
TEST(LinuxBuses, DevicesOfOneAddressAreToldApartByMultiplexers) {
    const Board board = parsed(kBoard);
    EXPECT_EQ(board.devices[0].address, board.devices[1].address);
    board_file::BoardError error;
    EXPECT_FALSE(machine::parse_board(
        R"({"name": "x", "buses": [{"bus": 1, "muxes": [{"address": "0xe0"}]}], "devices": [
        {"name": "a", "bus": 1, "address": 64, "mux": {"address": "0xe0", "channel": 1}},
        {"name": "b", "bus": 1, "address": 64, "mux": {"address": "0xe0", "channel": 1}}]})",
        error));
    EXPECT_EQ(error.message("b"), "b:3: devices[1].address: is in use by a");
}

// In front of the multiplexers and behind them both would answer.
TEST(LinuxBuses, ADeviceInFrontOfAnotherHasAnotherAddress) {
    const auto complaints = [](const char* first, const char* second) {
        board_file::BoardError error;
        const std::string text = std::string(R"({"name": "x", "buses": [{"bus": 1, "muxes": [
            {"address": "0xe0"}, {"address": "0xe4"},
            {"address": "0xe2", "behind": {"address": "0xe0", "channel": 3}}]}], "devices": [
            {"name": "a", "bus": 1, "address": 64)") +
                                 first + R"(}, {"name": "b", "bus": 1, "address": 64)" + second +
                                 "}]}";
        return machine::parse_board(text, error) ? "" : error.message("b");
    };
    const char* const kInUse = "b:4: devices[1].address: is in use by a";
    const char* const kBehind = R"(, "mux": {"address": "0xe0", "channel": 3})";
    const char* const kFurther = R"(, "mux": {"address": "0xe2", "channel": 0})";
    const char* const kElsewhere = R"(, "mux": {"address": "0xe4", "channel": 3})";
    EXPECT_EQ(complaints("", kBehind), kInUse);
    EXPECT_EQ(complaints(kBehind, ""), kInUse);
    EXPECT_EQ(complaints(kBehind, kFurther), kInUse);
    EXPECT_EQ(complaints(kFurther, kBehind), kInUse);
    EXPECT_EQ(complaints(kBehind, kElsewhere), "");
    EXPECT_EQ(complaints(kElsewhere, kFurther), "");
    EXPECT_EQ(complaints(kBehind, R"(, "mux": {"address": "0xe0", "channel": 2})"), "");
}

// Whoever wrote to such a device would switch a multiplexer, or nothing.
TEST(LinuxBuses, ADeviceHasNoAddressOfTheBmcOrOfAMultiplexer) {
    const auto complaints = [](const std::string& devices) {
        board_file::BoardError error;
        const bool read = machine::parse_board(R"({"name": "x", "bmc": {"address": "0x24"},
            "buses": [{"bus": 1, "muxes": [{"address": "0xe0"},
                {"address": "0xe2", "behind": {"address": "0xe0", "channel": 3}}]}, {"bus": 2}],
            "devices": [)" + devices + "]}",
                                               error)
                              .has_value();
        return read ? "" : error.message("b");
    };
    EXPECT_EQ(complaints("\n{\"name\": \"a\", \"bus\": 1,\n\"address\": \"0xe0\"}"),
              "b:6: devices[0].address: is that of a multiplexer");
    EXPECT_EQ(complaints(R"({"name": "a", "bus": 1, "address": "0xe2",
                             "mux": {"address": "0xe0", "channel": 1}})"),
              "b:4: devices[0].address: is that of a multiplexer");
    EXPECT_EQ(complaints(R"({"name": "a", "bus": 1, "address": "0x24"})"),
              "b:4: devices[0].address: is the BMC's own");
    EXPECT_EQ(complaints(R"({"name": "a", "bus": 9, "address": "0x24"})"),
              "b:4: devices[0].address: is the BMC's own")
        << "of a bus that is not described";
    EXPECT_EQ(complaints(R"({"name": "a", "bus": 1, "address": "0x20"})"), "") << "is not its own";
    EXPECT_EQ(complaints(R"({"name": "a", "bus": 2, "address": "0xe0"})"), "") << "another bus";
    EXPECT_EQ(complaints(R"({"name": "a", "mctp": {"eid": 36}})"), "") << "0x24 is its EID";
}

TEST(LinuxBuses, AnyBytesAreRead) {
    const std::string whole = kBoard;
    for (size_t at = 0; at < whole.size(); ++at) {
        for (const char byte : {'\0', '"', '{', '[', '9', '\xff'}) {
            std::string text = whole;
            text[at] = byte;
            board_file::BoardError error;
            const bool read = machine::parse_board(text, error).has_value();
            EXPECT_NE(read, !error.text.empty()) << text;
        }
    }
}

class LinuxCardsOnBuses : public machine_test::MachineTest {};

TEST_F(LinuxCardsOnBuses, HaveTheSettingOfTheirMultiplexers) {
    machine::Board described = board();
    machine::Device device;
    device.name = "gpu";
    device.bus = 4;
    device.address = 0x9E;
    device.mux = {1, 0xE0, 4};
    device.card = machine::Card{.bus = 0x41, .device = 2, .vendor_id = 1};
    described.devices.push_back(device);
    machine::use(described);
    plt_card_info card{};
    ASSERT_EQ(PCIEDeviceMux(0x41, 2, &card), 0);
    EXPECT_EQ(std::vector<uint8_t>(card.mux, card.mux + 3), (std::vector<uint8_t>{1, 0xE0, 4}));
}

}  // namespace
