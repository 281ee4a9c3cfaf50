// SPDX-License-Identifier: Apache-2.0
// Heap buffers, and the clearing of an object.
#include "common/memory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "support/bytes.h"

namespace {

TEST(Memory, AnAllocatedBufferIsZero) {
    const auto bytes = sideband::allocate_bytes(100);
    ASSERT_NE(bytes, nullptr);
    EXPECT_TRUE(
        std::all_of(bytes.get(), bytes.get() + 100, [](uint8_t byte) { return byte == 0; }));
}

TEST(Memory, ACopyHasZerosBehindIt) {
    const test::Bytes bytes = test::hex("01 02 03");
    const auto copy = sideband::copy_bytes(bytes, 2);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(test::Bytes(copy.get(), copy.get() + 5), test::hex("01 02 03 00 00"));
    EXPECT_NE(sideband::copy_bytes({}, 0), nullptr) << "a block that can be freed, as of any size";
}

TEST(Memory, ClearZeroesTheObjectAndNothingElse) {
    struct alignas(8) Surrounded {
        uint64_t before = ~uint64_t{0};
        std::array<uint8_t, 48> object;
        uint64_t behind = ~uint64_t{0};
    } place;
    place.object.fill(0xA5);
    sideband::clear<sizeof place.object>(place.object.data());
    EXPECT_EQ(place.object, (std::array<uint8_t, 48>{}));
    EXPECT_EQ(place.before, ~uint64_t{0});
    EXPECT_EQ(place.behind, ~uint64_t{0});
}

}  // namespace
