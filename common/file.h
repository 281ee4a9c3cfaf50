// SPDX-License-Identifier: Apache-2.0
// Files read by position. They may change meanwhile: no mapping, which would end the process then.
#ifndef SIDEBAND_COMMON_FILE_H
#define SIDEBAND_COMMON_FILE_H

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <span>

namespace sideband {

/// An open file, closed with its scope.
class File {
public:
    /// @param descriptor  negative: there is no file
    explicit File(int descriptor) : descriptor_(descriptor) {}
    ~File() {
        if (descriptor_ >= 0) {
            close(descriptor_);
        }
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    explicit operator bool() const { return descriptor_ >= 0; }
    int descriptor() const { return descriptor_; }

private:
    int descriptor_;
};

/// Reads from a position of a file, however the system divides it up.
/// @return bytes read: fewer than wanted where the file ends before
size_t read_file(int descriptor, uint64_t position, std::span<uint8_t> target);

}  // namespace sideband

#endif
