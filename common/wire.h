// SPDX-License-Identifier: Apache-2.0
// Bounded cursors over wire bytes: the one way in which the library reads and writes messages.
#ifndef SIDEBAND_COMMON_WIRE_H
#define SIDEBAND_COMMON_WIRE_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace sideband {

/// One byte of a message; 0 if it is not there.
inline uint8_t byte_at(std::span<const uint8_t> bytes, size_t place) {
    return place < bytes.size() ? bytes[place] : uint8_t{0};
}

/// Little-endian numbers; compilers make one load of each where the machine has one.
inline uint16_t le16(std::span<const uint8_t, 2> bytes) {
    return static_cast<uint16_t>(bytes[0] | bytes[1] << 8);
}
inline uint32_t le32(std::span<const uint8_t, 4> bytes) {
    return bytes[0] | uint32_t{bytes[1]} << 8 | uint32_t{bytes[2]} << 16 | uint32_t{bytes[3]} << 24;
}

/// Reads a message front to back. A read past the end yields zeros, and ok() stays false from then
/// on: read everything, test once.
class WireReader {
public:
    explicit WireReader(std::span<const uint8_t> bytes) : bytes_(bytes) {}

    // The one that is read most by far: on ARM half the cost of any other way to write it.
    uint8_t u8() {
        if (!ok_ || bytes_.empty()) {
            ok_ = false;
            return 0;
        }
        const uint8_t value = bytes_.front();
        bytes_ = bytes_.subspan(1);
        return value;
    }
    uint16_t le16() {
        const uint8_t* from = take(2);
        return from != nullptr ? sideband::le16(std::span<const uint8_t, 2>(from, 2)) : uint16_t{0};
    }
    uint32_t le32() {
        const uint8_t* from = take(4);
        return from != nullptr ? sideband::le32(std::span<const uint8_t, 4>(from, 4)) : 0;
    }
    uint16_t be16() { return static_cast<uint16_t>(big(2)); }
    uint32_t be32() { return big(4); }

    /// The next bytes, in place; nothing, and ok() false, if they are not all there.
    std::span<const uint8_t> bytes(size_t count) {
        const uint8_t* from = take(count);
        return from != nullptr ? std::span(from, count) : std::span<const uint8_t>();
    }
    /// What has not been read, in place.
    std::span<const uint8_t> rest() const { return bytes_; }

    /// Copies bytes out; the target is zeroed if they are not all there.
    void copy(std::span<uint8_t> target) {
        if (target.empty()) {
            return;  // memcpy() takes no null pointer, not even for nothing
        }
        const uint8_t* from = take(target.size());
        if (from != nullptr) {
            std::memcpy(target.data(), from, target.size());
        } else {
            std::memset(target.data(), 0, target.size());
        }
    }

    void skip(size_t count) { take(count); }

    size_t remaining() const { return bytes_.size(); }
    bool ok() const { return ok_; }

private:
    const uint8_t* take(size_t count) {
        if (!ok_ || count > remaining()) {
            ok_ = false;
            return nullptr;
        }
        const uint8_t* at = bytes_.data();
        bytes_ = bytes_.subspan(count);
        return at;
    }

    uint32_t big(size_t width) {
        const uint8_t* from = take(width);
        uint32_t value = 0;
        for (size_t i = 0; from != nullptr && i < width; ++i) {
            value = (value << 8) | from[i];
        }
        return value;
    }

    std::span<const uint8_t> bytes_;  ///< what has not been read
    bool ok_ = true;
};

/// Writes a message front to back. A write past the end is dropped, and ok() stays false from then
/// on.
class WireWriter {
public:
    explicit WireWriter(std::span<uint8_t> bytes) : bytes_(bytes) {}

    WireWriter& u8(uint8_t value) {
        if (!ok_ || position_ == bytes_.size()) {
            ok_ = false;
        } else {
            bytes_[position_++] = value;
        }
        return *this;
    }
    WireWriter& le16(uint16_t value) { return little(value, 2); }
    WireWriter& le32(uint32_t value) { return little(value, 4); }
    WireWriter& be16(uint16_t value) {
        return u8(static_cast<uint8_t>(value >> 8)).u8(static_cast<uint8_t>(value));
    }
    WireWriter& be32(uint32_t value) {
        return be16(static_cast<uint16_t>(value >> 16)).be16(static_cast<uint16_t>(value));
    }

    WireWriter& bytes(std::span<const uint8_t> source) {
        uint8_t* to = take(source.size());
        if (to != nullptr && !source.empty()) {
            std::memcpy(to, source.data(), source.size());
        }
        return *this;
    }

    WireWriter& skip(size_t count) {
        take(count);
        return *this;
    }

    size_t written() const { return position_; }
    bool ok() const { return ok_; }

private:
    uint8_t* take(size_t count) {
        if (!ok_ || count > bytes_.size() - position_) {
            ok_ = false;
            return nullptr;
        }
        uint8_t* at = bytes_.data() + position_;
        position_ += count;
        return at;
    }

    WireWriter& little(uint32_t value, size_t width) {
        uint8_t* to = take(width);
        for (size_t i = 0; to != nullptr && i < width; ++i) {
            to[i] = static_cast<uint8_t>(value >> (8 * i));
        }
        return *this;
    }

    std::span<uint8_t> bytes_;
    size_t position_ = 0;
    bool ok_ = true;
};

}  // namespace sideband

#endif
