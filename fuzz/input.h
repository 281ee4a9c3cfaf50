// SPDX-License-Identifier: Apache-2.0
// The fuzzer's bytes, taken front to back; zeros once they are used up.
#ifndef SIDEBAND_FUZZ_INPUT_H
#define SIDEBAND_FUZZ_INPUT_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

namespace fuzz {

class Input {
public:
    Input() = default;
    Input(const uint8_t* bytes, size_t size) : rest_(bytes, size) {}

    bool empty() const { return rest_.empty(); }

    uint8_t u8() {
        const std::span<const uint8_t> one = take(1);
        return one.empty() ? uint8_t{0} : one[0];
    }

    uint16_t u16() {
        const uint8_t low = u8();
        return static_cast<uint16_t>(low | u8() << 8);
    }

    uint32_t u32() {
        const uint32_t low = u16();
        return low | static_cast<uint32_t>(u16()) << 16;
    }

    /// The next count bytes, or as many as there are.
    std::span<const uint8_t> take(size_t count) {
        const std::span<const uint8_t> taken = rest_.first(std::min(count, rest_.size()));
        rest_ = rest_.subspan(taken.size());
        return taken;
    }

    /// Copies the next bytes; the rest of the target stays as it is.
    void fill(std::span<uint8_t> target) {
        const std::span<const uint8_t> taken = take(target.size());
        std::copy(taken.begin(), taken.end(), target.begin());
    }

private:
    std::span<const uint8_t> rest_;
};

}  // namespace fuzz

#endif
