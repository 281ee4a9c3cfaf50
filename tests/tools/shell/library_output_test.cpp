// SPDX-License-Identifier: Apache-2.0
// Tests of how what the library prints reaches the terminal.
#include "tools/shell/library_output.h"

#include <gtest/gtest.h>
#include <sideband/mctp.h>
#include <sideband/output.h>

#include <cstdio>
#include <string_view>

namespace {

/// Prints as the library does.
void print(tool::LibraryOutput& output, std::string_view text) {
    tool::LibraryOutput::take(&output, SIDEBAND_OUTLET_PRINTED, text.data(), text.size());
}

/// What reaches standard error of what a function prints.
template <typename Print>
std::string shown(Print print_something) {
    ::testing::internal::CaptureStderr();
    {
        tool::LibraryOutput output;
        output.show();
        print_something(output);
    }
    return ::testing::internal::GetCapturedStderr();
}

TEST(LibraryOutput, IsShownWithItsLines) {
    EXPECT_EQ(shown([](tool::LibraryOutput& output) {
                  print(output, "===== dump (2) =====\n 00");
                  print(output, " 01\n\n");
              }),
              "===== dump (2) =====\n 00 01\n\n");
}

TEST(LibraryOutput, HasNoControlCharactersBesideLineEnds) {
    EXPECT_EQ(shown([](tool::LibraryOutput& output) {
                  print(output,
                        "part \x1b[31m\x07 \x9b"
                        "2J \xc2\x9b"
                        "2J caf\xc3\xa9\x7f\n");
              }),
              "part \\x1b[31m\\x07 \\x9b2J \\xc2\\x9b2J caf\xc3\xa9\\x7f\n");
}

TEST(LibraryOutput, EndsALineThatTheLibraryHasNotEnded) {
    EXPECT_EQ(shown([](tool::LibraryOutput& output) {
                  print(output, "=====");
                  output.end_line();
                  output.end_line();
                  std::fputs("error\n", stderr);
                  print(output, "rest");
              }),
              "=====\nerror\nrest\n");
}

TEST(LibraryOutput, TakesWhatTheLibraryPrintsAndDropsItUntilItIsShown) {
    const uint8_t packet[] = {0x01, 0x08};
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(shown([&packet](tool::LibraryOutput&) { dump_packets(2, packet); }),
              "[transport/mctp:42] Dumping Packets....\n===== mctp payload packets(len: "
              "2)=====\n 01 08\n===========================\n");
    {
        const tool::LibraryOutput hidden;
        dump_packets(2, packet);
    }
    std::fflush(stdout);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
}

}  // namespace
