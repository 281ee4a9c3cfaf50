// SPDX-License-Identifier: Apache-2.0
// The board file of a Linux machine: every key, and every error with its key and its line.
#include "platform/linux/board.h"

#include <sys/wait.h>
#include <unistd.h>

#include "machine_test.h"

namespace {

using machine::Board;
using machine::Device;
using machine::PowerSource;

constexpr const char* kWhole = R"({
  "name": "rack7",
  "run_folder": "/run/other",
  "bmc": {"eid": 10, "address": "0x24"},
  "power": {"main": {"file": "/sys/class/gpio/gpio7/value", "on": "0"}, "standby_option": 1,
            "standby_override": 2, "standby_devices": true, "policy_off": true},
  "platform": {"identifier": "0x1d43", "mpio_state": 30},
  "pcie": {"net": 2},
  "devices": [
    {"name": "nic0", "mctp": {"net": 3, "eid": 9}, "read_timeout_ms": 700,
     "card": {"bdf": "41:02.0", "vendor_id": "0x15b3", "flags": "0x20000", "slot": 4}},
    {"name": "ssd0", "mctp": {"eid": 9}},
    {"name": "gpu0", "bus": 4, "address": "0x9e", "pec": "software", "unit_size": 64,
     "i2c_delay_us": 500}
  ]
})";

TEST(LinuxBoard, HasWhatItsFileSays) {
    board_file::BoardError error;
    const std::optional<Board> board = machine::parse_board(kWhole, error);
    ASSERT_TRUE(board) << error.message("board.json");
    EXPECT_TRUE(board->described);
    EXPECT_EQ(board->name, "rack7");
    EXPECT_EQ(board->run_folder, "/run/other");
    EXPECT_EQ(board->bmc_eid, 10);
    EXPECT_EQ(board->bmc_address, 0x24);
    EXPECT_EQ(board->power.kind, PowerSource::Kind::kFile);
    EXPECT_EQ(board->power.text, "/sys/class/gpio/gpio7/value");
    EXPECT_EQ(board->power.on, "0");
    EXPECT_EQ(board->standby_option, 1);
    EXPECT_EQ(board->standby_override, 2);
    EXPECT_TRUE(board->standby_devices);
    EXPECT_TRUE(board->policy_off);
    EXPECT_EQ(board->identifier, 0x1D43);
    EXPECT_EQ(board->mpio_state, 30);
    EXPECT_EQ(board->pcie_net, 2U);
    ASSERT_EQ(board->devices.size(), 3U);
    const Device& nic = board->devices[0];
    EXPECT_EQ(nic.way, Device::Way::kMctp);
    EXPECT_EQ(nic.net, 3U);
    EXPECT_EQ(nic.eid, 9);
    EXPECT_EQ(nic.read_timeout_ms, 700);
    ASSERT_TRUE(nic.card);
    EXPECT_EQ(nic.card->bus, 0x41);
    EXPECT_EQ(nic.card->device, 2);
    EXPECT_EQ(nic.card->vendor_id, 0x15B3);
    EXPECT_EQ(nic.card->flags, PLT_CARD_NIC_PCIE);
    EXPECT_EQ(nic.card->slot, 4);
    EXPECT_EQ(board->devices[1].net, 1U);
    const Device& gpu = board->devices[2];
    EXPECT_EQ(gpu.way, Device::Way::kI2c);
    EXPECT_EQ(gpu.bus, 4);
    EXPECT_EQ(gpu.address, 0x9E);
    EXPECT_TRUE(gpu.software_pec);
    EXPECT_EQ(gpu.unit_size, 64);
    EXPECT_EQ(gpu.i2c_delay_us, 500U);
    EXPECT_FALSE(gpu.card);
}

TEST(LinuxBoard, NeedsANameOnly) {
    board_file::BoardError error;
    const std::optional<Board> board = machine::parse_board(R"({"name": "x"})", error);
    ASSERT_TRUE(board) << error.message("board.json");
    EXPECT_EQ(board->run_folder, "/run/sideband");
    EXPECT_EQ(board->bmc_eid, 8);
    EXPECT_EQ(board->bmc_address, 0x20);
    EXPECT_EQ(board->power.kind, PowerSource::Kind::kOn);
    EXPECT_EQ(board->pcie_net, 1U);
    EXPECT_TRUE(board->devices.empty());
}

TEST(LinuxBoard, PowerHasThreeWays) {
    board_file::BoardError error;
    auto board = machine::parse_board(R"({"name": "x", "power": {"main": "on"}})", error);
    ASSERT_TRUE(board);
    EXPECT_EQ(board->power.kind, PowerSource::Kind::kOn);
    board = machine::parse_board(R"({"name": "x", "power": {"main": {"command": "true"}}})", error);
    ASSERT_TRUE(board);
    EXPECT_EQ(board->power.kind, PowerSource::Kind::kCommand);
    EXPECT_EQ(board->power.text, "true");
    board = machine::parse_board(R"({"name": "x", "power": {"main": {"file": "/p"}}})", error);
    ASSERT_TRUE(board);
    EXPECT_EQ(board->power.kind, PowerSource::Kind::kFile);
    EXPECT_EQ(board->power.on, "1");
}

