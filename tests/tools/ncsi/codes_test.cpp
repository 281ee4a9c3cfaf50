// SPDX-License-Identifier: Apache-2.0
// Tests of the names that NC-SI gives to codes.
#include "tools/ncsi/codes.h"

#include <gtest/gtest.h>

namespace {

TEST(NcsiNames, AreThoseOfTheStandard) {
    EXPECT_EQ(tool::ncsi_speed_name(0x01), "10BASE-T half-duplex");
    EXPECT_EQ(tool::ncsi_speed_name(0x07), "1000BASE-T full-duplex");
    EXPECT_EQ(tool::ncsi_speed_name(0x0D), "100 Gbps");
    EXPECT_EQ(tool::ncsi_speed_name(0x0E), "2.5 Gbps");
    EXPECT_EQ(tool::ncsi_speed_name(0x0F), "5 Gbps");
    EXPECT_EQ(tool::ncsi_speed_name(0x14), "speed 0x14");
    EXPECT_EQ(tool::ncsi_speed_name(0xFF), "speed 0xff");
    EXPECT_EQ(tool::ncsi_response_name(0x0005), "reserved");
    EXPECT_EQ(tool::ncsi_response_name(0xFFFF), "vendor specific");
    EXPECT_EQ(tool::ncsi_reason_name(0x0001), "Interface Initialization Required");
    EXPECT_EQ(tool::ncsi_reason_name(0x0B07), "VLAN Tag Is Invalid");
    EXPECT_EQ(tool::ncsi_reason_name(0x0B08), "command specific");
    EXPECT_EQ(tool::ncsi_reason_name(0x000A), "Secondary Device Not Powered");
    EXPECT_EQ(tool::ncsi_reason_name(0x000B), "reserved");
    EXPECT_EQ(tool::ncsi_reason_name(0x8000), "vendor specific");
}

}  // namespace
