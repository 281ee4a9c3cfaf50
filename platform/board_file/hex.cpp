// SPDX-License-Identifier: Apache-2.0
// Byte strings and the hex digits that stand for them in a board file.
#include "platform/board_file/hex.h"

namespace board_file {

static int digit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

std::optional<Bytes> from_hex(std::string_view text) {
    if (text.size() % 2 != 0) {
        return std::nullopt;
    }
    Bytes out;
    for (size_t i = 0; i < text.size(); i += 2) {
        const int high = digit(text[i]);
        const int low = digit(text[i + 1]);
        if (high < 0 || low < 0) {
            return std::nullopt;
        }
        out.push_back(static_cast<uint8_t>(high * 16 + low));
    }
    return out;
}

std::string to_hex(ByteView bytes) {
    static const char kDigits[] = "0123456789abcdef";
    std::string out;
    for (const uint8_t byte : bytes) {
        out += kDigits[byte >> 4];
        out += kDigits[byte & 15];
    }
    return out;
}

}  // namespace board_file
