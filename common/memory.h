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
#include <utility>

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

/// Clears an aligned object of a few dozen bytes with the processor's widest stores. Whatever is
/// set to zeros for each packet takes this way: a compiler that saves room would call memset(),
/// which costs six times as many instructions on ARM.
template <size_t kSize>
inline void clear(void* to) {
    using Wide [[gnu::vector_size(16), gnu::aligned(8), gnu::may_alias]] = uint64_t;
    constexpr size_t kRounds = kSize / sizeof(Wide);
    static_assert(kSize == kRounds * sizeof(Wide));
    [to]<size_t... kIndex>(std::index_sequence<kIndex...>) {
        ((static_cast<Wide*>(to)[kIndex] = Wide{}), ...);
    }
    (std::make_index_sequence<kRounds>());
}

}  // namespace sideband

#endif
