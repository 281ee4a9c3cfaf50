// SPDX-License-Identifier: Apache-2.0
// A machine whose memory has run out, as the library sees it.
#ifndef SIDEBAND_TESTS_SUPPORT_NO_MEMORY_H
#define SIDEBAND_TESTS_SUPPORT_NO_MEMORY_H

#include <cerrno>
#include <cstddef>

#include "offset_table.h"

namespace test {

/// While one lives, the library gets no memory; the machine and the test get theirs.
class NoMemory {
public:
    NoMemory() { patch_offsets(functions_); }
    ~NoMemory() { restore_offsets(functions_); }
    NoMemory(const NoMemory&) = delete;
    NoMemory& operator=(const NoMemory&) = delete;

private:
    static void* no_block(size_t) {
        errno = ENOMEM;
        return nullptr;
    }
    static void* no_blocks(size_t, size_t) { return no_block(0); }

    Substitute functions_[2] = {{"malloc", address_of(no_block)},
                                {"calloc", address_of(no_blocks)}};
};

}  // namespace test

#endif
