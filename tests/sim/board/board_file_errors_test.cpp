// SPDX-License-Identifier: Apache-2.0
// Board files with many errors, misspelt keys, hostile texts and sizes, and what is no file.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>

#include "board_fixture.h"
#include "sim/pldm/firmware_image.h"

namespace {

using namespace sim_test;

/// Everything that is told of a text, a line each.
std::string told(const std::string& text) {
    sim::BoardError error;
    return sim::Board::parse(text, error) ? "accepted" : error.message("b");
}

/// The same for one PLDM device with these keys; they begin on line 3.
std::string told_of_device(const std::string& keys) {
    return told(R"({"name": "t", "buses": [{"bus": 2, "muxes": [{"address": "0xe0"}]}],
"devices": [{
)" + keys + "}]}");
}

const std::string kDevice = R"("name": "d", "type": "pldm", "bus": 2, "address": "0x30")";

double seconds_of(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

TEST(BoardErrors, AMisspeltKeyIsToldInsteadOfTheMissingOne) {
    EXPECT_EQ(told_of_device(R"("name": "d", "type": "pldm", "bus": 2,
"adress": "0x30")"),
              "b:4: devices[0].adress: no such key; did you mean address?");
    EXPECT_EQ(told_of_device(R"("name": "d", "tpye": "pldm", "bus": 2, "address": "0x30")"),
              "b:3: devices[0].tpye: no such key; did you mean type?");
    EXPECT_EQ(told_of_device(kDevice + R"(, "lenient_eon": true)"),
              "b:3: devices[0].lenient_eon: no such key; did you mean lenient_eom?");
}

TEST(BoardErrors, AMisspeltKeyIsToldWhereReadingEndsEarly) {
    EXPECT_EQ(told_of_device(kDevice + R"(, "faults": [{"knd": "late", "delay_us": 5}])"),
              "b:3: devices[0].faults[0].knd: no such key; did you mean kind?");
}

TEST(BoardErrors, AKeyThatIsLikeNoneIsNotGuessedAt) {
    EXPECT_EQ(told_of_device(kDevice + R"(, "colour": 1)"), "b:3: devices[0].colour: no such key");
    // "eid" is there: nobody meant it.
    EXPECT_EQ(told_of_device(kDevice + R"(, "eid": 9, "eidd": 1)").find("did you mean eid?"),
              std::string::npos);
}

TEST(BoardErrors, AllOfAFileComeAtOnceInTheOrderOfTheirLines) {
    EXPECT_EQ(
        told(R"({
"name": 3,
"bmc": {"eid": 7, "adress": 32},
"buses": [{"bus": 2, "clock_hz": 5},
 {"bus": 300},
 {"bus": 3}],
"devices": [
 {"name": "a", "type": "pldm", "bus": 3, "address": "0x31", "eid": 1000},
 {"name": "a", "type": "replay", "bus": 3, "address": "0x32"},
 {"name": "b", "type": "toaster", "bus": 3,
  "address": "0x32", "faults": [{"kind": "late"},
   {"kind": "odd"}]}],
"colour": 1})"),
        "b:2: name: must be a string\n"
        "b:3: bmc.eid: must be 0 or from 8 to 254\n"
        "b:3: bmc.adress: no such key; did you mean address?\n"
        "b:4: buses[0].clock_hz: must be a whole number from 10000 to 1000000\n"
        "b:5: buses[1].bus: must be a whole number from 0 to 255\n"
        "b:8: devices[0].address: must be an 8-bit slave address, which is even\n"
        "b:8: devices[0].eid: must be a whole number from 0 to 254\n"
        "b:9: devices[1].name: is the name of another device\n"
        "b:9: devices[1].exchanges: is missing\n"
        "b:10: devices[2].type: must be one of bus_owner, mpio, ncsi, nvme, pldm, replay\n"
        "b:11: devices[2].faults[0].delay_us: is missing\n"
        "b:12: devices[2].faults[1].kind: must be one of no_ack, lost, duplicate, reorder, late, "
        "truncate, over_long, bad_pec, wrong_tag, wrong_sequence, not_ready, hostile\n"
        "b:13: colour: no such key");
}

