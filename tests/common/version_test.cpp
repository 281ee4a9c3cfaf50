// SPDX-License-Identifier: Apache-2.0
// The version that the library and its headers tell.
#include <gtest/gtest.h>
#include <sideband/version.h>

#include <string>

namespace {

TEST(Version, TheLibraryTellsThatOfItsHeaders) {
    EXPECT_STREQ(sideband_version(), SIDEBAND_VERSION_STRING);
}

TEST(Version, TextAndNumbersAreTheSame) {
    EXPECT_EQ(std::string(SIDEBAND_VERSION_STRING), std::to_string(SIDEBAND_VERSION_MAJOR) + "." +
                                                        std::to_string(SIDEBAND_VERSION_MINOR) +
                                                        "." +
                                                        std::to_string(SIDEBAND_VERSION_PATCH));
}

TEST(Version, NumbersCompareAsVersionsDo) {
    static_assert(SIDEBAND_VERSION_NUMBER(0, 1, 0) < SIDEBAND_VERSION_NUMBER(0, 1, 1));
    static_assert(SIDEBAND_VERSION_NUMBER(0, 1, 99) < SIDEBAND_VERSION_NUMBER(0, 2, 0));
    static_assert(SIDEBAND_VERSION_NUMBER(0, 99, 99) < SIDEBAND_VERSION_NUMBER(1, 0, 0));
    EXPECT_EQ(SIDEBAND_VERSION_CURRENT,
              SIDEBAND_VERSION_NUMBER(SIDEBAND_VERSION_MAJOR, SIDEBAND_VERSION_MINOR,
                                      SIDEBAND_VERSION_PATCH));
}

}  // namespace
