// SPDX-License-Identifier: Apache-2.0
// Text that the commands share: hex, numbers on the command line, tables, versions, UUIDs.
#ifndef SIDEBAND_TOOLS_SHELL_TEXT_H
#define SIDEBAND_TOOLS_SHELL_TEXT_H

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tool {

/// Lower-case hex without separators.
std::string hex(std::span<const uint8_t> bytes);

/// The bytes of pairs of hex digits, with spaces or colons between pairs; empty on anything else.
std::optional<std::vector<uint8_t>> parse_hex(std::string_view text);

/// A decimal number, also if it begins with 0, or a hex number after 0x.
std::optional<uint64_t> parse_long_number(std::string_view text);

/// The same, of at most the given maximum.
std::optional<uint32_t> parse_number(std::string_view text, uint32_t maximum);

/// 16 bytes in the usual groups (RFC 4122).
std::string uuid_text(std::span<const uint8_t> uuid);

/// A ver32 (DSP0240, clause 8.3) such as 0xF1F2F000 as "1.2.0".
std::string version_text(uint32_t version);

/// Microseconds as seconds with six decimals.
std::string seconds_text(uint64_t microseconds);

/// "1 sensor", "2 sensors".
std::string counted(size_t count, std::string_view noun);

/// The text with every run of line ends and blanks made one blank.
std::string one_line(std::string_view text);

/// The lines of a text, without their ends.
std::vector<std::string> lines_of(const std::string& text);

/// Text of a device, a file or the command line, fit for a terminal: each control character (C0,
/// DEL, C1 as a lone byte and in UTF-8), separator of lines and mark that turns the direction of a
/// text is shown as \xNN, its bytes in lower-case hex. All else stays as it is, in UTF-8 and in ISO
/// 8859-1; what has been through this once comes through it unchanged.
std::string printable(std::string_view text);

/// As printable(), for text of several lines: their ends stay.
std::string printable_lines(std::string_view text);

/// A document in JSON, in UTF-8: what printable() would show as bytes stands as \uNNNN, which means
/// the same.
std::string printable_json_text(std::string_view text);

/// The text with each byte that is no part of a character in UTF-8 made U+FFFD.
std::string valid_utf8(std::string_view text);

/// UTF-16 as UTF-8. What is no character becomes a question mark.
std::string utf16_text(std::span<const uint8_t> bytes, bool big_endian);

/// What a cell tells at a glance, where there are colours.
enum class Tone : uint8_t { kPlain, kGood, kWarning, kBad, kFaint };

/// Rows in aligned columns, two blanks apart, under their titles. What a cell or a title holds is
/// made printable here, so that nothing in it can leave its place.
class Table {
public:
    struct Column {
        std::string title;
        bool right = false;  ///< aligned to the right, for numbers
    };

    explicit Table(std::vector<Column> columns);
    void add(std::vector<std::string> row);
    /// Gives a cell of the last row a tone.
    void tint(size_t column, Tone tone);
    /// @param indent   blanks before each line
    /// @param colours  whether tones become escape sequences, which nothing may make printable
    std::string text(size_t indent = 0, bool colours = false) const;

private:
    std::vector<Column> columns_;
    std::vector<std::vector<std::string>> rows_;
    std::map<std::pair<size_t, size_t>, Tone> tones_;  ///< by row and column
};

}  // namespace tool

#endif
