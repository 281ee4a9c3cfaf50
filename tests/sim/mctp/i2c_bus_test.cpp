// SPDX-License-Identifier: Apache-2.0
// The I2C bus: blocks, PEC, acknowledges, multiplexers, the slave queue, what time they take.
#include <unistd.h>
#include <cerrno>
#include <cstdlib>

#include "sim/board/board_fixture.h"
#include "sim/board/passing.h"

namespace {

using namespace sim_test;

// Get Endpoint ID (control command 0x02) to EID 0, tag 1, and the answer of an endpoint of EID 9.
constexpr const char* kGetEid = "64 0f 08 21 01 00 08 c9 00 80 02";
constexpr const char* kGetEidPec = "64 0f 08 21 01 00 08 c9 00 80 02 d8";
constexpr const char* kGetEidPacket = "01 00 08 c9 00 80 02";
constexpr const char* kEidAnswer = "0f 0c 65 01 08 09 c1 00 00 02 00 09 02 00 78";

class I2cBus : public BoardTest {
protected:
    void SetUp() override {
        open(board_with(R"(
            {"name": "a", "type": "pldm", "bus": 2, "address": "0x64", "eid": 9},
            {"name": "b", "type": "pldm", "bus": 2, "address": "0x66", "eid": 10,
             "mux": {"address": "0xe0", "channel": 1}},
            {"name": "c", "type": "pldm", "bus": 2, "address": "0x66", "eid": 11,
             "mux": {"address": "0xe2", "channel": 7}},
            {"name": "d", "type": "pldm", "bus": 3, "address": "0x64", "eid": 12,
             "response_us": 0},
            {"name": "e", "type": "pldm", "bus": 5, "address": "0x64", "eid": 13,
             "response_us": 0}
        )"));
    }
};

TEST_F(I2cBus, AnswersABlockWithABlockToTheBmcsAddress) {
    EXPECT_EQ(write(2, kGetEid), 0);
    EXPECT_EQ(read(2), kEidAnswer);
}

TEST_F(I2cBus, AcceptsAPecThatCameWithTheBytes) {
    EXPECT_EQ(write_plain(2, kGetEidPec), 0);
    EXPECT_EQ(read(2), kEidAnswer);
}

// An answer that is due when power goes, one that waits for the bus, one that is on it.
TEST_F(I2cBus, WhatWasOnItsWayWhenPowerWentNeverComes) {
    open(board_with(R"({"name": "s", "type": "pldm", "bus": 2, "address": "0x64", "eid": 9,
                        "standby": false, "response_us": 1000})"));
    for (uint64_t us = 0; us < 4000; us += 250) {
        EXPECT_EQ(write(2, kGetEid), 0);
        board->advance_us(us);
        const uint64_t there = statistics(2).packets;
        board->set_main_power(false);
        board->set_main_power(true);
        board->advance_us(1'000'000);
        EXPECT_EQ(statistics(2).packets, there) << us;
        while (read(2) == kEidAnswer) {
        }
    }
    EXPECT_EQ(write(2, kGetEid), 0);
    EXPECT_EQ(read(2), kEidAnswer);
}

TEST_F(I2cBus, RefusesAWrongPec) {
    EXPECT_EQ(write_plain(2, "64 0f 08 21 01 00 08 c9 00 80 02 d9"), -EIO);
    EXPECT_EQ(read(2), "error " + std::to_string(-ETIMEDOUT));
}

TEST_F(I2cBus, NobodyAcknowledgesAnUnknownAddress) {
    EXPECT_EQ(write(2, "70 0f 08 21 01 00 08 c9 00 80 02"), -ENXIO);
    EXPECT_EQ(write(9, kGetEid), -ENODEV);
    EXPECT_EQ(read(9), "error " + std::to_string(-ENODEV));
}

TEST_F(I2cBus, FrameForAnotherAddressThanTheRequestNamesIsRefused) {
    const std::vector<uint8_t> frame = bytes(kGetEid);
    plt_i2c_request request{};
    request.bus = 2;
    request.slave_addr = 0x66;
    request.write_length = static_cast<uint8_t>(frame.size());
    request.write_data = frame.data();
    EXPECT_EQ(PltMCTPI2C_MasterWriteWithPEC_NoMutex(request), -EINVAL);
    request.write_data = nullptr;
    EXPECT_EQ(PltMCTPI2C_MasterWriteWithPEC_NoMutex(request), -EINVAL);
    EXPECT_EQ(PltMCTPI2C_MasterWrite_NoMutex(request), -EINVAL);
}

TEST_F(I2cBus, BlocksThatAreNoMctpAreAcknowledgedAndIgnored) {
    EXPECT_EQ(write(2, "64 10 08 21 01 00 08 c9 00 80 02"), 0);  // command code
    EXPECT_EQ(write(2, "64 0f 09 21 01 00 08 c9 00 80 02"), 0);  // byte count too large
    EXPECT_EQ(write(2, "64 0f 07 21 01 00 08 c9 00 80 02"), 0);  // and too small
    EXPECT_EQ(write(2, "64 0f 00"), 0);
    EXPECT_EQ(write(2, "64"), 0);
    EXPECT_EQ(read(2), "error " + std::to_string(-ETIMEDOUT));
    EXPECT_EQ(statistics(2).packets, 0u);
}

TEST_F(I2cBus, AnswersToAnotherMasterDoNotReachTheBmc) {
    EXPECT_EQ(write(2, "64 0f 08 31 01 00 08 c9 00 80 02"), 0);
    EXPECT_EQ(read(2), "error " + std::to_string(-ETIMEDOUT));
}

TEST_F(I2cBus, DeviceBehindAnUnselectedChannelDoesNotAcknowledge) {
    EXPECT_EQ(exchange(2, 0x66, kGetEidPacket), "write " + std::to_string(-ENXIO));
    EXPECT_EQ(select(2, {0xE0, 1}), 0);
    EXPECT_EQ(exchange(2, 0x66, kGetEidPacket), "01 08 0a c1 00 00 02 00 0a 02 00");
    EXPECT_EQ(select(2, {0xE0, 2}), 0);
    EXPECT_EQ(exchange(2, 0x66, kGetEidPacket), "write " + std::to_string(-ENXIO));
}

TEST_F(I2cBus, MultiplexerBehindAMultiplexerNeedsBothHops) {
    EXPECT_EQ(select(2, {0xE0, 3, 0xE2, 7}), 0);
    EXPECT_EQ(exchange(2, 0x66, kGetEidPacket), "01 08 0b c1 00 00 02 00 0b 02 00");
    EXPECT_NE(select(2, {0xE2, 7}), 0);
    EXPECT_NE(select(2, {0xE0, 2, 0xE2, 7}), 0);
}

TEST_F(I2cBus, MuxSettingsThatDoNotExistAreRefused) {
    EXPECT_NE(select(2, {0xE0, 4}), 0);
    EXPECT_NE(select(2, {0xE4, 0}), 0);
    EXPECT_NE(select(3, {0xE0, 0}), 0);
    EXPECT_NE(select(9, {}), 0);
    EXPECT_NE(select(2, {0xE0, 1, 0xE0, 1, 0xE0, 1, 0xE0, 1, 0xE0, 1}), 0);
    EXPECT_EQ(select(3, {}), 0);
}

TEST_F(I2cBus, AnswerIsLostWhenTheChannelIsLeftTooEarly) {
    EXPECT_EQ(select(2, {0xE0, 1}), 0);
    EXPECT_EQ(send(2, 0x66, kGetEidPacket), 0);
    EXPECT_EQ(select(2, {0xE0, 2}), 0);
    EXPECT_EQ(receive(2), "error " + std::to_string(-ETIMEDOUT));
}

TEST_F(I2cBus, EndpointInfoCarriesTheMuxSetting) {
    const std::vector<sim::EndpointInfo>& all = board->endpoints();
    ASSERT_EQ(all.size(), 5u);
    const std::array<uint8_t, 48> none{};
    EXPECT_EQ(all[0].mux, none);
    EXPECT_EQ(std::vector<uint8_t>(all[2].mux.begin(), all[2].mux.begin() + 6),
              bytes("02 e0 03 e2 07 00"));
}

TEST_F(I2cBus, TellsAnObserverOfEveryPacketAndOfTheOneThatNobodyTakes) {
    std::vector<std::string> seen;
    board->observe_packets([&seen](const sim::Passing& passing) {
        seen.push_back((passing.direction == sim::Direction::kFromBmc ? "> " : "< ") +
                       std::to_string(passing.bus) + " " + std::to_string(passing.address) + " " +
                       (passing.taken ? "" : "refused ") + (passing.pec_good ? "" : "spoilt ") +
                       hex({passing.packet.begin(), passing.packet.end()}));
    });
    add_fault("a", R"({"kind": "bad_pec", "count": 1})");
    EXPECT_EQ(send(2, 0x70, kGetEidPacket), -ENXIO);
    EXPECT_EQ(send(2, 0x64, kGetEidPacket), 0);
    EXPECT_EQ(receive(2), "error " + std::to_string(-EBADMSG));
    const std::vector<std::string> wanted = {"> 2 112 refused 01 00 08 c9 00 80 02",
                                             "> 2 100 01 00 08 c9 00 80 02",
                                             "< 2 100 spoilt 01 08 09 c1 00 00 02 00 09 02 00"};
    EXPECT_EQ(seen, wanted);
    board->observe_packets(nullptr);
    EXPECT_EQ(exchange(2, 0x64, kGetEidPacket), "01 08 09 c1 00 00 02 00 09 02 00");
    EXPECT_EQ(seen.size(), wanted.size());
}

TEST_F(I2cBus, ChargesNineBitTimesAByte) {
    EXPECT_EQ(board->now_us(), 0u);
    EXPECT_EQ(write(2, kGetEid), 0);  // 11 bytes and the PEC at 100 kHz
    EXPECT_EQ(board->now_us(), 12 * 90u);
    EXPECT_EQ(read(2), kEidAnswer);  // 500 us later: the address, 14 bytes, the PEC
    EXPECT_EQ(board->now_us(), 12 * 90u + 500 + 16 * 90);
    const sim::BusStatistics bus = statistics(2);
    EXPECT_EQ(bus.packets, 2u);
    EXPECT_EQ(bus.bytes, 28u);
    EXPECT_EQ(bus.payload_bytes, 3u + 7);
    EXPECT_EQ(bus.busy_ns, 28 * 90'000u);
}

TEST_F(I2cBus, FasterClocksTakeLess) {
    EXPECT_EQ(exchange(3, 0x64, kGetEidPacket), "01 08 0c c1 00 00 02 00 0c 02 00");
    EXPECT_EQ(board->now_us(), 28 * 22'500u / 1000);
    EXPECT_EQ(statistics(3).busy_ns, 28 * 22'500u);
    const uint64_t before = board->now_us();
    EXPECT_EQ(exchange(5, 0x64, kGetEidPacket), "01 08 0d c1 00 00 02 00 0d 02 00");
    EXPECT_EQ(board->now_us() - before, 28 * 9u);
}

TEST_F(I2cBus, MissingAcknowledgeCostsTheAddressByte) {
    EXPECT_EQ(write(3, "70 0f 08 21 01 00 08 c9 00 80 02"), -ENXIO);
    EXPECT_EQ(statistics(3).bytes, 1u);
    EXPECT_EQ(statistics(3).busy_ns, 22'500u);
}

TEST_F(I2cBus, SelectingAChannelCostsTwoBytesOnce) {
    EXPECT_EQ(select(2, {0xE0, 1}), 0);
    EXPECT_EQ(select(2, {0xE0, 1}), 0);
    EXPECT_EQ(statistics(2).bytes, 2u);
    EXPECT_EQ(select(2, {}), 0);
    EXPECT_EQ(statistics(2).bytes, 4u);
}

TEST_F(I2cBus, ReadWaitsOneSecondByDefaultAndParamMillisecondsElse) {
    EXPECT_EQ(read(2), "error " + std::to_string(-ETIMEDOUT));
    EXPECT_EQ(board->now_us(), 1'000'000u);
    EXPECT_EQ(read(2, 250), "error " + std::to_string(-ETIMEDOUT));
    EXPECT_EQ(board->now_us(), 1'250'000u);
    EXPECT_EQ(read(2, 0x00010000), "error " + std::to_string(-ETIMEDOUT));
    EXPECT_EQ(board->now_us(), 2'250'000u);
}

TEST_F(I2cBus, QueuedBlocksKeepTheirOrder) {
    EXPECT_EQ(send(2, 0x64, "01 00 08 c9 00 81 02"), 0);
    EXPECT_EQ(send(2, 0x64, "01 00 08 ca 00 82 02"), 0);
    EXPECT_EQ(receive(2), "01 08 09 c1 00 01 02 00 09 02 00");
    EXPECT_EQ(receive(2), "01 08 09 c2 00 02 02 00 09 02 00");
}

TEST_F(I2cBus, QueueFileExistsForTheBmcsAddressOnTheBoardsBuses) {
    EXPECT_EQ(access("/sys/bus/i2c/devices/2-0010/mctp-slave-mqueue", F_OK), 0);
    EXPECT_EQ(access("/sys/bus/i2c/devices/5-0010/mctp-slave-mqueue", F_OK), 0);
    EXPECT_NE(access("/sys/bus/i2c/devices/4-0010/mctp-slave-mqueue", F_OK), 0);
    EXPECT_NE(access("/sys/bus/i2c/devices/2-0011/mctp-slave-mqueue", F_OK), 0);
    EXPECT_EQ(access("/", F_OK), 0);
}

TEST_F(I2cBus, ReadingTheQueueFileEmptiesTheQueueOfThatBus) {
    EXPECT_EQ(write(2, kGetEid), 0);
    EXPECT_EQ(send(3, 0x64, kGetEidPacket), 0);
    board->advance_us(5'000);
    EXPECT_EQ(system("cat /sys/bus/i2c/devices/2-0010/mctp-slave-mqueue"), 0);
    EXPECT_EQ(read(2), "error " + std::to_string(-ETIMEDOUT));
    EXPECT_EQ(receive(3), "01 08 0c c1 00 00 02 00 0c 02 00");
    EXPECT_NE(system("exit 3"), 0);
}

TEST_F(I2cBus, DrainLeavesWhatIsStillOnItsWay) {
    EXPECT_EQ(write(2, kGetEid), 0);
    EXPECT_EQ(system("cat /sys/bus/i2c/devices/2-0010/mctp-slave-mqueue"), 0);
    EXPECT_EQ(read(2), kEidAnswer);
}

TEST_F(I2cBus, QueueHoldsNoMoreThan256Blocks) {
    for (int i = 0; i < 300; ++i) {
        ASSERT_EQ(send(5, 0x64, kGetEidPacket), 0);
    }
    board->advance_us(1'000'000);
    int blocks = 0;
    while (read(5, 1) != "error " + std::to_string(-ETIMEDOUT)) {
        ++blocks;
    }
    EXPECT_EQ(blocks, 256);
}

TEST_F(I2cBus, BmcAddressAndChecksumAreAvailable) {
    uint8_t address = 0;
    EXPECT_EQ(GetBMCCtrAdd(&address), 0);
    EXPECT_EQ(address, 0x20);
    const std::vector<uint8_t> frame = bytes(kGetEid);
    EXPECT_EQ(CRC8Gen(frame.data(), static_cast<uint8_t>(frame.size())), 0xD8);
    EXPECT_EQ(CRC8Gen(frame.data(), 0), 0x00);
}

}  // namespace
