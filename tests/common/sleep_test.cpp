// SPDX-License-Identifier: Apache-2.0
// The pause.
#include "common/sleep.h"

#include <gtest/gtest.h>

#include <chrono>

namespace {

TEST(Sleep, LastsAsLongAsIsSaid) {
    const auto start = std::chrono::steady_clock::now();
    sideband::sleep_us(20000);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(20));
}

}  // namespace
