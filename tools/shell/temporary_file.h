// SPDX-License-Identifier: Apache-2.0
// Files that the tool makes for the library to read.
#ifndef SIDEBAND_TOOLS_SHELL_TEMPORARY_FILE_H
#define SIDEBAND_TOOLS_SHELL_TEMPORARY_FILE_H

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "tools/shell/failure.h"

namespace tool {

/// A file in memory, gone with its scope. Nobody else has a name for it, so that it holds at any
/// time what was put into it.
class TemporaryFile {
public:
    explicit TemporaryFile(const std::vector<uint8_t>& content)
        : descriptor_(memfd_create("sideband", MFD_CLOEXEC)) {
        if (descriptor_ < 0 || !fill(content)) {
            const std::string why = std::strerror(errno);
            close(descriptor_);
            throw Failure(ExitStatus::kFailed, "no temporary file can be made: " + why);
        }
    }
    ~TemporaryFile() { close(descriptor_); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    /// Opens as any other path, in this process.
    std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

private:
    bool fill(const std::vector<uint8_t>& content) const {
        size_t done = 0;
        while (done < content.size()) {
            const ssize_t count = write(descriptor_, content.data() + done, content.size() - done);
            if (count <= 0) {
                return false;
            }
            done += static_cast<size_t>(count);
        }
        return true;
    }

    int descriptor_;
};

}  // namespace tool

#endif
