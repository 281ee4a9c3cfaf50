// SPDX-License-Identifier: Apache-2.0
// A file that lives in memory and has a path nevertheless.
#ifndef SIDEBAND_FUZZ_FILE_H
#define SIDEBAND_FUZZ_FILE_H

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <span>
#include <string>

#include "fuzz/check.h"

namespace fuzz {

class File {
public:
    explicit File(std::span<const uint8_t> content)
        : descriptor_(memfd_create("package", MFD_CLOEXEC)) {
        require(descriptor_ >= 0, "no file in memory");
        require(write(descriptor_, content.data(), content.size()) ==
                    static_cast<ssize_t>(content.size()),
                "the file cannot be written");
        path_ = "/proc/self/fd/" + std::to_string(descriptor_);
    }
    ~File() { close(descriptor_); }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    const char* path() const { return path_.c_str(); }

private:
    int descriptor_;
    std::string path_;
};

}  // namespace fuzz

#endif
