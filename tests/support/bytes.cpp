// SPDX-License-Identifier: Apache-2.0
// Bytes for tests: hex text in and out, and the blocks that a device writes to the BMC.
#include "support/bytes.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>

namespace test {

namespace {

constexpr uint8_t kCanary = 0x5C;

unsigned nibble(char c) {
    if (c >= '0' && c <= '9') {
        return static_cast<unsigned>(c - '0');
    }
    int lower = std::tolower(static_cast<unsigned char>(c));
    if (lower >= 'a' && lower <= 'f') {
        return static_cast<unsigned>(lower - 'a' + 10);
    }
    std::fprintf(stderr, "not a hex digit: '%c'\n", c);
    std::abort();
}

}  // namespace

Bytes hex(std::string_view text) {
    Bytes bytes;
    bool high = true;
    for (char c : text) {
        if (std::isspace(static_cast<unsigned char>(c)) != 0) {
            continue;
        }
        if (high) {
            bytes.push_back(static_cast<uint8_t>(nibble(c) << 4));
        } else {
            bytes.back() = static_cast<uint8_t>(bytes.back() | nibble(c));
        }
        high = !high;
    }
    if (!high) {
        std::fprintf(stderr, "odd number of hex digits: %.*s\n", static_cast<int>(text.size()),
                     text.data());
        std::abort();
    }
    return bytes;
}

std::string to_hex(std::span<const uint8_t> bytes) {
    static const char kDigits[] = "0123456789abcdef";
    std::string text;
    for (uint8_t byte : bytes) {
        if (!text.empty()) {
            text += ' ';
        }
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

Bytes counting(size_t length, uint8_t first) {
    Bytes bytes(length);
    for (size_t i = 0; i < length; i++) {
        bytes[i] = static_cast<uint8_t>(first + i);
    }
    return bytes;
}

Bytes operator+(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

uint8_t pec(std::span<const uint8_t> bytes) {
    unsigned crc = 0;
    for (uint8_t byte : bytes) {
        crc ^= byte;
        for (int bit = 0; bit < 8; bit++) {
            crc = ((crc & 0x80u) != 0 ? (crc << 1) ^ 0x07u : crc << 1) & 0xFFu;
        }
    }
    return static_cast<uint8_t>(crc);
}

uint32_t crc32c(std::span<const uint8_t> bytes) {
    uint32_t crc = 0xFFFFFFFFu;
    for (uint8_t byte : bytes) {
        crc ^= byte;
        for (int bit = 0; bit < 8; bit++) {
            crc = (crc & 1u) != 0 ? (crc >> 1) ^ 0x82F63B78u : crc >> 1;
        }
    }
    return ~crc;
}

Bytes packet(uint8_t dest, uint8_t src, uint8_t flags, const Bytes& payload) {
    return Bytes{0x01, dest, src, flags} + payload;
}

Bytes block(const Bytes& mctp_packet, uint8_t device_address) {
    Bytes bytes{0x20, 0x0F, static_cast<uint8_t>(mctp_packet.size() + 1),
                static_cast<uint8_t>(device_address | 1)};
    bytes = bytes + mctp_packet;
    bytes.push_back(pec(bytes));
    bytes.erase(bytes.begin());
    return bytes;
}

std::vector<Bytes> split(const Bytes& message, uint8_t dest, uint8_t src, uint8_t tag_bits,
                         size_t unit) {
    std::vector<Bytes> packets;
    size_t offset = 0;
    do {
        size_t chunk = std::min(unit, message.size() - offset);
        unsigned flags = tag_bits | sequence(static_cast<unsigned>(packets.size()));
        flags |= offset == 0 ? kSom : 0u;
        flags |= offset + chunk == message.size() ? kEom : 0u;
        auto from = message.begin() + static_cast<ptrdiff_t>(offset);
        packets.push_back(packet(dest, src, static_cast<uint8_t>(flags),
                                 Bytes(from, from + static_cast<ptrdiff_t>(chunk))));
        offset += chunk;
    } while (offset < message.size());
    return packets;
}

Guarded::Guarded(size_t size, uint8_t fill)
    : size_(size), fill_(fill), storage_(size + 2 * kMargin, kCanary) {
    std::fill_n(storage_.begin() + static_cast<ptrdiff_t>(kMargin), size, fill);
}

bool Guarded::intact() const {
    auto is_canary = [](uint8_t byte) { return byte == kCanary; };
    auto begin = storage_.begin();
    return std::all_of(begin, begin + static_cast<ptrdiff_t>(kMargin), is_canary) &&
           std::all_of(begin + static_cast<ptrdiff_t>(kMargin + size_), storage_.end(), is_canary);
}

Bytes Guarded::head(size_t count) const {
    auto begin = storage_.begin() + static_cast<ptrdiff_t>(kMargin);
    return Bytes(begin, begin + static_cast<ptrdiff_t>(std::min(count, size_)));
}

bool Guarded::untouched_from(size_t offset) const {
    auto begin = storage_.begin() + static_cast<ptrdiff_t>(kMargin);
    return std::all_of(begin + static_cast<ptrdiff_t>(std::min(offset, size_)),
                       begin + static_cast<ptrdiff_t>(size_),
                       [this](uint8_t byte) { return byte == fill_; });
}

}  // namespace test
