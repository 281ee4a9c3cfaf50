// SPDX-License-Identifier: Apache-2.0
// Texts made fit for a terminal: what is shown as it is, and what in hex.
#include "common/printable.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "support/bytes.h"
#include "support/capture.h"

namespace {

using sideband::Printable;
using test::Bytes;
using test::hex;

std::string shown(const Bytes& text) {
    return Printable(std::span<const uint8_t>(text)).text();
}

std::string printed(const Bytes& text) {
    test::Capture capture;
    sideband::print_printable(text);
    std::fflush(stdout);
    return capture.text();
}

TEST(Printable, TextStaysAsItIs) {
    EXPECT_STREQ(Printable("22.40.1000 (rev B)").text(), "22.40.1000 (rev B)");
    EXPECT_STREQ(Printable("").text(), "");
    EXPECT_STREQ(Printable(static_cast<const char*>(nullptr)).text(), "");
}

TEST(Printable, EveryLoneByteIsShownOrIsAControl) {
    for (unsigned byte = 1; byte < 256; byte++) {
        const bool is_control = byte < 0x20 || (byte >= 0x7F && byte <= 0x9F);
        char in_hex[8];
        std::snprintf(in_hex, sizeof in_hex, "\\x%02x", byte);
        const std::string expected = is_control ? in_hex : std::string(1, static_cast<char>(byte));
        EXPECT_EQ(shown({static_cast<uint8_t>(byte)}), expected) << byte;
    }
}

TEST(Printable, ControlsInUtf8AreShownByTheirBytes) {
    EXPECT_EQ(shown(hex("C2 9B")), "\\xc2\\x9b");
    EXPECT_EQ(shown(hex("C2 A0")), "\xC2\xA0");
}

TEST(Printable, CharactersOfTwoToFourBytesStayInOnePiece) {
    EXPECT_EQ(shown(hex("C3 9F")), "\xC3\x9F");
    EXPECT_EQ(shown(hex("E2 82 AC")), "\xE2\x82\xAC");
    EXPECT_EQ(shown(hex("F0 9F 98 80")), "\xF0\x9F\x98\x80");
}

TEST(Printable, WhatIsNoCharacterIsTakenByteByByte) {
    EXPECT_EQ(shown(hex("E0 9B 80")), "\xE0\\x9b\\x80") << "a longer form";
    EXPECT_EQ(shown(hex("ED A0 80")), "\xED\xA0\\x80") << "a surrogate";
    EXPECT_EQ(shown(hex("F4 90 80 80")), "\xF4\\x90\\x80\\x80") << "above U+10FFFF";
    EXPECT_EQ(shown(hex("E2 82")), "\xE2\\x82") << "cut short";
    EXPECT_EQ(shown(hex("84 80 80 80")), "\\x84\\x80\\x80\\x80") << "no lead byte";
    EXPECT_EQ(shown(hex("F5 80 80 80")), "\xF5\\x80\\x80\\x80") << "one beyond the last";
}

TEST(Printable, EndsAtTheFirstNul) {
    EXPECT_EQ(shown(hex("41 00 42")), "A");
    EXPECT_EQ(printed(hex("41 00 42")), "A");
}

TEST(Printable, ALongTextIsCutAt255BytesAndPrintedWhole) {
    const Bytes controls(300, 0x07);
    EXPECT_EQ(shown(controls).size(), 255u * 4);
    EXPECT_EQ(printed(controls).size(), 300u * 4);
    EXPECT_EQ(printed(hex("41 1B 5B C3 9F")), "A\\x1b[\xC3\x9F");
}

}  // namespace
