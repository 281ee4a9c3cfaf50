// SPDX-License-Identifier: Apache-2.0
// Texts of devices and packages, made fit for an operator's terminal and log.
#include "common/printable.h"

#include <algorithm>
#include <cstring>

#include "common/output.h"

namespace sideband {
namespace {

using Bytes = std::span<const uint8_t>;

constexpr size_t kCharacterSizeMax = 4;

/// Bytes that the lead byte of a UTF-8 character announces; 0: it is none.
size_t announced_size(uint8_t lead) {
    if (lead >= 0xC2 && lead <= 0xDF) {
        return 2;
    }
    if (lead >= 0xE0 && lead <= 0xEF) {
        return 3;
    }
    return lead >= 0xF0 && lead <= 0xF4 ? kCharacterSizeMax : 0;
}

bool continues(uint8_t byte) {
    return (byte & 0xC0) == 0x80;
}

/// Whether the second byte makes a character that has no shorter form, is no surrogate and not
/// above U+10FFFF (Unicode, table 3-7).
bool may_follow(uint8_t lead, uint8_t second) {
    switch (lead) {
        case 0xE0:
            return second >= 0xA0;
        case 0xED:
            return second <= 0x9F;
        case 0xF0:
            return second >= 0x90;
        case 0xF4:
            return second <= 0x8F;
        default:
            return true;
    }
}

/// Bytes of the character in front: one if it is not UTF-8.
size_t character_size(Bytes text) {
    const size_t size = announced_size(text[0]);
    if (size == 0 || size > text.size() || !may_follow(text[0], text[1]) ||
        !std::all_of(text.begin() + 1, text.begin() + static_cast<ptrdiff_t>(size), continues)) {
        return 1;
    }
    return size;
}

/// @param character  one byte, or a character in UTF-8
bool is_control(Bytes character) {
    constexpr uint8_t kFirstPrintable = 0x20;
    constexpr uint8_t kDelete = 0x7F;
    constexpr uint8_t kC1Last = 0x9F;
    const uint8_t first = character[0];
    if (character.size() == 1) {
        return first < kFirstPrintable || (first >= kDelete && first <= kC1Last);
    }
    return first == 0xC2 && character[1] <= kC1Last;
}

/// Takes the character in front.
/// @param to  receives it as it is shown
/// @return behind it
char* show_character(Bytes& text, char* to) {
    const Bytes character = text.first(character_size(text));
    text = text.subspan(character.size());
    if (!is_control(character)) {
        return std::copy(character.begin(), character.end(), to);
    }
    static constexpr char kDigits[] = "0123456789abcdef";
    for (const uint8_t byte : character) {
        *to++ = '\\';
        *to++ = 'x';
        *to++ = kDigits[byte >> 4];
        *to++ = kDigits[byte & 0x0F];
    }
    return to;
}

}  // namespace

Printable::Printable(Bytes text) {
    Bytes rest = text.first(std::min(text.size(), kTextMax));
    char* to = shown_.data();
    while (!rest.empty() && rest[0] != 0) {
        to = show_character(rest, to);
    }
    *to = '\0';
}

Printable::Printable(const char* text)
    : Printable(text == nullptr
                    ? Bytes()
                    : Bytes(reinterpret_cast<const uint8_t*>(text), strnlen(text, kTextMax))) {}

void print_printable(Bytes text) {
    constexpr size_t kShownCharacterSize = kCharacterSizeMax * 4;
    char shown[16 * kShownCharacterSize];
    while (!text.empty() && text[0] != 0) {
        char* end = shown;
        while (!text.empty() && text[0] != 0 && end <= shown + sizeof shown - kShownCharacterSize) {
            end = show_character(text, end);
        }
        print_bytes(shown, static_cast<size_t>(end - shown));
    }
}

}  // namespace sideband
