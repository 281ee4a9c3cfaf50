// SPDX-License-Identifier: Apache-2.0
// The capture file, byte by byte.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <map>

#include "board_fixture.h"

namespace {

using namespace sim_test;

/// A little-endian number.
size_t number(const std::vector<uint8_t>& data, size_t at, size_t width) {
    size_t value = 0;
    for (size_t i = width; i > 0; --i) {
        value = value << 8 | data.at(at + i - 1);
    }
    return value;
}

/// The options of an enhanced packet block by their codes. They must fill it to its second length.
std::map<size_t, std::string> options_of(const std::vector<uint8_t>& block) {
    constexpr size_t kCapturedLength = 20;
    constexpr size_t kPacket = 28;
    const auto padded = [](size_t size) { return (size + 3) / 4 * 4; };
    std::map<size_t, std::string> options;
    size_t at = kPacket + padded(number(block, kCapturedLength, 4));
    while (number(block, at, 2) != 0) {
        const size_t length = number(block, at + 2, 2);
        const auto value = block.begin() + static_cast<std::ptrdiff_t>(at + 4);
        options[number(block, at, 2)].assign(value, value + static_cast<std::ptrdiff_t>(length));
        at += 4 + padded(length);
    }
    EXPECT_EQ(at + 8, block.size());
    EXPECT_EQ(number(block, at + 4, 4), block.size());
    return options;
}

class CaptureFile : public BoardTest {
protected:
    void SetUp() override {
        open(R"({"name": "t", "buses": [{"bus": 2}, {"bus": 3, "clock_hz": 400000}], "devices": [
            {"name": "p", "type": "pldm", "bus": 3, "address": "0x64", "eid": 9,
             "response_us": 0}]})");
        char name[] = "/tmp/sideband-capture-XXXXXX";
        const int fd = mkstemp(name);
        ASSERT_GE(fd, 0);
        close(fd);
        path = name;
    }
    void TearDown() override {
        std::remove(path.c_str());
        BoardTest::TearDown();
    }

    void start() {
        std::string error;
        ASSERT_TRUE(board->start_capture(path, error)) << error;
    }
    std::vector<uint8_t> file() const {
        std::ifstream in(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    /// The blocks of the file, each from its type to its second length.
    std::vector<std::string> blocks() const {
        const std::vector<uint8_t> all = file();
        std::vector<std::string> out;
        size_t at = 0;
        while (at + 12 <= all.size()) {
            const size_t length = number(all, at + 4, 4);
            if (length < 12 || at + length > all.size()) {
                break;
            }
            out.push_back(hex({all.begin() + static_cast<std::ptrdiff_t>(at),
                               all.begin() + static_cast<std::ptrdiff_t>(at + length)}));
            at += length;
        }
        EXPECT_EQ(at, all.size());
        return out;
    }

    std::string path;
};

/// Text as hex, followed by zeros up to a multiple of four.
std::string padded(const std::string& text) {
    std::vector<uint8_t> data(text.begin(), text.end());
    data.resize((data.size() + 3) / 4 * 4);
    return hex(data);
}

TEST_F(CaptureFile, StartsWithASectionAndOneInterfaceABus) {
    start();
    EXPECT_TRUE(board->stop_capture());
    const std::vector<std::string> all = blocks();
    ASSERT_EQ(all.size(), 3u);
    EXPECT_EQ(all[0].substr(0, 12 * 3 - 1), "0a 0d 0d 0a 3c 00 00 00 4d 3c 2b 1a");
    EXPECT_EQ(all[1],
              "01 00 00 00 50 00 00 00 "  // interface description, 80 bytes
              "14 01 00 00 00 00 00 00 "  // LINUX_SLL2, no snap length
              "02 00 05 00 " +
                  padded("i2c-2") + " 03 00 1e 00 " + padded("simulated I2C bus 2 at 100 kHz") +
                  " 09 00 01 00 09 00 00 00 "  // nanoseconds
                  "00 00 00 00 50 00 00 00");
    EXPECT_NE(all[2].find(padded("i2c-3").substr(0, 14)), std::string::npos);
}

TEST_F(CaptureFile, PacketsHaveTimeDirectionAddressAndTheBareMctpPacket) {
    start();
    EXPECT_EQ(exchange(3, 0x64, "01 00 08 c9 00 80 02"), "01 08 09 c1 00 00 02 00 09 02 00");
    EXPECT_TRUE(board->stop_capture());
    const std::vector<std::string> all = blocks();
    ASSERT_EQ(all.size(), 5u);
    // 2025-01-01 00:00:00 UTC plus 12 bytes of 22.5 us: 1735689600000270000 ns.
    EXPECT_EQ(all[3],
              "06 00 00 00 74 00 00 00 01 00 00 00 "
              "7e 68 16 18 b0 1e 5b c0 1b 00 00 00 1b 00 00 00 "
              "00 fa 00 00 00 00 00 04 01 22 04 01 64 00 00 00 00 00 00 00 "
              "01 00 08 c9 00 80 02 00 "
              "01 00 26 00 " +
                  padded("bus 3, address 0x64 (p), BMC to device") +
                  " 02 00 04 00 02 00 00 00 00 00 00 00 74 00 00 00");
    EXPECT_NE(all[4].find("00 fa 00 00 00 00 00 04 01 22 00 01 64 00 00 00 00 00 00 00 "
                          "01 08 09 c1 00 00 02 00 09 02 00 00"),
              std::string::npos);
    EXPECT_NE(all[4].find(padded("bus 3, address 0x64 (p), device to BMC")), std::string::npos);
}

TEST_F(CaptureFile, PacketWithABadPecSaysSo) {
    start();
    add_fault("p", R"({"kind": "bad_pec"})");
    exchange(3, 0x64, "01 00 08 c9 00 80 02");
    EXPECT_TRUE(board->stop_capture());
    ASSERT_EQ(blocks().size(), 5u);
    EXPECT_NE(blocks()[4].find(hex(bytes("2c 20 62 61 64 20 50 45 43"))), std::string::npos);
}

TEST_F(CaptureFile, WhatDoesNotPassIsNotInIt) {
    start();
    add_fault("p", R"({"kind": "no_ack", "count": 1})");
    add_fault("p", R"({"kind": "lost", "count": 1})");
    exchange(3, 0x64, "01 00 08 c9 00 80 02");
    exchange(3, 0x64, "01 00 08 c9 00 80 02");
    EXPECT_TRUE(board->stop_capture());
    EXPECT_EQ(blocks().size(), 4u);  // the second request alone
}

TEST_F(CaptureFile, PcieHasAnInterfaceOfItsOwnAndTheFunctionsAddress) {
    open(R"({"name": "t", "buses": [{"bus": 2}], "devices": [
        {"name": "q", "type": "pldm", "transport": "pcie", "bdf": "47:1f.7", "eid": 20, "tid": 5,
         "response_us": 0}]})");
    start();
    plt_pcie_request request{};
    request.operation = PLT_PCIE_WRITE_READ;
    request.routing = PLT_PCIE_ROUTE_BY_ID;
    request.bus = 0x47;
    request.device = 0x1F;
    request.function = 7;
    request.src_eid = 8;
    request.dest_eid = 20;
    request.tag = 3;
    const std::vector<uint8_t> message = bytes("01 80 00 02");
    std::copy(message.begin(), message.end(), request.message);
    request.length = static_cast<uint32_t>(message.size());
    ASSERT_EQ(PltMCTP_WriteRead(&request), 1);
    EXPECT_TRUE(board->stop_capture());
    const std::vector<std::string> all = blocks();
    ASSERT_EQ(all.size(), 5u) << "section, two interfaces, two packets";
    EXPECT_NE(all[2].find(padded("pcie") + " 03 00 26 00 " +
                          padded("simulated PCIe vendor-defined messages").substr(0, 38 * 3 - 1)),
              std::string::npos)
        << all[2];
    // Interface 1; a 2-byte address: the bus, then device and function, 0x1f << 3 | 7.
    EXPECT_EQ(all[3].substr(8 * 3, 4 * 3 - 1), "01 00 00 00");
    EXPECT_NE(all[3].find("00 fa 00 00 00 00 01 01 01 22 04 02 47 ff 00 00 00 00 00 00 "
                          "01 14 08 cb 01 80 00 02"),
              std::string::npos)
        << all[3];
    EXPECT_NE(all[3].find(padded("PCIe 47:1f.7 (q), BMC to device").substr(0, 31 * 3 - 1)),
              std::string::npos);
    EXPECT_NE(all[4].find("00 fa 00 00 00 00 01 01 01 22 00 02 47 ff 00 00 00 00 00 00 "
                          "01 08 14 c3 01 00 00 02 00 05"),
              std::string::npos)
        << all[4];
}

