// SPDX-License-Identifier: Apache-2.0
// Heap buffers, and the clearing of a buffer.
#include "common/memory.h"

#include <gtest/gtest.h>

#include <algorithm>

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

TEST(Memory, ZeroClearsTheBufferAndNothingElse) {
    for (const size_t size : {0u, 1u, 7u, 128u}) {
        test::Guarded buffer(size);
        sideband::zero({buffer.data(), buffer.size()});
        EXPECT_EQ(buffer.head(size), test::Bytes(size));
        EXPECT_TRUE(buffer.intact());
    }
}

}  // namespace
