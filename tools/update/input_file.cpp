// SPDX-License-Identifier: Apache-2.0
// Input files of the commands: packages and images.
#include "tools/update/input_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

namespace tool {

Failure unusable(const std::string& path, const std::string& why) {
    return {ExitStatus::kInput, path + ": " + why};
}

OpenFile open_regular_file(const std::string& path, uint64_t& size) {
    const int descriptor = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    OpenFile file(descriptor >= 0 ? fdopen(descriptor, "rb") : nullptr);
    struct stat status;
    if (file == nullptr || fstat(descriptor, &status) != 0) {
        throw unusable(path, std::strerror(errno));
    }
    if (!S_ISREG(status.st_mode)) {
        throw unusable(path,
                       S_ISDIR(status.st_mode) ? std::strerror(EISDIR) : "this is no regular file");
    }
    size = static_cast<uint64_t>(status.st_size);
    return file;
}

}  // namespace tool