TEST_F(CaptureFile, ANameThatIsTooLongForACommentIsCutWhereACharacterBegins) {
    constexpr size_t kMost = 65535;
    const std::string front = "bus 3, address 0x64 (";
    // Three bytes a character: the comment would be cut behind the first, the second, the third.
    for (const size_t shift : {0, 1, 2}) {
        std::string name(shift, 'n');
        while (name.size() < 70000) {
            name += "\u20ac";
        }
        open(R"({"name": "t", "buses": [{"bus": 3}], "devices": [{"name": ")" + name +
             R"(", "type": "pldm", "bus": 3, "address": "0x64", "eid": 9, "response_us": 0}]})");
        start();
        EXPECT_EQ(exchange(3, 0x64, "01 00 08 c9 00 80 02"), "01 08 09 c1 00 00 02 00 09 02 00");
        EXPECT_TRUE(board->stop_capture());
        const std::vector<std::string> all = blocks();
        ASSERT_EQ(all.size(), 4u);
        for (const size_t packet : {2, 3}) {
            const std::map<size_t, std::string> options = options_of(bytes(all[packet]));
            ASSERT_EQ(options.count(1), 1u);
            const std::string& comment = options.at(1);
            const size_t whole = front.size() + shift + (kMost - front.size() - shift) / 3 * 3;
            EXPECT_EQ(comment.size(), whole);
            EXPECT_EQ(comment, (front + name).substr(0, whole));
            EXPECT_EQ(options.at(2).size(), 4u);
        }
    }
}

