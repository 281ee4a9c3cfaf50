// SPDX-License-Identifier: Apache-2.0
// A file that takes its name when it is whole.
#include "tools/shell/new_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace tool {

NewFile::NewFile(const std::string& path)
    : path_(path), made_(path + ".XXXXXX"), file_(mkostemp(made_.data(), O_CLOEXEC)) {}

NewFile::~NewFile() {
    if (is_open()) {
        close(file_);
    }
    if (is_open() && !done_) {
        unlink(made_.c_str());
    }
}

bool NewFile::write(const void* bytes, size_t size) const {
    const auto* at = static_cast<const uint8_t*>(bytes);
    while (size > 0) {
        const ssize_t count = ::write(file_, at, size);
        if (count < 0) {
            return false;
        }
        at += count;
        size -= static_cast<size_t>(count);
    }
    return true;
}

bool NewFile::finish() {
    const mode_t mask = umask(0);
    umask(mask);
    done_ = fchmod(file_, 0666 & ~mask) == 0 && fsync(file_) == 0 &&
            rename(made_.c_str(), path_.c_str()) == 0;
    return done_;
}

}  // namespace tool
