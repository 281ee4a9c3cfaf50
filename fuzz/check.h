// SPDX-License-Identifier: Apache-2.0
// What a fuzz target holds to be true, and buffers that show when somebody writes beside them.
#ifndef SIDEBAND_FUZZ_CHECK_H
#define SIDEBAND_FUZZ_CHECK_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace fuzz {

/// Ends the process with the message, in every build type.
[[noreturn]] void fail(const char* message);

inline void require(bool condition, const char* message) {
    if (!condition) {
        fail(message);
    }
}

/// Forbids memory under AddressSanitizer, or allows it again; nothing without it.
void poison(const void* memory, size_t size, bool poisoned);

/// A buffer of the caller's between two guard zones. Under AddressSanitizer the zones are poisoned,
/// so that a read shows as well; otherwise a write shows in check().
class GuardedBuffer {
public:
    /// What an untouched byte holds.
    static constexpr uint8_t kFill = 0xA5;

    explicit GuardedBuffer(size_t size);
    ~GuardedBuffer();
    GuardedBuffer(const GuardedBuffer&) = delete;
    GuardedBuffer& operator=(const GuardedBuffer&) = delete;

    uint8_t* data() { return bytes_.data() + kGuard; }
    size_t size() const { return bytes_.size() - 2 * kGuard; }

    /// Fails if a guard byte has changed.
    void check() const;
    /// Whether no byte from an offset on has been written.
    bool untouched_from(size_t offset) const;

private:
    static constexpr size_t kGuard = 64;

    void poison(bool poisoned) const;

    std::vector<uint8_t> bytes_;
};

}  // namespace fuzz

#endif
