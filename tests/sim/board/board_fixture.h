// SPDX-License-Identifier: Apache-2.0
// Fixture of the simulated board's tests: a board under the platform interface, wire bytes in hex.
#ifndef SIDEBAND_TESTS_SIM_BOARD_BOARD_FIXTURE_H
#define SIDEBAND_TESTS_SIM_BOARD_BOARD_FIXTURE_H

#include <gtest/gtest.h>
#include <sideband/platform.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "sim/board/board.h"

namespace sim_test {

/// What a wait for a message ends with if none comes.
inline const std::string kSilence = "error -110";

/// Bytes of hex digits; spaces are for the reader.
std::vector<uint8_t> bytes(std::string_view hex);
/// "0f 0c 65"
std::string hex(const std::vector<uint8_t>& data);

/// A board file around a list of devices: bus 2 at 100 kHz with the multiplexers 0xe0 (four
/// channels) and, behind its channel 3, 0xe2; bus 3 at 400 kHz; bus 5 at 1 MHz.
std::string board_with(std::string_view devices);

/// Parses a board file that must be refused. @return "line: key: text"
std::string refusal_of(const std::string& text);

class BoardTest : public ::testing::Test {
protected:
    /// Makes a board and puts it in use.
    void open(const std::string& text);
    void TearDown() override;

    /// Master write with PEC by the controller. @param frame  hex, from the destination address on
    int write(uint8_t bus, std::string_view frame);
    /// Master write of the bytes as given.
    int write_plain(uint8_t bus, std::string_view frame);
    /// Waits for a block: its bytes in hex, or "error N".
    std::string read(uint8_t bus, uint32_t param = 0);
    /// Writes an MCTP packet in a block to a device. @return result of the write
    int send(uint8_t bus, uint8_t address, std::string_view packet);
    /// Waits for an MCTP packet: the block without SMBus header and PEC.
    std::string receive(uint8_t bus);
    /// One packet out, one packet in.
    std::string exchange(uint8_t bus, uint8_t address, std::string_view packet);
    /// Connects multiplexer channels: pairs of address and channel.
    int select(uint8_t bus, const std::vector<uint8_t>& hops);

    void add_fault(const std::string& device, std::string_view fault);
    sim::BusStatistics statistics(uint8_t bus) const;

    std::unique_ptr<sim::Board> board;
};

}  // namespace sim_test

#endif
