// SPDX-License-Identifier: Apache-2.0
// A file descriptor that closes itself.
#ifndef SIDEBAND_LINUX_DESCRIPTOR_H
#define SIDEBAND_LINUX_DESCRIPTOR_H

#include <unistd.h>

#include <utility>

namespace machine {

class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() {
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }

    explicit operator bool() const { return fd_ >= 0; }
    int get() const { return fd_; }

private:
    int fd_ = -1;
};

}  // namespace machine

#endif