TEST(BoardErrors, OfEveryKindOfDeviceAreCollected) {
    EXPECT_EQ(
        told_of_device(kDevice + R"(,
"sensors": [{"kind": "numeric", "id": 1, "data_size": 9, "wavefrom": {"shape": "constant", "value": 1}},
 {"kind": "state", "id": 70000, "composites": [{"state_set": 0, "states": []}]}],
"fru": {"records": [{"fields": [{"type": "model"}]}], "part_sise": 3},
"firmware": {"active": {"txt": "1"}, "components": [{"identifier": 1}]})"),
        "b:4: devices[0].sensors[0].data_size: must be a whole number from 1 to 4\n"
        "b:4: devices[0].sensors[0].wavefrom: no such key; did you mean waveform?\n"
        "b:5: devices[0].sensors[1].id: must be a whole number from 0 to 65535\n"
        "b:5: devices[0].sensors[1].composites[0].state_set: must be a whole number from 1 to "
        "65535\n"
        "b:5: devices[0].sensors[1].composites[0].states: must have at least one state\n"
        "b:6: devices[0].fru.records[0].fields[0].hex: is missing\n"
        "b:6: devices[0].fru.part_sise: no such key; did you mean part_size?\n"
        "b:7: devices[0].firmware.active.txt: no such key; did you mean text?\n"
        "b:7: devices[0].firmware.components[0].active: is missing");
    EXPECT_EQ(told_of_device(R"("name": "n", "type": "nvme", "bus": 2, "address": "0x30",
"drive": {"serial": "far too long for a serial number", "ports": [{"type": "smbs"}, {"type": "pcie"}],
 "controllers": [{"id": 0, "port": 1}, {"id": 0}], "firmware": {"slots": ["ok", 7]},
 "smart": {"host_read": 1}})"),
              "b:4: devices[0].drive.serial: must have at most 20 ASCII characters\n"
              "b:4: devices[0].drive.ports[0].type: must be one of inactive, pcie, smbus\n"
              "b:5: devices[0].drive.controllers[1].id: appears twice\n"
              "b:5: devices[0].drive.firmware.slots[1]: must be a string\n"
              "b:6: devices[0].drive.smart.host_read: no such key; did you mean host_reads?");
    EXPECT_EQ(told_of_device(R"("name": "n", "type": "ncsi", "bus": 2, "address": "0x30",
"controller": {"packages": [{"id": 9, "channels": [{"id": 0, "mac": "00"}]}], "checksum": true})"),
              "b:4: devices[0].controller.packages[0].id: must be a whole number from 0 to 7\n"
              "b:4: devices[0].controller.packages[0].channels[0].mac: must have 6 bytes\n"
              "b:4: devices[0].controller.checksum: no such key; did you mean checksums?");
}

TEST(BoardErrors, WhatFollowsFromAnErrorIsNoneOfItsOwn) {
    // The address that could not be read is not 0x10, nor is the bus of a number that is none bus
    // 0.
    EXPECT_EQ(
        told_of_device(kDevice + "}, {" + R"("name": "e", "type": "pldm", "bus": 2, "address": 5}, {
"name": "f", "type": "pldm", "bus": 2, "address": "0x10")"),
        "b:3: devices[1].address: must be a whole number from 16 to 238");
    EXPECT_EQ(told(R"({"name": "t", "buses": [{"bus": "one"}],
"devices": [{"name": "d", "type": "pldm", "bus": 1, "address": "0x30"}]})"),
              "b:1: buses[0].bus: must be a whole number from 0 to 255");
}

TEST(BoardErrors, BehindTheTwentiethAreCountedOnly) {
    std::string keys;
    for (int i = 0; i < 25; ++i) {
        keys += ",\n\"unknown" + std::to_string(i) + "\": 0";
    }
    const std::string all = told(R"({"name": "t", "buses": [{"bus": 1}])" + keys + "}");
    EXPECT_EQ(std::ranges::count(all, '\n'), 20);
    EXPECT_NE(all.find("\nb:21: unknown19: no such key\n"), std::string::npos) << all;
    EXPECT_TRUE(all.ends_with("\nb: at least 5 more errors")) << all;
}

