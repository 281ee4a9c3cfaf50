// SPDX-License-Identifier: Apache-2.0
// Whether what runs the tests frees the locks of whoever ends while it holds one.
#ifndef SIDEBAND_TESTS_SUPPORT_ROBUST_LOCKS_H
#define SIDEBAND_TESTS_SUPPORT_ROBUST_LOCKS_H

#include <sys/syscall.h>
#include <unistd.h>

#include <cstddef>

namespace test {

/// All kernels do, but not the emulators that stand in for one.
inline bool frees_locks() {
    void* head = nullptr;
    size_t length = 0;
    return syscall(SYS_get_robust_list, 0, &head, &length) == 0;
}

}  // namespace test

#endif
