// SPDX-License-Identifier: Apache-2.0
// Fixture of the simulated board's tests: a board under the platform interface, wire bytes in hex.
#include "board_fixture.h"

#include <cctype>
#include <cstdio>

namespace sim_test {

std::vector<uint8_t> bytes(std::string_view hex) {
    std::string digits;
    for (char c : hex) {
        if (std::isxdigit(static_cast<unsigned char>(c))) {
            digits += c;
        }
    }
    std::vector<uint8_t> out;
    for (size_t i = 0; i + 1 < digits.size(); i += 2) {
        out.push_back(static_cast<uint8_t>(std::stoi(digits.substr(i, 2), nullptr, 16)));
    }
    return out;
}

std::string hex(const std::vector<uint8_t>& data) {
    std::string out;
    for (uint8_t byte : data) {
        char text[4];
        std::snprintf(text, sizeof text, out.empty() ? "%02x" : " %02x", byte);
        out += text;
    }
    return out;
}

std::string board_with(std::string_view devices) {
    return R"({
    "name": "test",
    "buses": [
        {"bus": 2, "muxes": [
            {"address": "0xe0", "channels": 4},
            {"address": "0xe2", "channels": 8, "behind": {"address": "0xe0", "channel": 3}}]},
        {"bus": 3, "clock_hz": 400000},
        {"bus": 5, "clock_hz": 1000000}
    ],
    "devices": [)" +
           std::string(devices) + "]}";
}

std::string refusal_of(const std::string& text) {
    sim::BoardError error;
    if (sim::Board::parse(text, error)) {
        return "accepted";
    }
    return std::to_string(error.line) + ": " + error.key + ": " + error.text;
}

void BoardTest::open(const std::string& text) {
    sim::BoardError error;
    board = sim::Board::parse(text, error);
    ASSERT_TRUE(board) << error.message("board");
    sim::Board::use(board.get());
}

void BoardTest::TearDown() {
    if (!board) {
        return;
    }
    const sim::LockReport locks = board->lock_report();
    EXPECT_EQ(locks.held, std::vector<std::string>{});
    sim::Board::use(nullptr);
}

static plt_i2c_request write_request(uint8_t bus, const std::vector<uint8_t>& data) {
    plt_i2c_request request{};
    request.bus = bus;
    request.slave_addr = data.at(0);
    request.write_length = static_cast<uint8_t>(data.size());
    request.write_data = data.data();
    return request;
}

int BoardTest::write(uint8_t bus, std::string_view frame) {
    const std::vector<uint8_t> data = bytes(frame);
    return PltMCTPI2C_MasterWriteWithPEC_NoMutex(write_request(bus, data));
}

int BoardTest::write_plain(uint8_t bus, std::string_view frame) {
    const std::vector<uint8_t> data = bytes(frame);
    return PltMCTPI2C_MasterWrite_NoMutex(write_request(bus, data));
}

std::string BoardTest::read(uint8_t bus, uint32_t param) {
    std::vector<uint8_t> buffer(PLT_I2C_READ_BUFFER_SIZE);
    plt_i2c_request request{};
    request.bus = bus;
    request.read_length = 255;
    request.read_buffer = buffer.data();
    const int result = PltMCTPI2C_SlaveReadWithPEC_NoMutex(request, param);
    if (result < 0) {
        return "error " + std::to_string(result);
    }
    buffer.resize(static_cast<size_t>(result));
    return hex(buffer);
}

int BoardTest::send(uint8_t bus, uint8_t address, std::string_view packet) {
    const std::vector<uint8_t> data = bytes(packet);
    std::vector<uint8_t> frame{address, 0x0F, static_cast<uint8_t>(data.size() + 1), 0x21};
    frame.insert(frame.end(), data.begin(), data.end());
    return PltMCTPI2C_MasterWriteWithPEC_NoMutex(write_request(bus, frame));
}

std::string BoardTest::receive(uint8_t bus) {
    const std::string block = read(bus);
    if (block.starts_with("error")) {
        return block;
    }
    // Command code, byte count and source address in front, the PEC behind: three digits each.
    return block.substr(9, block.size() - 12);
}

std::string BoardTest::exchange(uint8_t bus, uint8_t address, std::string_view packet) {
    const int result = send(bus, address, packet);
    return result == 0 ? receive(bus) : "write " + std::to_string(result);
}

int BoardTest::select(uint8_t bus, const std::vector<uint8_t>& hops) {
    plt_i2c_request request{};
    request.bus = bus;
    std::vector<uint8_t> setting{static_cast<uint8_t>(hops.size() / 2)};
    setting.insert(setting.end(), hops.begin(), hops.end());
    setting.resize(48);
    return SetI2CMux(&request, setting.data());
}

void BoardTest::add_fault(const std::string& device, std::string_view fault) {
    sim::BoardError error;
    ASSERT_TRUE(board->add_fault(device, fault, error)) << error.message("fault");
}

sim::BusStatistics BoardTest::statistics(uint8_t bus) const {
    for (const sim::BusStatistics& each : board->bus_statistics()) {
        if (each.bus == bus) {
            return each;
        }
    }
    return {};
}

}  // namespace sim_test