TEST(BoardErrors, KeysThatStandTwiceAreToldWithTheirPlace) {
    EXPECT_EQ(told_of_device(kDevice + R"(,
"eid": 9, "card": {"vendor_id": 1, "bdf": "41:00.0",
"vendor_id": 2}, "eid": 10)"),
              "b:5: devices[0].card.vendor_id: appears twice in one object\n"
              "b:5: devices[0].eid: appears twice in one object");
}

TEST(BoardErrors, ControlCharactersOfAFileAreShownInHex) {
    EXPECT_EQ(told("{\"name\": \"t\", \"buses\": [{\"bus\": 1}], \"\\u001b[2J\\n\xC2\x9B\": 1}"),
              "b:1: \\x1b[2J\\x0a\\xc2\\x9b: no such key");
    EXPECT_EQ(told_of_device(kDevice + "}, {\"name\": \"e\", \"type\": \"pldm\", \"bus\": 2, "
                                       "\"address\": \"0x32\", \"\xC3\xBC\x7F\": 1"),
              "b:3: devices[1].\xC3\xBC\\x7f: no such key");
    // A lone C1 byte is no UTF-8: the JSON parser quotes it.
    const std::string lone = told(
        "{\"name\": \"\x9B"
        "31mred\"}");
    EXPECT_NE(lone.find("\\x9b"), std::string::npos) << lone;
    EXPECT_EQ(lone.find('\x9B'), std::string::npos);
    sim::BoardError error{"k", 1, "text"};
    EXPECT_EQ(error.message("a\033[31m\n"), "a\\x1b[31m\\x0a:1: k: text");
}

/// Puts something else in the place of each value that stands behind a key, one after another.
template <typename Try>
void replace_each_value(const std::string& text, Try attempt) {
    const std::string others[] = {"null", "[]", "-1", "{}", "\"\"", "1e300", "[{}]", "[0]"};
    // All of them take half a minute under sanitizers.
    constexpr size_t kStride = 5;
    size_t count = 0;
    for (size_t at = text.find("\": "); at != std::string::npos; at = text.find("\": ", at + 1)) {
        if (count++ % kStride != 0) {
            continue;
        }
        const size_t begin = at + 3;
        const bool is_word = text[begin] != '{' && text[begin] != '[';
        // An array or an object stays behind a key that nobody knows.
        const std::string& other = others[count % std::size(others)];
        const std::string tail = is_word ? text.substr(text.find_first_of(",}\n", begin))
                                         : ", \"rest\": " + text.substr(begin);
        attempt(text.substr(0, begin) + other + tail);
    }
    EXPECT_GT(count, 300u);
}

TEST(BoardErrors, AnyValueMayBeWrong) {
    const std::string text(sim::Board::built_in_file());
    size_t refused = 0;
    replace_each_value(text, [&](const std::string& changed) {
        const std::string all = told(changed);
        refused += all != "accepted" ? 1 : 0;
        EXPECT_EQ(all.find("b:0: "), std::string::npos) << all;
    });
    EXPECT_GT(refused, 50u);
}

TEST(BoardErrors, LongKeysAreCut) {
    const std::string all =
        told(R"({"name": "t", "buses": [{"bus": 1}], ")" + std::string(100'000, 'k') + R"(": 1})");
    EXPECT_LT(all.size(), 200u);
    EXPECT_NE(all.find("k...: no such key"), std::string::npos) << all;
}

TEST(BoardErrors, DeepNestingIsRefused) {
    const std::string keys = "{\"name\": \"t\", \"buses\": [{\"bus\": 1}],\n\"devices\": ";
    EXPECT_EQ(told(keys + std::string(1'000'000, '[')), "b:2: nested too deeply");
    std::string objects;
    for (int i = 0; i < 1000; ++i) {
        objects += "{\"a\":";
    }
    EXPECT_EQ(told(objects), "b:1: nested too deeply");
}

TEST(BoardErrors, AMegabyteOfKeysIsReadInSeconds) {
    std::string text = R"({"name": "t", "buses": [{"bus": 1}])";
    for (int i = 0; text.size() < 1'000'000; ++i) {
        text += ",\n\"k" + std::to_string(i) + "\": 0";
    }
    std::string all;
    EXPECT_LT(seconds_of([&] { all = told(text + "}"); }), 10.0);
    EXPECT_NE(all.find("b:2: k0: no such key"), std::string::npos) << all.substr(0, 200);
}

