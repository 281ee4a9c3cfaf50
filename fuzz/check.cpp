// SPDX-License-Identifier: Apache-2.0
// Failing loudly, and the guard zones.
#include "fuzz/check.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#if defined(__SANITIZE_ADDRESS__)
#define SIDEBAND_FUZZ_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define SIDEBAND_FUZZ_ASAN 1
#endif
#endif

#ifdef SIDEBAND_FUZZ_ASAN
#include <sanitizer/asan_interface.h>
#endif

namespace fuzz {

void fail(const char* message) {
    std::fprintf(stderr, "fuzz: %s\n", message);
    std::abort();
}

void poison([[maybe_unused]] const void* memory, [[maybe_unused]] size_t size,
            [[maybe_unused]] bool poisoned) {
#ifdef SIDEBAND_FUZZ_ASAN
    if (poisoned) {
        __asan_poison_memory_region(memory, size);
    } else {
        __asan_unpoison_memory_region(memory, size);
    }
#endif
}

GuardedBuffer::GuardedBuffer(size_t size) : bytes_(size + 2 * kGuard, kFill) {
    poison(true);
}

GuardedBuffer::~GuardedBuffer() {
    poison(false);
}

void GuardedBuffer::check() const {
    poison(false);
    const auto intact = [](uint8_t byte) { return byte == kFill; };
    require(std::all_of(bytes_.begin(), bytes_.begin() + kGuard, intact) &&
                std::all_of(bytes_.end() - kGuard, bytes_.end(), intact),
            "written beside the caller's buffer");
    poison(true);
}

bool GuardedBuffer::untouched_from(size_t offset) const {
    const auto end = bytes_.end() - kGuard;
    const auto begin = bytes_.begin() + static_cast<std::ptrdiff_t>(kGuard + offset);
    return std::all_of(begin, end, [](uint8_t byte) { return byte == kFill; });
}

void GuardedBuffer::poison(bool poisoned) const {
    fuzz::poison(bytes_.data(), kGuard, poisoned);
    fuzz::poison(bytes_.data() + bytes_.size() - kGuard, kGuard, poisoned);
}

}  // namespace fuzz
