// SPDX-License-Identifier: Apache-2.0
// Tests of the names that PLDM firmware update gives to codes.
#include "tools/update/codes.h"

#include <gtest/gtest.h>

namespace {

TEST(FirmwareCommands, AreNamedAsInTheStandard) {
    EXPECT_EQ(tool::pldm_firmware_command_name(0x15), "RequestFirmwareData");
    EXPECT_EQ(tool::pldm_firmware_command_name(0x40), "unknown");
}

}  // namespace