struct Wrong {
    const char* text;
    const char* message;
};

/// Each stands on the second line of a file whose first line is the name.
const Wrong kWrong[] = {
    {R"("run_folder": "run")", "run_folder: must be a path from the root on"},
    {R"("run_folder": 1)", "run_folder: must be a string"},
    {R"("bmc": {"eid": 7})", "bmc.eid: must be 0 or from 8 to 254"},
    {R"("bmc": {"eid": 255})", "bmc.eid: must be a whole number from 0 to 254"},
    {R"("bmc": {"address": "0x21"})", "bmc.address: must be an 8-bit slave address, which is even"},
    {R"("power": {"main": "off"})",
     "power.main: must be \"on\", or an object with file or command"},
    {R"("power": {"main": true})", "power.main: must be \"on\", or an object with file or command"},
    {R"("power": {"main": {}})", "power.main.file: is missing"},
    {R"("power": {"main": {"file": "gpio"}})", "power.main.file: must be a path from the root on"},
    {R"("power": {"main": {"file": ""}})", "power.main.file: must not be empty"},
    {R"("power": {"main": {"command": ""}})", "power.main.command: must not be empty"},
    {R"("power": {"main": {"command": "true\u0000 && false"}})",
     "power.main.command: must have no NUL"},
    {R"("run_folder": "/run\u0000/x")", "run_folder: must have no NUL"},
    {R"("devices": [{"name": "a", "bus": 1, "address": 64, "unit_size": 121}])",
     "devices[0].unit_size: must be a whole number from 0 to 120"},
    {R"("power": {"main": {"command": "x", "on": "1"}})", "power.main.on: no such key"},
    {R"("power": {"mian": "on"})", "power.mian: no such key; did you mean main?"},
    {R"("power": {"standby_option": 256})",
     "power.standby_option: must be a whole number from 0 to 255"},
    {R"("power": {"policy_off": 1})", "power.policy_off: must be true or false"},
    {R"("platform": {"identifier": 65536})",
     "platform.identifier: must be a whole number from 0 to 65535"},
    {R"("platform": {"mpio_state": "wanted"})",
     "platform.mpio_state: must be a whole number from 0 to 254"},
    {R"("pcie": {"net": 0})", "pcie.net: must be a whole number from 1 to 65535"},
    {R"("pcie": {"nets": 1})", "pcie.nets: no such key; did you mean net?"},
    {R"("devices": {})", "devices: must be an array"},
    {R"("devices": [{"mctp": {"eid": 9}}])", "devices[0].name: is missing"},
    {R"("devices": [{"name": "a:b", "mctp": {"eid": 9}}])",
     "devices[0].name: must be a word without colons"},
    {R"("devices": [{"name": "a", "mctp": {"net": 1}}])", "devices[0].mctp.eid: is missing"},
    {R"("devices": [{"name": "a", "mctp": {"eid": 7}}])",
     "devices[0].mctp.eid: must be a whole number from 8 to 254"},
    {R"("devices": [{"name": "a", "mctp": {"eid": 255}}])",
     "devices[0].mctp.eid: must be a whole number from 8 to 254"},
    {R"("devices": [{"name": "a", "mctp": {"net": 65536, "eid": 9}}])",
     "devices[0].mctp.net: must be a whole number from 1 to 65535"},
    {R"("devices": [{"name": "a", "mctp": [1, 9]}])", "devices[0].mctp: must be an object"},
    {R"("devices": [{"name": "a", "mctp": {"eid": 9}, "bus": 1}])", "devices[0].bus: no such key"},
    {R"("devices": [{"name": "a", "bus": 1}])", "devices[0].address: is missing"},
    {R"("devices": [{"name": "a", "bus": 256, "address": 64}])",
     "devices[0].bus: must be a whole number from 0 to 255"},
    {R"("devices": [{"name": "a", "bus": 1, "address": 64, "pec": "none"}])",
     "devices[0].pec: must be one of hardware, software"},
    {R"("devices": [{"name": "a", "type": "pldm", "bus": 1, "address": 64}])",
     "devices[0].type: no such key"},
    {R"("devices": [{"name": "a", "mctp": {"eid": 9}, "read_timeout_ms": 65536}])",
     "devices[0].read_timeout_ms: must be a whole number from 0 to 65535"},
    {R"("devices": [{"name": "a", "mctp": {"eid": 9}, "card": {"bdf": "41:00.1", "vendor_id": 1}}])",
     "devices[0].card.bdf: must be function 0 of its device"},
    {R"("devices": [{"name": "a", "mctp": {"eid": 9}, "card": {"bdf": "41", "vendor_id": 1}}])",
     "devices[0].card.bdf: must be bus, device and function in hex, such as 47:00.0"},
    {R"("devices": [{"name": "a", "mctp": {"eid": 9}, "card": {"bdf": "41:00.0"}}])",
     "devices[0].card.vendor_id: is missing"},
    {R"("devices": [{"name": "a", "mctp": {"eid": 9}}, {"name": "a", "mctp": {"eid": 10}}])",
     "devices[1].name: is the name of another device"},
    {R"("devices": [{"name": "a", "mctp": {"eid": 9}}, {"name": "b", "mctp": {"net": 1, "eid": 9}}])",
     "devices[1].mctp: is in use by a"},
    {R"("devices": [{"name": "a", "bus": 1, "address": 64}, {"name": "b", "bus": 1, "address": 64}])",
     "devices[1].address: is in use by a"},
    {R"("devices": [{"name": "a", "mctp": {"eid": 9}, "card": {"bdf": "41:00.0", "vendor_id": 1}},
                    {"name": "b", "mctp": {"eid": 10}, "card": {"bdf": "41:00.0", "vendor_id": 1}}])",
     nullptr},  // on the third line, see below
    {R"("serial": [])", "serial: no such key"},
};

