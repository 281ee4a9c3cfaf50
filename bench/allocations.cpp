// SPDX-License-Identifier: Apache-2.0
// The heap functions, counted and handed on to libc's own; the shared library's calls end up here.
#include "bench/allocations.h"

#include <cerrno>
#include <cstddef>

// NOLINTBEGIN(readability-identifier-naming): libc's own names
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
}
// NOLINTEND(readability-identifier-naming)

namespace {

uint64_t calls;

void count() {
    __atomic_fetch_add(&calls, 1, __ATOMIC_RELAXED);
}

}  // namespace

uint64_t bench::allocations() {
    return __atomic_load_n(&calls, __ATOMIC_RELAXED);
}

extern "C" {

void* malloc(size_t size) {
    count();
    return __libc_malloc(size);
}

void* calloc(size_t count_of, size_t size) {
    count();
    return __libc_calloc(count_of, size);
}

void* realloc(void* block, size_t size) {
    count();
    return __libc_realloc(block, size);
}

void* aligned_alloc(size_t alignment, size_t size) {
    count();
    return __libc_memalign(alignment, size);
}

void* memalign(size_t alignment, size_t size) {
    count();
    return __libc_memalign(alignment, size);
}

int posix_memalign(void** block, size_t alignment, size_t size) {
    count();
    *block = __libc_memalign(alignment, size);
    return *block == nullptr ? ENOMEM : 0;
}

}  // extern "C"
