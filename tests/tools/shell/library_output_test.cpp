// SPDX-License-Identifier: Apache-2.0
// Tests of how what the library prints reaches the terminal.
#include "tools/shell/library_output.h"

#include <gtest/gtest.h>

namespace {

/// What reaches standard error of what a function prints.
template <typename Print>
std::string shown(Print print) {
    ::testing::internal::CaptureStderr();
    {
        tool::LibraryOutput output;
        output.show();
        print(output);
    }
    return ::testing::internal::GetCapturedStderr();
}

TEST(LibraryOutput, IsShownWithItsLines) {
    EXPECT_EQ(shown([](tool::LibraryOutput&) {
                  std::printf("===== dump (%d) =====\n", 2);
                  std::puts(" 00 01");
                  std::putchar('\n');
              }),
              "===== dump (2) =====\n 00 01\n\n");
}

TEST(LibraryOutput, HasNoControlCharactersBesideLineEnds) {
    EXPECT_EQ(shown([](tool::LibraryOutput&) {
                  std::printf(
                      "part \x1b[31m\x07 \x9b"
                      "2J \xc2\x9b"
                      "2J caf\xc3\xa9\x7f\n");
              }),
              "part \\x1b[31m\\x07 \\x9b2J \\xc2\\x9b2J caf\xc3\xa9\\x7f\n");
}

TEST(LibraryOutput, EndsALineThatTheLibraryHasNotEnded) {
    EXPECT_EQ(shown([](tool::LibraryOutput& output) {
                  std::printf("=====");
                  output.end_line();
                  output.end_line();
                  std::fputs("error\n", stderr);
                  std::printf("rest");
              }),
              "=====\nerror\nrest\n");
}

TEST(LibraryOutput, LeavesTheStreamAsItWas) {
    FILE* const before = stdout;
    shown([before](tool::LibraryOutput&) { EXPECT_NE(stdout, before); });
    EXPECT_EQ(stdout, before);
}

}  // namespace
