// SPDX-License-Identifier: Apache-2.0
// Byte strings of the simulated board: fields of either byte order, hex text, checksums.
#include "bytes.h"

#include <bit>

namespace sim {

void append(Bytes& out, ByteView more) {
    out.insert(out.end(), more.begin(), more.end());
}

void append_le16(Bytes& out, uint16_t value) {
    out.push_back(static_cast<uint8_t>(value));
    out.push_back(static_cast<uint8_t>(value >> 8));
}

void append_le32(Bytes& out, uint32_t value) {
    append_le16(out, static_cast<uint16_t>(value));
    append_le16(out, static_cast<uint16_t>(value >> 16));
}

void append_be16(Bytes& out, uint16_t value) {
    out.push_back(static_cast<uint8_t>(value >> 8));
    out.push_back(static_cast<uint8_t>(value));
}

void append_be32(Bytes& out, uint32_t value) {
    append_be16(out, static_cast<uint16_t>(value >> 16));
    append_be16(out, static_cast<uint16_t>(value));
}

void append_whole(Bytes& out, double value, size_t width) {
    const auto bits = static_cast<uint64_t>(static_cast<int64_t>(value));
    for (size_t i = 0; i < width; ++i)
        out.push_back(static_cast<uint8_t>(bits >> (8 * i)));
}

void append_real32(Bytes& out, double value) {
    append_le32(out, std::bit_cast<uint32_t>(static_cast<float>(value)));
}

uint16_t le16(ByteView bytes, size_t offset) {
    return static_cast<uint16_t>(bytes[offset] | bytes[offset + 1] << 8);
}

uint32_t le32(ByteView bytes, size_t offset) {
    return le16(bytes, offset) | static_cast<uint32_t>(le16(bytes, offset + 2)) << 16;
}

uint16_t be16(ByteView bytes, size_t offset) {
    return static_cast<uint16_t>(bytes[offset] << 8 | bytes[offset + 1]);
}

uint32_t be32(ByteView bytes, size_t offset) {
    return static_cast<uint32_t>(be16(bytes, offset)) << 16 | be16(bytes, offset + 2);
}

static int digit(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

std::optional<Bytes> from_hex(std::string_view text) {
    if (text.size() % 2 != 0)
        return std::nullopt;
    Bytes out;
    for (size_t i = 0; i < text.size(); i += 2) {
        int high = digit(text[i]);
        int low = digit(text[i + 1]);
        if (high < 0 || low < 0)
            return std::nullopt;
        out.push_back(static_cast<uint8_t>(high * 16 + low));
    }
    return out;
}

std::string to_hex(ByteView bytes) {
    static const char digits[] = "0123456789abcdef";
    std::string out;
    for (uint8_t byte : bytes) {
        out += digits[byte >> 4];
        out += digits[byte & 15];
    }
    return out;
}

std::string hex_byte(uint8_t value) {
    return "0x" + to_hex({&value, 1});
}

std::string bdf_text(const std::array<uint8_t, 3>& bdf) {
    return to_hex(ByteView(bdf).first(1)) + ":" + to_hex(ByteView(bdf).subspan(1, 1)) + "." +
           std::to_string(bdf[2]);
}

uint8_t smbus_pec(ByteView bytes) {
    unsigned crc = 0;
    for (uint8_t byte : bytes) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 0x80) != 0 ? (crc << 1 ^ 0x07) & 0xFF : crc << 1;
    }
    return static_cast<uint8_t>(crc);
}

uint32_t crc32(ByteView bytes) {
    uint32_t crc = ~0u;
    for (uint8_t byte : bytes) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 1) != 0 ? crc >> 1 ^ 0xEDB88320u : crc >> 1;
    }
    return ~crc;
}

}  // namespace sim
