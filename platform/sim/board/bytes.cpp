// SPDX-License-Identifier: Apache-2.0
// Byte strings of the simulated board: fields of either byte order, hex text, checksums.
#include "sim/board/bytes.h"

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
    for (size_t i = 0; i < width; ++i) {
        out.push_back(static_cast<uint8_t>(bits >> (8 * i)));
    }
}

void append_real32(Bytes& out, double value) {
    append_le32(out, std::bit_cast<uint32_t>(static_cast<float>(value)));
}

void put_le(Bytes& out, size_t offset, uint64_t value, size_t width) {
    for (size_t i = 0; i < width; ++i) {
        out[offset + i] = static_cast<uint8_t>(value >> (8 * i));
    }
}

void put_text(Bytes& out, size_t offset, std::string_view text, size_t width) {
    for (size_t i = 0; i < width; ++i) {
        out[offset + i] = i < text.size() ? static_cast<uint8_t>(text[i]) : ' ';
    }
}

uint16_t le16(ByteView bytes, size_t offset) {
    return static_cast<uint16_t>(bytes[offset] | bytes[offset + 1] << 8);
}

uint32_t le32(ByteView bytes, size_t offset) {
    return le16(bytes, offset) | static_cast<uint32_t>(le16(bytes, offset + 2)) << 16;
}

uint64_t le64(ByteView bytes, size_t offset) {
    return le32(bytes, offset) | static_cast<uint64_t>(le32(bytes, offset + 4)) << 32;
}

uint16_t be16(ByteView bytes, size_t offset) {
    return static_cast<uint16_t>(bytes[offset] << 8 | bytes[offset + 1]);
}

uint32_t be32(ByteView bytes, size_t offset) {
    return static_cast<uint32_t>(be16(bytes, offset)) << 16 | be16(bytes, offset + 2);
}

std::string hex_byte(uint8_t value) {
    return "0x" + to_hex({&value, 1});
}

std::string bdf_text(const std::array<uint8_t, 3>& bdf) {
    return to_hex(ByteView(bdf).first(1)) + ":" + to_hex(ByteView(bdf).subspan(1, 1)) + "." +
           std::to_string(bdf[2]);
}

/// What each byte makes of a checksum of 8 bits.
static constexpr std::array<uint8_t, 256> pec_table() {
    std::array<uint8_t, 256> table{};
    for (unsigned byte = 0; byte < table.size(); ++byte) {
        unsigned crc = byte;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 0x80) != 0 ? (crc << 1 ^ 0x07) & 0xFF : crc << 1;
        }
        table[byte] = static_cast<uint8_t>(crc);
    }
    return table;
}

uint8_t smbus_pec(ByteView bytes) {
    static constexpr auto kTable = pec_table();
    uint8_t crc = 0;
    for (uint8_t byte : bytes) {
        crc = kTable[crc ^ byte];
    }
    return crc;
}

using Crc32Table = std::array<uint32_t, 256>;

/// What each byte makes of a reflected checksum. @param polynomial  reflected
static constexpr Crc32Table crc32_table(uint32_t polynomial) {
    Crc32Table table{};
    for (uint32_t byte = 0; byte < table.size(); ++byte) {
        uint32_t crc = byte;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 1) != 0 ? crc >> 1 ^ polynomial : crc >> 1;
        }
        table[byte] = crc;
    }
    return table;
}

static uint32_t reflected_crc(ByteView bytes, const Crc32Table& table) {
    uint32_t crc = ~0u;
    for (uint8_t byte : bytes) {
        crc = crc >> 8 ^ table[(crc ^ byte) & 0xFF];
    }
    return ~crc;
}

uint32_t crc32(ByteView bytes) {
    static constexpr Crc32Table kTable = crc32_table(0xEDB88320);
    return reflected_crc(bytes, kTable);
}

uint32_t crc32c(ByteView bytes) {
    static constexpr Crc32Table kTable = crc32_table(0x82F63B78);
    return reflected_crc(bytes, kTable);
}

}  // namespace sim
