// SPDX-License-Identifier: Apache-2.0
// Tests of the names that the MCTP standards give to types.
#include "tools/mctp/codes.h"

#include <gtest/gtest.h>

namespace {

TEST(TypesOfEndpoints, AreNamedByTheirTwoLowestBits) {
    EXPECT_EQ(tool::endpoint_type_name(0), "simple endpoint");
    EXPECT_EQ(tool::endpoint_type_name(1), "bus owner or bridge");
    EXPECT_EQ(tool::endpoint_type_name(0xFD), "bus owner or bridge");
    EXPECT_EQ(tool::eid_type_name(0), "dynamic");
    EXPECT_EQ(tool::eid_type_name(3), "static, at another value");
    EXPECT_EQ(tool::routing_entry_type_name(2), "bridge");
}

}  // namespace