TEST(LinuxBoard, ErrorsNameKeyAndLine) {
    for (const Wrong& wrong : kWrong) {
        board_file::BoardError error;
        const std::string text = "{\"name\": \"x\",\n" + std::string(wrong.text) + "}";
        EXPECT_FALSE(machine::parse_board(text, error)) << text;
        const std::string expected = wrong.message != nullptr
                                         ? "b.json:2: " + std::string(wrong.message)
                                         : "b.json:3: devices[1].card: is in the place of a";
        EXPECT_EQ(error.message("b.json"), expected) << text;
    }
}

TEST(LinuxBoard, AllErrorsComeAtOnce) {
    board_file::BoardError error;
    EXPECT_FALSE(machine::parse_board("{\n\"bmc\": {\"eid\": 3},\n\"devices\": [{}]\n}", error));
    EXPECT_EQ(error.message("b"),
              "b:1: name: is missing\n"
              "b:2: bmc.eid: must be 0 or from 8 to 254\n"
              "b:3: devices[0].name: is missing\n"
              "b:3: devices[0].bus: is missing\n"
              "b:3: devices[0].address: is missing");
}

TEST(LinuxBoard, TextThatIsNoJsonIsRefused) {
    board_file::BoardError error;
    EXPECT_FALSE(machine::parse_board("", error));
    EXPECT_FALSE(machine::parse_board("[]", error));
    EXPECT_FALSE(machine::parse_board("{\"name\": \"x\"", error));
    EXPECT_EQ(error.line, 1);
}

/// Every truncation, and every byte replaced: the reader ends, whatever it says.
TEST(LinuxBoard, AnyBytesAreRead) {
    const std::string whole = kWhole;
    for (size_t length = 0; length < whole.size(); ++length) {
        board_file::BoardError error;
        EXPECT_FALSE(machine::parse_board(std::string_view(whole).substr(0, length), error));
        EXPECT_FALSE(error.text.empty());
    }
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

TEST(LinuxBoard, MayHaveManyDevices) {
    std::string devices;
    for (int i = 0; i < 1025; ++i) {
        devices += std::string(i != 0 ? "," : "") + "{\"name\": \"d" + std::to_string(i) +
                   "\", \"mctp\": {\"net\": " + std::to_string(1 + i / 200) +
                   ", \"eid\": " + std::to_string(8 + i % 200) + "}}";
    }
    board_file::BoardError error;
    EXPECT_FALSE(machine::parse_board("{\"name\": \"x\", \"devices\": [" + devices + "]}", error));
    EXPECT_EQ(error.message("b"), "b:1: devices: must have at most 1024 devices");
    devices.erase(devices.rfind(",{"));
    EXPECT_TRUE(machine::parse_board("{\"name\": \"x\", \"devices\": [" + devices + "]}", error));
}

TEST(LinuxBoard, ComesFromARegularFile) {
    const machine_test::Folder folder;
    board_file::BoardError error;
    EXPECT_FALSE(machine::load_board(folder.at("none"), error));
    EXPECT_EQ(error.message("f"), "f: No such file or directory");
    EXPECT_FALSE(machine::load_board(folder.path(), error));
    EXPECT_EQ(error.message("f"), "f: Is a directory");
    machine_test::write_file(folder.at("board"), R"({"name": "x"})");
    EXPECT_TRUE(machine::load_board(folder.at("board"), error));
}

/// A machine without the file has a board without devices; one whose file cannot be reached has an
/// error. In a mount namespace of its own.
TEST(LinuxBoard, OfTheMachineMayBeAbsentButNotOutOfReach) {
    const pid_t child = fork();
    if (child == 0) {
        if (!machine_test::mount_own("/etc", nullptr)) {
            _exit(machine_test::kNoMount);
        }
        board_file::BoardError error;
        const bool absent = machine::load_board("", error).has_value();
        std::filesystem::create_directory("/etc/sideband");
        const bool empty = machine::load_board("", error).has_value();
        std::filesystem::create_symlink("nowhere", machine::kOwnBoardFile);
        const bool dangling = machine::load_board("", error).has_value();
        _exit(!absent ? 1 : !empty ? 2 : dangling ? 3 : error.text.empty() ? 4 : 0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    if (WEXITSTATUS(status) == machine_test::kNoMount) {
        GTEST_SKIP() << "nothing can be mounted here";
    }
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

}  // namespace
