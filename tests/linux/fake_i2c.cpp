// SPDX-License-Identifier: Apache-2.0
// Stands in front of libc's files: an I2C adapter and slave queues of the test's own making.
#include "fake_i2c.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <poll.h>
#include <stdarg.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

namespace machine_test {
namespace {

FakeI2c* standing = nullptr;

template <typename Function>
Function next(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

/// What a descriptor is of; null for the machine's.
const FakeI2c::Path* own(int fd) {
    if (standing == nullptr) {
        return nullptr;
    }
    const auto found = standing->descriptors.find(fd);
    return found != standing->descriptors.end() ? &found->second : nullptr;
}

ssize_t take(void* room, size_t size) {
    FakeI2c& fake = *standing;
    const std::lock_guard guard(fake.mutex);
    if (!fake.read_errnos.empty()) {
        errno = fake.read_errnos.front();
        fake.read_errnos.pop_front();
        return errno == 0 ? 0 : -1;
    }
    if (fake.messages.empty()) {
        return 0;
    }
    const std::vector<uint8_t> message = fake.messages.front();
    fake.messages.pop_front();
    const size_t length = std::min(size, message.size());
    std::copy_n(message.begin(), length, static_cast<uint8_t*>(room));
    return static_cast<ssize_t>(length);
}

/// Waits as poll() does on the queue; only for what a program asked, but for errors.
short wait_for_message(const FakeI2c::Path& path, short events, int wait_ms) {
    FakeI2c& fake = *standing;
    std::unique_lock guard(fake.mutex);
    ++fake.polls;
    if (fake.hangup != 0) {
        return fake.hangup;
    }
    if (fake.told_always) {
        return events;
    }
    const bool attribute = path.kind == FakeI2c::Kind::kAttribute;
    if (attribute && (events & POLLIN) != 0) {
        return POLLIN;  // sysfs: always readable
    }
    const bool there = fake.arrived.wait_for(guard, std::chrono::milliseconds(wait_ms),
                                             [&fake] { return !fake.messages.empty(); });
    if (!there) {
        return 0;
    }
    // sysfs: an error with each event.
    return attribute ? static_cast<short>((events & POLLPRI) | POLLERR) : events & POLLIN;
}

}  // namespace

FakeI2c::FakeI2c() {
    standing = this;
}

FakeI2c::~FakeI2c() {
    standing = nullptr;
}

FakeI2c* FakeI2c::current() {
    return standing;
}

void FakeI2c::deliver(const std::vector<uint8_t>& message) {
    const std::lock_guard guard(mutex);
    messages.push_back(message);
    arrived.notify_all();
}

size_t FakeI2c::waiting() const {
    const std::lock_guard guard(mutex);
    return messages.size();
}

}  // namespace machine_test

using machine_test::FakeI2c;

/// A device is a FIFO's end here and an attribute a regular file, so that fstat() tells them apart.
extern "C" int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    const auto real = machine_test::next<int (*)(const char*, int, ...)>("open");
    FakeI2c* const fake = FakeI2c::current();
    const auto found = fake != nullptr ? fake->paths.find(path) : decltype(fake->paths)::iterator{};
    if (fake == nullptr || found == fake->paths.end()) {
        return real(path, flags, mode);
    }
    ++fake->opened;
    if (found->second.open_errno != 0) {
        errno = found->second.open_errno;
        return -1;
    }
    const bool attribute = found->second.kind == FakeI2c::Kind::kAttribute;
    const int fd = real(attribute ? "/proc/self/exe" : "/dev/null", O_RDONLY | O_CLOEXEC);
    fake->descriptors[fd] = found->second;
    return fd;
}

extern "C" int close(int fd) {
    if (FakeI2c* const fake = FakeI2c::current()) {
        fake->descriptors.erase(fd);
    }
    return machine_test::next<int (*)(int)>("close")(fd);
}

extern "C" ssize_t read(int fd, void* room, size_t size) {
    const FakeI2c::Path* const path = machine_test::own(fd);
    if (path == nullptr) {
        return machine_test::next<ssize_t (*)(int, void*, size_t)>("read")(fd, room, size);
    }
    // An attribute is read once, up to its end.
    return path->kind == FakeI2c::Kind::kDevice ? machine_test::take(room, size) : 0;
}

extern "C" ssize_t pread(int fd, void* room, size_t size, off_t offset) {
    const FakeI2c::Path* const path = machine_test::own(fd);
    if (path == nullptr) {
        return machine_test::next<ssize_t (*)(int, void*, size_t, off_t)>("pread64")(fd, room, size,
                                                                                     offset);
    }
    if (path->kind == FakeI2c::Kind::kDevice || offset != 0) {
        errno = ESPIPE;
        return -1;
    }
    return machine_test::take(room, size);
}

// glibc declares that poll() only writes to the array, and gcc believes it here too.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
extern "C" int poll(pollfd* descriptors, nfds_t count, int wait_ms) {
    const FakeI2c::Path* const path = count == 1 ? machine_test::own(descriptors[0].fd) : nullptr;
    if (path == nullptr) {
        return machine_test::next<int (*)(pollfd*, nfds_t, int)>("poll")(descriptors, count,
                                                                         wait_ms);
    }
    descriptors[0].revents = machine_test::wait_for_message(*path, descriptors[0].events, wait_ms);
    return descriptors[0].revents != 0 ? 1 : 0;
}

extern "C" int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    if (machine_test::own(fd) == nullptr) {
        return machine_test::next<int (*)(int, unsigned long, void*)>("ioctl")(fd, request,
                                                                               argument);
    }
    const auto* const all = static_cast<const i2c_rdwr_ioctl_data*>(argument);
    if (request != I2C_RDWR || all->nmsgs != 1 || all->msgs[0].flags != 0) {
        errno = ENOTTY;
        return -1;
    }
    FakeI2c& fake = *FakeI2c::current();
    const i2c_msg& message = all->msgs[0];
    fake.sent.push_back({.address = static_cast<uint8_t>(message.addr << 1),
                         .bytes = {message.buf, message.buf + message.len}});
    int result = 1;
    if (!fake.write_results.empty()) {
        result = fake.write_results.front();
        fake.write_results.pop_front();
    }
    if (result < 0) {
        errno = -result;
        return -1;
    }
    if (fake.on_write) {
        fake.on_write(fake.sent.back());
    }
    return result;
}
