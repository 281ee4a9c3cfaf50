// SPDX-License-Identifier: Apache-2.0
// Heap buffers that free themselves, without the C++ run time.
#ifndef SIDEBAND_COMMON_MEMORY_H
#define SIDEBAND_COMMON_MEMORY_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>

namespace sideband {

struct FreeDeleter {
    void operator()(void* block) const { std::free(block); }
};

template <typename T>
using HeapPtr = std::unique_ptr<T, FreeDeleter>;

/// A zeroed buffer; null if the allocation failed.
inline HeapPtr<uint8_t[]> allocate_bytes(size_t size) {
    return HeapPtr<uint8_t[]>(static_cast<uint8_t*>(std::calloc(1, size)));
}

/// A copy with zeros behind it; null if the allocation failed.
inline HeapPtr<uint8_t[]> copy_bytes(std::span<const uint8_t> bytes, size_t zeros_behind) {
    HeapPtr<uint8_t[]> copy(static_cast<uint8_t*>(std::malloc(bytes.size() + zeros_behind)));
    if (copy != nullptr) {
        if (!bytes.empty()) {
            std::memcpy(copy.get(), bytes.data(), bytes.size());
        }
        std::memset(copy.get() + bytes.size(), 0, zeros_behind);
    }
    return copy;
}

/// Zeroes a buffer, for those that are cleared once a packet. libc does it with the processor's
/// widest stores; a compiler that knew the size would put eight bytes at a time in its place.
inline void zero(std::span<uint8_t> bytes) {
    size_t size = bytes.size();
    __asm__("" : "+r"(size));
    std::memset(bytes.data(), 0, size);
}

}  // namespace sideband

#endif
