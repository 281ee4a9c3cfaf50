// SPDX-License-Identifier: Apache-2.0
// Tests of the names of what stands in PDRs.
#include "tools/pldm/pdr_names.h"

#include <gtest/gtest.h>

namespace {

TEST(Entities, AreNamedWithWhatTheyAre) {
    EXPECT_EQ(tool::entity_type_name(93), "fan");
    EXPECT_EQ(tool::entity_type_name(0x8000 | 152), "logical GPU");
    EXPECT_EQ(tool::entity_type_name(250), "entity type 250");
    EXPECT_EQ(tool::entity_text(200, 1), "RJ45, 1");
    EXPECT_EQ(tool::entity_text(0x6001, 2), "OEM entity type 24577, 2");
}

}  // namespace
