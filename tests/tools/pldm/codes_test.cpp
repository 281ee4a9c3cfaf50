// SPDX-License-Identifier: Apache-2.0
// Tests of the names that the PLDM standards give to codes.
#include "tools/pldm/codes.h"

#include <gtest/gtest.h>

namespace {

TEST(SensorStates, AreNamedAsInTheStandard) {
    EXPECT_EQ(tool::operational_state_name(0), "enabled");
    EXPECT_EQ(tool::operational_state_name(7), "inTest");
    EXPECT_EQ(tool::numeric_state_name(10), "UpperFatal");
    EXPECT_EQ(tool::numeric_state_name(11), "reserved");
}

TEST(PldmTypes, AreNamedAsInTheStandard) {
    EXPECT_EQ(tool::pldm_type_name(0), "Messaging Control and Discovery");
    EXPECT_EQ(tool::pldm_type_name(5), "Firmware Update");
    EXPECT_EQ(tool::pldm_type_name(40), "reserved");
    EXPECT_EQ(tool::pldm_base_command_name(5), "GetPLDMCommands");
    EXPECT_EQ(tool::pldm_base_command_name(0x40), "unknown");
}

}  // namespace
