// SPDX-License-Identifier: Apache-2.0
// Files read by position.
#include "common/file.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace sideband {

int open_regular(const char* path, int flags, mode_t mode) {
    File file(open(path, flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, mode));
    struct stat status;
    if (!file || fstat(file.descriptor(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return -1;
    }
    return file.release();
}

bool stamp_of(int descriptor, FileStamp& stamp) {
    struct stat status;
    if (fstat(descriptor, &status) != 0) {
        return false;
    }
    stamp = {status.st_dev,
             status.st_ino,
             static_cast<uint64_t>(status.st_size),
             static_cast<uint64_t>(status.st_mtim.tv_sec),
             static_cast<uint64_t>(status.st_mtim.tv_nsec),
             static_cast<uint64_t>(status.st_ctim.tv_sec),
             static_cast<uint64_t>(status.st_ctim.tv_nsec)};
    return true;
}

size_t read_file(int descriptor, uint64_t position, std::span<uint8_t> target) {
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

}  // namespace sideband
