// SPDX-License-Identifier: Apache-2.0
// Tests of the names of state sets and of their states.
#include "tools/pldm/pdr_names.h"

#include <gtest/gtest.h>

namespace {

TEST(States, AreNamedWhereTheSetIsKnown) {
    EXPECT_EQ(tool::state_name(1, 3), "Critical");
    EXPECT_EQ(tool::state_name(13, 1), "Present");
    EXPECT_EQ(tool::state_name(21, 2), "Thermal Trip");
    EXPECT_EQ(tool::state_name(33, 2), "Disconnected");
    EXPECT_EQ(tool::state_name(15, 4), "Missing Configuration");
    EXPECT_EQ(tool::state_name(20, 2), "Initialization In Progress");
    EXPECT_EQ(tool::state_name(1, 99), "");
    EXPECT_EQ(tool::state_name(999, 1), "");
}

TEST(StateSets, AreNamedByTheLibraryFirst) {
    EXPECT_EQ(tool::state_set_name(1), "HEALTH_STATE");
    EXPECT_EQ(tool::state_set_name(4), "Redundancy Status");
    EXPECT_EQ(tool::state_set_name(22), "Leak Detection");
    EXPECT_EQ(tool::state_set_name(32), "Heartbeat");
    EXPECT_EQ(tool::state_set_name(34), "state set 34");
    EXPECT_EQ(tool::state_set_name(0x8001), "OEM state set 32769");
}

}  // namespace
