// SPDX-License-Identifier: Apache-2.0
// The names of state sets: the table as it is, and as a service may write it.
#include <gtest/gtest.h>
#include <sideband/pldm_monitor.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

#include "support/bytes.h"
#include "support/scripted_platform.h"

namespace {

using test::Bytes;

/// Looks up in a buffer that was full of other text, and checks that all of it was overwritten.
std::string name_of(uint16_t id) {
    test::Guarded name(32, 'x');
    auto* text = reinterpret_cast<char*>(name.data());
    lookup_state_set_string(id, text);
    EXPECT_TRUE(name.intact());
    const size_t length = strnlen(text, 32);
    EXPECT_TRUE(std::all_of(text + length, text + 32, [](char c) { return c == '\0'; }));
    return {text, length};
}

TEST(StateSets, TheTableHasEightEntriesInThisOrder) {
    const std::pair<uint16_t, std::string> wanted[] = {
        {1, "HEALTH_STATE"},         {2, "AVALIABILITY"},           {3, "PREDICTIVE_CONDITION"},
        {15, "CONFIGURATION_STATE"}, {16, "CHANGED_CONFIGURATION"}, {18, "VERSION"},
        {21, "THERMAL_TRIP"},        {257, "DEVICE_POWER_STATE"},
    };
    ASSERT_EQ(pldm_state_state_num, 8u);
    ASSERT_EQ(sizeof STATE_TABLE, 8u * 34);
    for (size_t i = 0; i < 8; i++) {
        EXPECT_EQ(STATE_TABLE[i].id, wanted[i].first);
        Bytes name(wanted[i].second.begin(), wanted[i].second.end());
        name.resize(32);
        EXPECT_EQ(std::memcmp(STATE_TABLE[i].name, name.data(), 32), 0) << i;
        EXPECT_EQ(name_of(wanted[i].first), wanted[i].second);
    }
}

TEST(StateSets, UnknownStateSetsHaveNoName) {
    for (uint16_t id : {0, 4, 14, 17, 19, 256, 258, 513, 65535}) {
        EXPECT_EQ(name_of(id), "") << id;
    }
}

TEST(StateSets, ANullBufferIsLeftAlone) {
    lookup_state_set_string(1, nullptr);
}

class StateSetsWritten : public test::PlatformTest {
protected:
    StateSetsWritten() { std::copy(std::begin(STATE_TABLE), std::end(STATE_TABLE), before_); }
    ~StateSetsWritten() override { std::copy(before_, before_ + 8, std::begin(STATE_TABLE)); }

private:
    pldm_state_set before_[8];
};

TEST_F(StateSetsWritten, NamesOfAServiceAreFound) {
    STATE_TABLE[7].id = 0x8001;
    std::memset(STATE_TABLE[7].name, 0, 32);
    std::memcpy(STATE_TABLE[7].name, "OWN", 3);
    EXPECT_EQ(name_of(0x8001), "OWN");
    EXPECT_EQ(name_of(257), "");
}

TEST_F(StateSetsWritten, TheFirstOfEqualIdsIsTaken) {
    STATE_TABLE[5].id = 2;
    EXPECT_EQ(name_of(2), "AVALIABILITY");
}

TEST_F(StateSetsWritten, ANameWithoutAnEndIsCutAtThirtyOneCharacters) {
    std::memset(STATE_TABLE[0].name, 'N', 32);
    EXPECT_EQ(name_of(1), std::string(31, 'N'));
}

}  // namespace
