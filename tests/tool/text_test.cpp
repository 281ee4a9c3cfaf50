// SPDX-License-Identifier: Apache-2.0
// Tests of the tool's text: hex and numbers as people type them, versions, tables.
#include "tools/text.h"

#include <gtest/gtest.h>

namespace {

using Bytes = std::vector<uint8_t>;

TEST(ParseHex, TakesPairsWithBlanksAndColonsBetweenThem) {
    EXPECT_EQ(tool::parse_hex("80 00:02fF"), (Bytes{0x80, 0x00, 0x02, 0xFF}));
    EXPECT_EQ(tool::parse_hex(""), Bytes{});
}

TEST(ParseHex, RefusesHalfPairsSignsAndLetters) {
    for (const char* text : {"8", "800", "8 0", "0g", "-1", "+1", "0x10", "80,00"}) {
        EXPECT_FALSE(tool::parse_hex(text)) << text;
    }
}

TEST(ParseNumber, TakesDecimalAndHexUpToTheMaximum) {
    EXPECT_EQ(tool::parse_number("255", 255), 255U);
    EXPECT_EQ(tool::parse_number("0xfe", 255), 254U);
    EXPECT_EQ(tool::parse_number("0XFE", 255), 254U);
    EXPECT_EQ(tool::parse_number("4294967295", 0xFFFFFFFF), 0xFFFFFFFF);
}

TEST(ParseNumber, RefusesWhatIsTooLargeOrNoNumber) {
    for (const char* text :
         {"256", "0x100", "4294967296", "", "0x", "-1", "+1", " 1", "1 ", "1x"}) {
        EXPECT_FALSE(tool::parse_number(text, 255)) << text;
    }
}

TEST(VersionText, ReadsBinaryCodedDecimalFields) {
    EXPECT_EQ(tool::version_text(0xF1F2F000), "1.2.0");
    EXPECT_EQ(tool::version_text(0xF1F2F361), "1.2.3a");
    EXPECT_EQ(tool::version_text(0x1072FF00), "10.72");
}

TEST(UuidText, GroupsTheDigits) {
    const Bytes uuid{0,    0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77,
                     0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF};
    EXPECT_EQ(tool::uuid_text(uuid), "00112233-4455-6677-8899-aabbccddeeff");
}

TEST(SecondsText, ShowsMicroseconds) {
    EXPECT_EQ(tool::seconds_text(0), "0.000000 s");
    EXPECT_EQ(tool::seconds_text(12000034), "12.000034 s");
}

TEST(Counted, AddsThePluralWhereItIsDue) {
    EXPECT_EQ(tool::counted(0, "EID"), "0 EIDs");
    EXPECT_EQ(tool::counted(1, "EID"), "1 EID");
}

TEST(OneLine, MakesEveryRunOfBlanksAndLineEndsOneBlank) {
    EXPECT_EQ(tool::one_line(" a\n\tb\r\n"), "a b");
    EXPECT_EQ(tool::one_line(""), "");
}

TEST(Printable, PutsDotsForControlCharacters) {
    EXPECT_EQ(tool::printable("a\x1b[2J\x7f\n"), "a.[2J..");
    EXPECT_EQ(tool::printable("\u009b1m \u00b0C"), ".1m \u00b0C");
}

TEST(Utf16Text, BecomesUtf8InEitherByteOrder) {
    EXPECT_EQ(tool::utf16_text(Bytes{0x00, 0x42, 0x00, 0xE9, 0x20, 0xAC}, true), "B\u00e9\u20ac");
    EXPECT_EQ(tool::utf16_text(Bytes{0x42, 0x00, 0x3D, 0xD8, 0x00, 0xDE}, false), "B\U0001f600");
}

TEST(Utf16Text, SurvivesHalfPairsAndOddLengths) {
    EXPECT_EQ(tool::utf16_text(Bytes{0xD8, 0x3D}, true), "?");
    EXPECT_EQ(tool::utf16_text(Bytes{0xDE, 0x00, 0x00, 0x41}, true), "?A");
    EXPECT_EQ(tool::utf16_text(Bytes{0xD8, 0x3D, 0x00, 0x41, 0x00}, true), "?A");
    EXPECT_EQ(tool::utf16_text({}, true), "");
}

TEST(Table, AlignsNumbersRightAndTextLeftWithoutTrailingBlanks) {
    tool::Table table({{"N", true}, {"NAME"}, {"LAST"}});
    table.add({"1", "a", "x"});
    table.add({"100", "long one"});
    EXPECT_EQ(table.text(), "  N  NAME      LAST\n  1  a         x\n100  long one\n");
}

TEST(Table, CountsCharactersNotBytesAndIndents) {
    tool::Table table({{"UNIT"}, {"B"}});
    table.add({"\u00b0C", "b"});
    EXPECT_EQ(table.text(2), "  UNIT  B\n  \u00b0C    b\n");
}

}  // namespace
