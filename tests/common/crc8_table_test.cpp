// SPDX-License-Identifier: Apache-2.0
// The exported table of the SMBus PEC.
#include <gtest/gtest.h>
#include <sideband/mctp.h>

#include <string>

#include "support/bytes.h"

namespace {

TEST(Crc8Table, HoldsTheCrcOfEachSingleByte) {
    EXPECT_EQ(CRC8_Table[0], 0x00);
    EXPECT_EQ(CRC8_Table[1], 0x07);
    EXPECT_EQ(CRC8_Table[2], 0x0E);
    EXPECT_EQ(CRC8_Table[0x80], 0x89);
    EXPECT_EQ(CRC8_Table[255], 0xF3);
    for (unsigned i = 0; i < 256; i++) {
        const auto byte = static_cast<uint8_t>(i);
        EXPECT_EQ(CRC8_Table[i], test::pec({&byte, 1})) << i;
    }
}

TEST(Crc8Table, GivesTheCheckValueOfTheAlgorithm) {
    uint8_t crc = 0;
    for (char c : std::string("123456789")) {
        crc = CRC8_Table[crc ^ static_cast<uint8_t>(c)];
    }
    EXPECT_EQ(crc, 0xF4);
}

}  // namespace
