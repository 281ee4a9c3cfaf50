// SPDX-License-Identifier: Apache-2.0
// A board file from its path to its parsed root, and the errors that come of it.
#include "platform/board_file/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace board_file {

namespace {

/// A descriptor that closes itself.
class File {
public:
    /// A FIFO without a writer would keep an open() that waits.
    explicit File(const std::string& path)
        : fd_(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)) {}
    ~File() {
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    int fd() const { return fd_; }

private:
    int fd_;
};

/// Why a file is not even looked into; nothing if it can be.
std::optional<std::string> objection(const File& file) {
    struct stat status {};
    if (file.fd() < 0 || fstat(file.fd(), &status) != 0) {
        return std::strerror(errno);
    }
    if (S_ISDIR(status.st_mode)) {
        return std::strerror(EISDIR);
    }
    if (!S_ISREG(status.st_mode)) {
        return "is not a regular file";
    }
    return std::nullopt;
}

}  // namespace

std::optional<std::string> read_file(const std::string& path, std::string& text) {
    const File file(path);
    if (std::optional<std::string> reason = objection(file)) {
        return reason;
    }
    char buffer[4096];
    ssize_t got = 0;
    while ((got = read(file.fd(), buffer, sizeof buffer)) > 0) {
        text.append(buffer, static_cast<size_t>(got));
        if (text.size() > kLongestFile) {
            return "is longer than " + std::to_string(kLongestFile) +
                   " bytes, the most that a board file may have";
        }
    }
    return got < 0 ? std::optional<std::string>(std::strerror(errno)) : std::nullopt;
}

bool read_text(std::string_view text, BoardError& error,
               const std::function<void(const Place& root)>& read) {
    ErrorList errors;
    attempt([&] {
        const Node root = parse_json(text, errors);
        read(Place{&root, "", &errors});
    });
    if (errors.empty()) {
        return true;
    }
    error = errors.take();
    return false;
}

}  // namespace board_file
