// SPDX-License-Identifier: Apache-2.0
// Bytes for tests: hex text in and out, and the blocks that a device writes to the BMC.
#ifndef SIDEBAND_TESTS_SUPPORT_BYTES_H
#define SIDEBAND_TESTS_SUPPORT_BYTES_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace test {

using Bytes = std::vector<uint8_t>;

/// "01 08 ff" or "0108ff" -> bytes. Anything that is not hex or white space aborts the test run.
Bytes hex(std::string_view text);

/// Bytes -> "01 08 ff".
std::string to_hex(std::span<const uint8_t> bytes);

/// first, first + 1, ...: a body whose every byte tells its position.
Bytes counting(size_t length, uint8_t first = 0);

/// a, then b.
Bytes operator+(Bytes a, const Bytes& b);

/// SMBus PEC (polynomial 0x07), computed bit by bit and apart from the library's table.
uint8_t pec(std::span<const uint8_t> bytes);

/// CRC-32C as NVMe-MI's integrity check, computed bit by bit.
uint32_t crc32c(std::span<const uint8_t> bytes);

/// DSP0236 transport header flags: SOM, EOM, sequence, TO, tag.
constexpr uint8_t kSom = 0x80;
constexpr uint8_t kEom = 0x40;
constexpr uint8_t kTo = 0x08;
constexpr uint8_t sequence(unsigned number) {
    return static_cast<uint8_t>((number & 3u) << 4);
}

/// One MCTP packet: header version 1, EIDs, flags, payload.
Bytes packet(uint8_t dest, uint8_t src, uint8_t flags, const Bytes& payload);

/**
 * The block that arrives at the BMC's slave address: command code 0x0F, byte count, the device's
 * address with bit 0 set, the MCTP packet, PEC (over the BMC's address 0x20 and the block).
 */
Bytes block(const Bytes& mctp_packet, uint8_t device_address = 0x64);

/// Splits a message (type byte first) into packets of at most unit bytes: SOM, EOM, sequence.
std::vector<Bytes> split(const Bytes& message, uint8_t dest, uint8_t src, uint8_t tag_bits,
                         size_t unit = 64);

/// A buffer between two canaries; intact() tells whether anything wrote outside it.
class Guarded {
public:
    explicit Guarded(size_t size, uint8_t fill = 0xA5);
    uint8_t* data() { return storage_.data() + kMargin; }
    size_t size() const { return size_; }
    bool intact() const;
    /// The first count bytes of the buffer.
    Bytes head(size_t count) const;
    /// Whether every byte from offset on still holds the fill value.
    bool untouched_from(size_t offset) const;

private:
    static constexpr size_t kMargin = 512;
    size_t size_;
    uint8_t fill_;
    Bytes storage_;
};

}  // namespace test

#endif
