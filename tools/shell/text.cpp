// SPDX-License-Identifier: Apache-2.0
// Text that the commands share: hex, numbers on the command line, tables, versions, UUIDs.
#include "tools/shell/text.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <sstream>

namespace tool {
namespace {

std::optional<uint64_t> parse_digits(std::string_view text, int base) {
    uint64_t value = 0;
    const char* end = text.data() + text.size();
    const std::from_chars_result result = std::from_chars(text.data(), end, value, base);
    if (result.ec != std::errc() || result.ptr != end) {
        return std::nullopt;
    }
    return value;
}

/// Characters that a terminal shows: UTF-8 continuation bytes take no room.
size_t width(const std::string& text) {
    return static_cast<size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

/// One field of a ver32: one binary-coded digit after an F, else two.
std::string version_field(uint8_t field) {
    if ((field & 0xF0) == 0xF0) {
        return fmt::format("{}", field & 0x0F);
    }
    return fmt::format("{:x}", field);
}

void append_utf8(uint32_t point, std::string& text) {
    if (point < 0x80) {
        text += static_cast<char>(point);
        return;
    }
    const int trailing = point < 0x800 ? 1 : point < 0x10000 ? 2 : 3;
    constexpr uint8_t kLeads[] = {0, 0xC0, 0xE0, 0xF0};
    text += static_cast<char>(kLeads[trailing] | point >> (6 * trailing));
    for (int left = trailing - 1; left >= 0; --left) {
        text += static_cast<char>(0x80 | (point >> (6 * left) & 0x3F));
    }
}

/// The bytes that may follow the lead byte of a UTF-8 character of several bytes (Unicode, table
/// 3-7): the first of them is narrower if a shorter form, a surrogate or no character would be.
struct Utf8Shape {
    uint8_t lead_first;
    uint8_t lead_last;
    uint8_t size;
    uint8_t second_first;
    uint8_t second_last;
};

constexpr Utf8Shape kUtf8Shapes[] = {
    {0xC2, 0xDF, 2, 0x80, 0xBF}, {0xE0, 0xE0, 3, 0xA0, 0xBF}, {0xE1, 0xEC, 3, 0x80, 0xBF},
    {0xED, 0xED, 3, 0x80, 0x9F}, {0xEE, 0xEF, 3, 0x80, 0xBF}, {0xF0, 0xF0, 4, 0x90, 0xBF},
    {0xF1, 0xF3, 4, 0x80, 0xBF}, {0xF4, 0xF4, 4, 0x80, 0x8F},
};

bool is_in(char c, uint8_t first, uint8_t last) {
    const auto byte = static_cast<uint8_t>(c);
    return byte >= first && byte <= last;
}

/// Bytes of the character in front: one if it is not UTF-8.
size_t character_size(std::string_view text) {
    for (const Utf8Shape& shape : kUtf8Shapes) {
        if (!is_in(text[0], shape.lead_first, shape.lead_last) || text.size() < shape.size) {
            continue;
        }
        const std::string_view rest = text.substr(2, shape.size - 2U);
        const bool whole =
            is_in(text[1], shape.second_first, shape.second_last) &&
            std::all_of(rest.begin(), rest.end(), [](char c) { return is_in(c, 0x80, 0xBF); });
        return whole ? shape.size : 1;
    }
    return 1;
}

/// @param character  in UTF-8, of at most three bytes
uint32_t code_point(std::string_view character) {
    constexpr uint8_t kLeadBits[] = {0x7F, 0x1F, 0x0F};
    uint32_t point = static_cast<uint8_t>(character[0]) & kLeadBits[character.size() - 1];
    for (const char byte : character.substr(1)) {
        point = point << 6 | (byte & 0x3FU);
    }
    return point;
}

/// Separators of lines and paragraphs, and what turns the direction of a text (Unicode, Annex 9):
/// with them a name can look like another one, or like two.
struct CodePoints {
    uint32_t first;
    uint32_t last;
};

constexpr CodePoints kMisleading[] = {
    {0x061C, 0x061C}, {0x200E, 0x200F}, {0x2028, 0x202E}, {0x2066, 0x2069}};

/// @param character  one byte, or a character in UTF-8
bool is_misleading(std::string_view character) {
    constexpr size_t kLongest = 3;
    const uint32_t point = character.size() <= kLongest ? code_point(character) : 0;
    return std::any_of(
        std::begin(kMisleading), std::end(kMisleading),
        [point](const CodePoints& range) { return point >= range.first && point <= range.last; });
}

/// @param character  one byte, or a character in UTF-8
bool is_control(std::string_view character) {
    constexpr uint8_t kC1First = 0x80;
    constexpr uint8_t kC1Last = 0x9F;
    if (character.size() == 1) {
        return is_in(character[0], 0, 0x1F) || is_in(character[0], 0x7F, kC1Last);
    }
    return is_in(character[0], 0xC2, 0xC2) && is_in(character[1], kC1First, kC1Last);
}

/// A text between the escape sequences of a colour (ECMA-48, SGR) and of its end.
std::string coloured(const std::string& text, Tone tone) {
    const auto code = [tone] {
        switch (tone) {
            case Tone::kGood:
                return "32";  // green
            case Tone::kWarning:
                return "33";  // yellow
            case Tone::kBad:
                return "31";  // red
            default:
                return "2";  // faint
        }
    };
    return tone == Tone::kPlain ? text : fmt::format("\x1b[{}m{}\x1b[0m", code(), text);
}

}  // namespace

std::string hex(std::span<const uint8_t> bytes) {
    std::string text;
    for (uint8_t byte : bytes) {
        text += fmt::format("{:02x}", byte);
    }
    return text;
}

std::optional<std::vector<uint8_t>> parse_hex(std::string_view text) {
    std::vector<uint8_t> bytes;
    size_t at = 0;
    while (at < text.size()) {
        if (text[at] == ' ' || text[at] == ':') {
            ++at;
            continue;
        }
        const std::optional<uint64_t> byte = parse_digits(text.substr(at, 2), 16);
        if (at + 2 > text.size() || !byte) {
            return std::nullopt;
        }
        bytes.push_back(static_cast<uint8_t>(*byte));
        at += 2;
    }
    return bytes;
}

std::optional<uint64_t> parse_long_number(std::string_view text) {
    const bool is_hex = text.starts_with("0x") || text.starts_with("0X");
    return is_hex ? parse_digits(text.substr(2), 16) : parse_digits(text, 10);
}

std::optional<uint32_t> parse_number(std::string_view text, uint32_t maximum) {
    const std::optional<uint64_t> value = parse_long_number(text);
    if (!value || *value > maximum) {
        return std::nullopt;
    }
    return static_cast<uint32_t>(*value);
}

std::string uuid_text(std::span<const uint8_t> uuid) {
    std::string text = hex(uuid);
    for (size_t at : {20, 16, 12, 8}) {
        text.insert(at, "-");
    }
    return text;
}

std::string version_text(uint32_t version) {
    const uint8_t update = static_cast<uint8_t>(version >> 8);
    const uint8_t alpha = static_cast<uint8_t>(version);
    std::string text = version_field(static_cast<uint8_t>(version >> 24)) + "." +
                       version_field(static_cast<uint8_t>(version >> 16));
    if (update != 0xFF) {
        text += "." + version_field(update);
    }
    if (alpha > 0x20 && alpha < 0x7F) {
        text += static_cast<char>(alpha);
    }
    return text;
}

std::string seconds_text(uint64_t microseconds) {
    return fmt::format("{}.{:06} s", microseconds / 1000000, microseconds % 1000000);
}

std::string counted(size_t count, std::string_view noun) {
    return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

std::string one_line(std::string_view text) {
    std::string line;
    for (char c : text) {
        const bool blank = c == '\n' || c == '\r' || c == '\t' || c == ' ';
        if (!blank) {
            line += c;
        } else if (!line.empty() && line.back() != ' ') {
            line += ' ';
        }
    }
    while (!line.empty() && line.back() == ' ') {
        line.pop_back();
    }
    return line;
}

std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::string printable(std::string_view text) {
    std::string shown;
    while (!text.empty()) {
        const std::string_view character = text.substr(0, character_size(text));
        text.remove_prefix(character.size());
        if (!is_control(character) && !is_misleading(character)) {
            shown += character;
            continue;
        }
        for (char byte : character) {
            shown += fmt::format("\\x{:02x}", static_cast<uint8_t>(byte));
        }
    }
    return shown;
}

std::string printable_lines(std::string_view text) {
    std::string shown;
    for (size_t end = text.find('\n'); end != std::string_view::npos; end = text.find('\n')) {
        shown += printable(text.substr(0, end)) + "\n";
        text.remove_prefix(end + 1);
    }
    return shown + printable(text);
}

std::string printable_json_text(std::string_view text) {
    std::string shown;
    while (!text.empty()) {
        const std::string_view character = text.substr(0, character_size(text));
        text.remove_prefix(character.size());
        const bool stays =
            character == "\n" || (!is_control(character) && !is_misleading(character));
        shown += stays ? std::string(character) : fmt::format("\\u{:04x}", code_point(character));
    }
    return shown;
}

std::string valid_utf8(std::string_view text) {
    std::string valid;
    while (!text.empty()) {
        const std::string_view character = text.substr(0, character_size(text));
        text.remove_prefix(character.size());
        const bool lone = character.size() == 1 && is_in(character[0], 0x80, 0xFF);
        valid += lone ? std::string_view("\xEF\xBF\xBD") : character;
    }
    return valid;
}

std::string utf16_text(std::span<const uint8_t> bytes, bool big_endian) {
    const auto unit_at = [&](size_t at) {
        return static_cast<uint32_t>(bytes[at + (big_endian ? 0 : 1)] << 8 |
                                     bytes[at + (big_endian ? 1 : 0)]);
    };
    std::string text;
    for (size_t at = 0; at + 2 <= bytes.size(); at += 2) {
        uint32_t point = unit_at(at);
        const bool high = point >= 0xD800 && point < 0xDC00;
        const uint32_t low = high && at + 4 <= bytes.size() ? unit_at(at + 2) : 0;
        if (low >= 0xDC00 && low < 0xE000) {
            point = 0x10000 + ((point - 0xD800) << 10 | (low - 0xDC00));
            at += 2;
        }
        append_utf8(point >= 0xD800 && point < 0xE000 ? '?' : point, text);
    }
    return text;
}

Table::Table(std::vector<Column> columns) : columns_(std::move(columns)) {
    for (Column& column : columns_) {
        column.title = printable(column.title);
    }
}

void Table::add(std::vector<std::string> row) {
    row.resize(columns_.size());
    std::transform(row.begin(), row.end(), row.begin(), printable);
    rows_.push_back(std::move(row));
}

void Table::tint(size_t column, Tone tone) {
    tones_[{rows_.size() - 1, column}] = tone;
}

std::string Table::text(size_t indent, bool colours) const {
    std::vector<std::vector<std::string>> lines(1);
    std::vector<size_t> widths;
    for (const Column& column : columns_) {
        lines[0].push_back(column.title);
        widths.push_back(width(column.title));
    }
    lines.insert(lines.end(), rows_.begin(), rows_.end());
    for (const std::vector<std::string>& line : lines) {
        for (size_t i = 0; i < line.size(); ++i) {
            widths[i] = std::max(widths[i], width(line[i]));
        }
    }
    std::string text;
    for (size_t row = 0; row < lines.size(); ++row) {
        const std::vector<std::string>& line = lines[row];
        std::string shown(indent, ' ');
        for (size_t i = 0; i < line.size(); ++i) {
            const std::string room(widths[i] - width(line[i]), ' ');
            // The titles stand above the first row.
            const auto tone = colours && row > 0 ? tones_.find({row - 1, i}) : tones_.end();
            const std::string cell =
                tone == tones_.end() ? line[i] : coloured(line[i], tone->second);
            shown += columns_[i].right ? room + cell : cell + room;
            shown += "  ";
        }
        shown.erase(shown.find_last_not_of(' ') + 1);
        text += shown + "\n";
    }
    return text;
}

}  // namespace tool
