// SPDX-License-Identifier: Apache-2.0
// The I2C bus for whoever drives it byte by byte: addresses alone, reads, multiplexers' control
// bytes, the slave queue.
#include <cerrno>

#include "sim/board/board_fixture.h"
#include "sim/board/state.h"

namespace {

using namespace sim_test;

class I2cMaster : public BoardTest {
protected:
    void SetUp() override {
        open(board_with(R"(
            {"name": "a", "type": "pldm", "bus": 2, "address": "0x64", "eid": 9,
             "response_us": 100},
            {"name": "b", "type": "pldm", "bus": 2, "address": "0x66", "eid": 10,
             "mux": {"address": "0xe0", "channel": 1}},
            {"name": "c", "type": "pldm", "bus": 2, "address": "0x68", "eid": 11,
             "mux": {"address": "0xe2", "channel": 7}}
        )"));
    }
    sim::I2cBus& bus() { return *board->state().find_bus(2); }
    int write_bytes(uint8_t address, const std::string& text) {
        return bus().master_write(address, bytes(text));
    }
    std::string read_bytes(uint8_t address, size_t size) {
        sim::Bytes data{1, 2, 3};
        const int result = bus().master_read(address, size, data);
        return result == 0 ? hex(data) : "error " + std::to_string(result);
    }
    void let_pass() { board->advance_us(100'000); }
};

// Get Endpoint ID to EID 0, with its PEC, and the answer.
constexpr const char* kGetEid = "0f 08 21 01 00 08 c9 00 80 02 d8";
constexpr const char* kEidAnswer = "20 0f 0c 65 01 08 09 c1 00 00 02 00 09 02 00 78";

TEST_F(I2cMaster, FindsDevicesByTheirAddressAlone) {
    EXPECT_EQ(write_bytes(0x64, ""), 0);
    EXPECT_EQ(write_bytes(0x66, ""), -ENXIO);
    EXPECT_EQ(write_bytes(0xE0, ""), 0);
    EXPECT_EQ(write_bytes(0xE2, ""), -ENXIO) << "behind another multiplexer";
    EXPECT_EQ(read_bytes(0x64, 2), "ff ff");
    EXPECT_EQ(read_bytes(0x64, 0), "");
    EXPECT_EQ(read_bytes(0x66, 1), "error " + std::to_string(-ENXIO));
    add_fault("a", R"({"kind": "no_ack", "count": 2})");
    EXPECT_EQ(write_bytes(0x64, ""), -ENXIO);
    EXPECT_EQ(read_bytes(0x64, 1), "error " + std::to_string(-ENXIO));
    EXPECT_EQ(write_bytes(0x64, ""), 0);
}

TEST_F(I2cMaster, ConnectsTheChannelsWhoseBitsAreSet) {
    EXPECT_EQ(read_bytes(0xE0, 2), "00 00");
    EXPECT_EQ(write_bytes(0xE0, "02"), 0);
    EXPECT_EQ(read_bytes(0xE0, 1), "02");
    EXPECT_EQ(write_bytes(0x66, ""), 0);
    // The last byte counts; channels that the chip has not are no channels.
    EXPECT_EQ(write_bytes(0xE0, "ff 0a f8"), 0);
    EXPECT_EQ(read_bytes(0xE0, 1), "08");
    EXPECT_EQ(write_bytes(0x66, ""), -ENXIO);
    EXPECT_EQ(write_bytes(0xE2, "80"), 0);
    EXPECT_EQ(write_bytes(0x68, ""), 0);
    // Two channels at once.
    EXPECT_EQ(write_bytes(0xE0, "0a"), 0);
    EXPECT_EQ(write_bytes(0x66, ""), 0);
    EXPECT_EQ(write_bytes(0x68, ""), 0);
    // An address alone changes nothing, and neither does leaving the chip in front.
    EXPECT_EQ(write_bytes(0xE0, ""), 0);
    EXPECT_EQ(read_bytes(0xE0, 1), "0a");
    EXPECT_EQ(write_bytes(0xE0, "00"), 0);
    EXPECT_EQ(write_bytes(0xE2, "00"), -ENXIO);
    EXPECT_EQ(write_bytes(0x68, ""), -ENXIO);
    // The platform interface finds and leaves the chips as it wants them.
    EXPECT_EQ(select(2, {0xE0, 3, 0xE2, 7}), 0);
    EXPECT_EQ(read_bytes(0xE0, 1), "08");
    EXPECT_EQ(read_bytes(0xE2, 1), "80");
}

TEST_F(I2cMaster, WritesABlockAndTakesTheAnswerWhole) {
    EXPECT_FALSE(bus().has_block());
    EXPECT_FALSE(bus().take_block());
    EXPECT_EQ(write_bytes(0x64, kGetEid), 0);
    EXPECT_FALSE(bus().has_block()) << "it takes its time";
    let_pass();
    EXPECT_TRUE(bus().has_block());
    EXPECT_EQ(hex(*bus().take_block()), kEidAnswer);
    EXPECT_FALSE(bus().has_block());
}

TEST_F(I2cMaster, RefusesABlockWithAWrongPec) {
    EXPECT_EQ(write_bytes(0x64, "0f 08 21 01 00 08 c9 00 80 02 d9"), -EIO);
    EXPECT_EQ(write_bytes(0x64, "00"), -EIO);
    let_pass();
    EXPECT_FALSE(bus().has_block());
}

TEST_F(I2cMaster, TakesABlockWithAWrongPecAsItCame) {
    add_fault("a", R"({"kind": "bad_pec", "count": 1})");
    EXPECT_EQ(write_bytes(0x64, kGetEid), 0);
    let_pass();
    const std::optional<sim::Bytes> block = bus().take_block();
    ASSERT_TRUE(block);
    EXPECT_NE(hex(*block), kEidAnswer);
    EXPECT_EQ(hex({block->begin(), block->end() - 1}), std::string(kEidAnswer).substr(0, 44));
}

TEST_F(I2cMaster, TakesTimeOnTheWire) {
    const uint64_t before = board->now_us();
    EXPECT_EQ(write_bytes(0xE0, "02"), 0);
    EXPECT_EQ(board->now_us() - before, 180u) << "two bytes at 100 kHz";
    read_bytes(0x64, 3);
    EXPECT_EQ(board->now_us() - before, 180u + 360u);
}

}  // namespace