TEST_F(CaptureFile, ANameThatJustFitsIsWhole) {
    const std::string front = "bus 3, address 0x64 (";
    const std::string behind = "), device to BMC";
    const std::string name(65535 - front.size() - behind.size(), 'n');
    open(R"({"name": "t", "buses": [{"bus": 3}], "devices": [{"name": ")" + name +
         R"(", "type": "pldm", "bus": 3, "address": "0x64", "eid": 9, "response_us": 0}]})");
    start();
    exchange(3, 0x64, "01 00 08 c9 00 80 02");
    EXPECT_TRUE(board->stop_capture());
    ASSERT_EQ(blocks().size(), 4u);
    EXPECT_EQ(options_of(bytes(blocks()[3])).at(1), front + name + behind);
    EXPECT_EQ(options_of(bytes(blocks()[2])).at(1), front + name + "), BMC to device");
}

TEST_F(CaptureFile, AFifoNeedsItsReaderFirst) {
    std::remove(path.c_str());
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    std::string error;
    // Opening it in the ordinary way would wait here: then this ends the test.
    alarm(20);
    EXPECT_FALSE(board->start_capture(path, error));
    EXPECT_EQ(error, path + ": nobody reads this FIFO");
    const int reader = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    EXPECT_TRUE(board->start_capture(path, error)) << error;
    exchange(3, 0x64, "01 00 08 c9 00 80 02");
    EXPECT_TRUE(board->stop_capture());
    alarm(0);
    std::vector<uint8_t> captured(4096);
    const ssize_t count = ::read(reader, captured.data(), captured.size());
    close(reader);
    ASSERT_GT(count, 4);
    captured.resize(4);
    EXPECT_EQ(hex(captured), "0a 0d 0d 0a");
}

TEST_F(CaptureFile, TwoRunsGiveTheSameFile) {
    start();
    exchange(3, 0x64, "01 00 08 c9 00 80 03");
    EXPECT_TRUE(board->stop_capture());
    const std::vector<uint8_t> first = file();
    std::remove(path.c_str());
    SetUp();
    start();
    exchange(3, 0x64, "01 00 08 c9 00 80 03");
    EXPECT_TRUE(board->stop_capture());
    EXPECT_EQ(file(), first);
}

TEST_F(CaptureFile, FailuresAreReported) {
    std::string error;
    EXPECT_FALSE(board->start_capture("/nonexistent/x.pcapng", error));
    EXPECT_EQ(error, "/nonexistent/x.pcapng: No such file or directory");
    EXPECT_TRUE(board->stop_capture());  // nothing was running
    EXPECT_FALSE(board->start_capture("/dev/full", error));
    EXPECT_EQ(error, "/dev/full: No space left on device");
}

}  // namespace