TEST(BoardErrors, AMegabyteOfRepeatedKeysIsReadInSeconds) {
    std::string text = R"({"name": "t", "buses": [{"bus": 1}])";
    while (text.size() < 1'000'000) {
        text += ",\n\"name\": 0";
    }
    std::string all;
    EXPECT_LT(seconds_of([&] { all = told(text + "}"); }), 10.0);
    EXPECT_EQ(all.find("b:2: name: appears twice in one object"), 0u) << all.substr(0, 200);
}

TEST(BoardErrors, RecordsAndDevicesHaveABound) {
    std::string records;
    for (int i = 0; i < 200; ++i) {
        records += (i == 0 ? "" : ",") + std::string(R"({"type": 1, "length": 65545})");
    }
    EXPECT_NE(told_of_device(kDevice + R"(, "pdrs": [)" + records + "]")
                  .find("is more than the repository holds, 4194304 bytes"),
              std::string::npos);
    std::string devices = "{}";
    for (int i = 0; i < 1024; ++i) {
        devices += ",{}";
    }
    EXPECT_EQ(told(R"({"name": "t", "buses": [{"bus": 1}], "devices": [)" + devices + "]}"),
              "b:1: devices: must have at most 1024 devices");
}

TEST(BoardErrors, ComeFromAFaultAsWell) {
    sim::BoardError error;
    auto board = sim::Board::parse(board_with("{" + kDevice + "}"), error);
    ASSERT_TRUE(board) << error.message("b");
    EXPECT_FALSE(board->add_fault("d", R"({"kind": "late", "delay": 5, "evry": 1})", error));
    EXPECT_EQ(error.message("f"),
              "f:1: delay: no such key\n"
              "f:1: evry: no such key; did you mean every?\n"
              "f:1: delay_us: is missing");
}

/// Ends the test program if an open() or a read() waits for ever.
class Alarm {
public:
    Alarm() { alarm(10); }
    ~Alarm() { alarm(0); }
    Alarm(const Alarm&) = delete;
    Alarm& operator=(const Alarm&) = delete;
};

class BoardPath : public ::testing::Test {
protected:
    void SetUp() override {
        std::string name = ::testing::TempDir() + "sideband-board-XXXXXX";
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        folder = name;
    }
    void TearDown() override { std::filesystem::remove_all(folder); }

    static std::string refusal(const std::string& path) {
        const Alarm alarm;
        sim::BoardError error;
        return sim::Board::load(path, error) ? "accepted" : error.message("b");
    }

    std::string folder;
};

TEST_F(BoardPath, AFifoIsRefusedAndNotWaitedFor) {
    const std::string path = folder + "/fifo";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_EQ(refusal(path), "b: is not a regular file");
}

TEST_F(BoardPath, AFifoIsNoFirmwareImage) {
    const std::string path = folder + "/fifo";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const Alarm alarm;
    sim::ExpectedImage image = sim::ExpectedImage::file(path, 0, 0);
    EXPECT_EQ(image.size(), 0u);
    EXPECT_EQ(image.difference(0, bytes("00")), 0u);
}

TEST_F(BoardPath, ADeviceIsRefused) {
    EXPECT_EQ(refusal("/dev/null"), "b: is not a regular file");
    EXPECT_EQ(refusal("/dev/zero"), "b: is not a regular file");
}

TEST_F(BoardPath, AFileHasALongestSize) {
    const std::string path = folder + "/board.json";
    const std::string board = board_with("");
    auto write = [&](size_t size) {
        std::ofstream(path) << board << std::string(size - board.size(), ' ');
        ASSERT_EQ(std::filesystem::file_size(path), size);
    };
    write(sim::Board::kLongestFile);
    EXPECT_EQ(refusal(path), "accepted");
    const std::string told = "b: is longer than 4194304 bytes, the most that a board file may have";
    write(sim::Board::kLongestFile + 1);
    EXPECT_EQ(refusal(path), told);
    std::filesystem::resize_file(path, uintmax_t{8} << 30);  // sparse
    EXPECT_EQ(refusal(path), told);
}

}  // namespace
