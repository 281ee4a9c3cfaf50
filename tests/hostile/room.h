// SPDX-License-Identifier: Apache-2.0
// What a call may write to: as many bytes as it was told, which were not there before.
#ifndef SIDEBAND_TESTS_HOSTILE_ROOM_H
#define SIDEBAND_TESTS_HOSTILE_ROOM_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace hostile {

/// On the heap, and not a byte larger: a sanitizer sees what passes its end.
class Room {
public:
    explicit Room(size_t size) : bytes_(size, kPattern) { bytes_.shrink_to_fit(); }

    uint8_t* data() { return bytes_.data(); }
    size_t size() const { return bytes_.size(); }
    /// Whether nothing was written from there on.
    bool untouched_from(size_t at = 0) const {
        return std::all_of(bytes_.begin() + static_cast<std::ptrdiff_t>(std::min(at, size())),
                           bytes_.end(), [](uint8_t byte) { return byte == kPattern; });
    }

private:
    static constexpr uint8_t kPattern = 0xA5;
    std::vector<uint8_t> bytes_;
};

}  // namespace hostile

#endif
