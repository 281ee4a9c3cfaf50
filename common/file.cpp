// SPDX-License-Identifier: Apache-2.0
// Files read by position.
#include "common/file.h"

size_t sideband::read_file(int descriptor, uint64_t position, std::span<uint8_t> target) {
    size_t done = 0;
    while (done < target.size()) {
        const ssize_t count = pread(descriptor, target.data() + done, target.size() - done,
                                    static_cast<off_t>(position + done));
        if (count <= 0) {
            break;
        }
        done += static_cast<size_t>(count);
    }
    return done;
}
