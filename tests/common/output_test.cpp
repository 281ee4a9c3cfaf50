// SPDX-License-Identifier: Apache-2.0
// Text for standard output: every conversion as printf() has it, in pieces larger than the room.
#include "common/output.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <functional>
#include <numeric>
#include <string>

#include "support/bytes.h"
#include "support/capture.h"

namespace {

using sideband::Output;

std::string printed(const std::function<void()>& call) {
    test::Capture capture;
    call();
    std::fflush(stdout);
    return capture.text();
}

TEST(Output, NumbersAreThoseOfPrintf) {
    for (int value : {0, 1, 9, 10, 15, 16, 255, 4096, 1234567890, INT_MAX, -1, -10, INT_MIN}) {
        char expected[64];
        std::snprintf(expected, sizeof expected, "<%d %u %x>", value, static_cast<unsigned>(value),
                      static_cast<unsigned>(value));
        EXPECT_EQ(printed([value] {
                      sideband::print("<%d %u %x>", value, static_cast<unsigned>(value),
                                      static_cast<unsigned>(value));
                  }),
                  expected);
    }
}

TEST(Output, TextsOfAnyLengthComeWholeAndInOrder) {
    for (size_t length : {0u, 1u, 254u, 255u, 256u, 257u, 1021u}) {
        const std::string text(length, 'x');
        EXPECT_EQ(printed([&text] { sideband::print("a%sb%sc", text.c_str(), text.c_str()); }),
                  "a" + text + "b" + text + "c")
            << length;
    }
    EXPECT_EQ(printed([] { sideband::print("%s", ""); }), "");
}

TEST(Output, WhatIsGatheredComesOutAtTheEnd) {
    EXPECT_EQ(printed([] {
                  Output out;
                  out.print("second %s", "line");
                  out.print_line("");
                  std::puts("first");
                  out.print("%u\n", 3u);
              }),
              "first\nsecond line\n3\n");
}

TEST(Output, HexIsWithOneDigitOrTwo) {
    test::Bytes bytes(256);
    std::iota(bytes.begin(), bytes.end(), uint8_t{0});
    std::string one;
    std::string two;
    for (const uint8_t byte : bytes) {
        char text[8];
        std::snprintf(text, sizeof text, " %x", byte);
        one += text;
        std::snprintf(text, sizeof text, " %02x", byte);
        two += text;
    }
    EXPECT_EQ(printed([&bytes] {
                  Output out;
                  out.print_hex(bytes);
                  out.print("|");
                  out.print_hex(bytes, true);
              }),
              one + "|" + two);
}

TEST(Output, RowsHaveSixteenBytesAndEndInALineEnd) {
    for (size_t count : {0u, 1u, 15u, 16u, 17u, 32u, 300u}) {
        std::string expected;
        for (size_t i = 0; i < count; ++i) {
            expected += i != 0 && i % 16 == 0 ? "\n a5" : " a5";
        }
        EXPECT_EQ(printed([count] {
                      Output out;
                      out.print_rows(test::Bytes(count, 0xA5));
                  }),
                  expected + "\n")
            << count;
    }
}

TEST(Output, LineEndsBeyondTheRoomComeToo) {
    EXPECT_EQ(printed([] {
                  Output out;
                  for (int i = 0; i < 300; ++i) {
                      out.print_line("");
                  }
              }),
              std::string(300, '\n'));
}

}  // namespace
