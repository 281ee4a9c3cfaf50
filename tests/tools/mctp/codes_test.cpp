// SPDX-License-Identifier: Apache-2.0
// Tests of the names that the MCTP standards give to types.
#include "tools/mctp/codes.h"

#include <gtest/gtest.h>

namespace {

TEST(MessageTypes, AreNamedWithoutTheIntegrityCheckBit) {
    EXPECT_EQ(tool::message_type_name(0x00), "control");
    EXPECT_EQ(tool::message_type_name(0x01), "pldm");
    EXPECT_EQ(tool::message_type_name(0x02), "ncsi");
    EXPECT_EQ(tool::message_type_name(0x84), "nvme-mi");
    EXPECT_EQ(tool::message_type_name(0x7E), "vendor-pci");
    EXPECT_EQ(tool::message_type_name(0x60), "unknown");
}

}  // namespace
