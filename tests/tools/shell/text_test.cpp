// SPDX-License-Identifier: Apache-2.0
// Tests of the tool's text: hex and numbers as people type them, versions, tables.
#include "tools/shell/text.h"

#include <gtest/gtest.h>

#include "tests/tools/tool_runner.h"

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
    EXPECT_EQ(tool::parse_number("010", 255), 10U);
    EXPECT_EQ(tool::parse_number("0XFE", 255), 254U);
    EXPECT_EQ(tool::parse_number("4294967295", 0xFFFFFFFF), 0xFFFFFFFF);
}

TEST(ParseNumber, TakesLongOnesUpToSixtyFourBits) {
    EXPECT_EQ(tool::parse_long_number("18446744073709551615"), UINT64_MAX);
    EXPECT_FALSE(tool::parse_long_number("18446744073709551616"));
    EXPECT_FALSE(tool::parse_long_number("-1"));
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

TEST(Printable, ShowsControlCharactersInHex) {
    EXPECT_EQ(tool::printable("a\x1b[2J\x7f\n\t"), "a\\x1b[2J\\x7f\\x0a\\x09");
    EXPECT_EQ(tool::printable(std::string("a\0b", 3)), "a\\x00b");
    EXPECT_EQ(tool::printable("\x9b"
                              "1m"),
              "\\x9b1m");
    EXPECT_EQ(tool::printable("\u009b1m\u0080\u009f"), "\\xc2\\x9b1m\\xc2\\x80\\xc2\\x9f");
}

TEST(Printable, ShowsWhatTurnsATextAroundOrPartsItInHex) {
    EXPECT_EQ(tool::printable("a\u202egpj\u202c"), "a\\xe2\\x80\\xaegpj\\xe2\\x80\\xac");
    EXPECT_EQ(tool::printable("\u061c\u200e"), "\\xd8\\x9c\\xe2\\x80\\x8e");
    for (const char* text :
         {"\u061c", "\u200e", "\u200f", "\u2028", "\u2029", "\u202a", "\u202b", "\u202c", "\u202d",
          "\u202e", "\u2066", "\u2067", "\u2068", "\u2069"}) {
        EXPECT_TRUE(tool::printable(text).starts_with("\\x")) << text;
    }
    for (const char* text : {"\u061b", "\u061d", "\u200d", "\u2010", "\u2027", "\u202f", "\u2065",
                             "\u206a", "\u0640", "\u5c81", "\U0001d1c4"}) {
        EXPECT_EQ(tool::printable(text), text);
    }
}

TEST(Printable, LeavesWhatIsPrintableInUtf8AndLatin1) {
    for (const char* text : {"", "plain ~", "\u00a0\u00b0C", "\u20ac\u2e9b", "\U0001f600",
                             "\xb0"
                             "C",
                             "\xe9t\xe9", "a\\x1b"}) {
        EXPECT_EQ(tool::printable(text), text);
    }
}

TEST(Printable, TakesBytesThatAreNoWholeCharacterOneByOne) {
    EXPECT_EQ(tool::printable("\xe2\x82"), "\xe2\\x82");
    EXPECT_EQ(tool::printable("\xc2"), "\xc2");
    EXPECT_EQ(tool::printable("\xc1\x9b"), "\xc1\\x9b");
    // Longer forms of U+009B, a surrogate, and a number behind the last character.
    EXPECT_EQ(tool::printable("\xe0\x82\x9b"), "\xe0\\x82\\x9b");
    EXPECT_EQ(tool::printable("\xf0\x80\x82\x9b"), "\xf0\\x80\\x82\\x9b");
    EXPECT_EQ(tool::printable("\xed\xa0\x9b"), "\xed\xa0\\x9b");
    EXPECT_EQ(tool::printable("\xf4\x90\x80\x80"), "\xf4\\x90\\x80\\x80");
}

/// All texts of some bytes, of every kind that UTF-8 knows.
template <typename Take>
void for_all_texts(size_t length, const std::string& front, Take take) {
    take(front);
    if (length == 0) {
        return;
    }
    for (const char* byte : {"\x1b", "A", "\x7f", "\x80", "\x9b", "\xa0", "\xc1", "\xc2", "\xc3",
                             "\xe0", "\xe1", "\xe2", "\xed", "\xf0", "\xf4", "\xff"}) {
        for_all_texts(length - 1, front + byte, take);
    }
}

TEST(Printable, LeavesNothingThatATerminalWouldObeyAndIsTheSameTwice) {
    for_all_texts(4, "", [](const std::string& text) {
        const std::string shown = tool::printable(text);
        EXPECT_FALSE(tool_test::has_control(shown)) << tool::hex(Bytes(text.begin(), text.end()));
        EXPECT_EQ(tool::printable(shown), shown);
    });
}

TEST(PrintableLines, KeepsTheLineEndsAlone) {
    EXPECT_EQ(tool::printable_lines("a\x1b\n\n\tb"), "a\\x1b\n\n\\x09b");
    EXPECT_EQ(tool::printable_lines("\n"), "\n");
    EXPECT_EQ(tool::printable_lines(""), "");
    // A character does not go on in the next line.
    EXPECT_EQ(tool::printable_lines("\xe2\n\x82\x9b"), "\xe2\n\\x82\\x9b");
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

TEST(Table, KeepsWhatItHoldsInItsPlace) {
    tool::Table table({{"N\n"}, {"B"}});
    table.add({"a\nb", "\x1b[2J"});
    EXPECT_EQ(table.text(), "N\\x0a   B\na\\x0ab  \\x1b[2J\n");
}

TEST(Table, CountsCharactersNotBytesAndIndents) {
    tool::Table table({{"UNIT"}, {"B"}});
    table.add({"\u00b0C", "b"});
    EXPECT_EQ(table.text(2), "  UNIT  B\n  \u00b0C    b\n");
}

}  // namespace
