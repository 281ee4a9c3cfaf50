// SPDX-License-Identifier: Apache-2.0
// Files read by position. They may change meanwhile: no mapping, which would end the process then.
#ifndef SIDEBAND_COMMON_FILE_H
#define SIDEBAND_COMMON_FILE_H

#include <sys/types.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <type_traits>

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

    /// Leaves the descriptor to the caller.
    int release() {
        const int descriptor = descriptor_;
        descriptor_ = -1;
        return descriptor;
    }

private:
    int descriptor_;
};

/// Opens what a path names without waiting for anybody: a FIFO in a file's place would hold the
/// caller, with its locks, until somebody comes to its other end. Closed on exec.
/// @param flags  O_RDONLY, O_RDWR, ...
/// @return the descriptor; negative if nothing can be opened or it is no regular file
int open_regular(const char* path, int flags, mode_t mode = 0);

/// Tells a file from another one in its place, and from itself after a change. The time of the last
/// change of state is among it: that of modification can be set back.
struct FileStamp {
    uint64_t device;
    uint64_t inode;
    uint64_t size;
    uint64_t modified_s;
    uint64_t modified_ns;
    uint64_t changed_s;
    uint64_t changed_ns;

    bool operator==(const FileStamp& other) const {
        return std::memcmp(this, &other, sizeof other) == 0;
    }
};
static_assert(std::has_unique_object_representations_v<FileStamp>);

/// @return false if the system does not tell
bool stamp_of(int descriptor, FileStamp& stamp);

/// Reads from a position of a file, however the system divides it up.
/// @return bytes read: fewer than wanted if the file ends before
size_t read_file(int descriptor, uint64_t position, std::span<uint8_t> target);

}  // namespace sideband

#endif
