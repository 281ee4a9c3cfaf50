// SPDX-License-Identifier: Apache-2.0
// Files that the demo makes for the library to read.
#ifndef SIDEBAND_TOOLS_TEMPORARY_FILE_H
#define SIDEBAND_TOOLS_TEMPORARY_FILE_H

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "tools/failure.h"

namespace tool {

/// A file that is gone with its scope.
class TemporaryFile {
public:
    explicit TemporaryFile(const std::vector<uint8_t>& content) {
        const char* folder = std::getenv("TMPDIR");
        path_ = std::string(folder != nullptr ? folder : "/tmp") + "/sideband-demo-XXXXXX";
        const int descriptor = mkstemp(path_.data());
        if (descriptor < 0) {
            throw Failure(ExitStatus::failed, path_ + ": no temporary file can be made");
        }
        close(descriptor);
        std::ofstream(path_, std::ios::binary)
            .write(reinterpret_cast<const char*>(content.data()),
                   static_cast<std::streamsize>(content.size()));
    }
    ~TemporaryFile() { std::remove(path_.c_str()); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    const std::string& path() const { return path_; }

private:
    std::string path_;
};

}  // namespace tool

#endif
